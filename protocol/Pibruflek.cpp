// The command language: one line names an object of the host by a path of names, then asks for
// its values ("?") or acts on it ("=" value, "+", "-", or a text).
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "module/Module.h"
#include "module/ValueType.h"
#include "protocol/WKSProtocol.h"
#include "text/Conversions.h"

namespace {

constexpr useconds_t kBusyPoll = 10000;  // 10 ms between the questions to a busy file collection

// A name of a path ends at any of ":.=\f\n\r+-" or at a zero character (a zero byte of the
// message). All ten lie below 64, so one mask holds them.
constexpr uint64_t SeparatorMask() {
    uint64_t mask = 1;  // the zero character
    for (wchar_t c : {L':', L'.', L'=', L'\f', L'\n', L'\r', L'+', L'-'}) mask |= uint64_t{1} << c;
    return mask;
}
constexpr uint64_t kSeparatorMask = SeparatorMask();

bool IsSeparator(wchar_t c) { return static_cast<uint32_t>(c) < 64 && ((kSeparatorMask >> c) & 1) != 0; }

bool IsPathDot(wchar_t c) { return c == L':' || c == L'.'; }

// Whole-name comparison, exact, or without regard to case as the locale lowers characters.
bool SameName(const tagREFString& name, const wchar_t* literal, const CLocaleCache* lowering = nullptr) {
    int32_t i = 0;
    for (; literal[i] != L'\0'; ++i) {
        if (i >= name.length) return false;
        const wchar_t a = name.text[i], b = literal[i];
        if (lowering ? lowering->Lower(a) != lowering->Lower(b) : a != b) return false;
    }
    return i == name.length;
}

tagREFString ObjectName(IObjectInfo* info) {
    tagREFString name{0, nullptr};
    if (info == nullptr || info->GetName(0, &name) < 0 || name.length < 0) name = tagREFString{0, nullptr};
    return name;
}

SmartPtr<IString> NewString(const tagREFString& text) {
    SmartPtr<IString> made(CREFString::CreateString());
    if (made) made->SetText(text.length, text.text);
    return made;
}

// A value as a variant, by the query's order of precedence: a result's real, a step's state, a
// digital input or output's bit, a string's text, the object's own variant. Null when none applies.
SmartPtr<IVariant> ValueOf(IResultParameter* result, IStep* step, IDigitalIO* io, IString* text, IVariant* own) {
    SmartPtrIID<IVariant, &IID_IVariant> value;
    if (result != nullptr) {
        double real = 0;
        result->get_Value(&real);
        SmartPtr<IVariant> made(CREFString::CreateVariant());
        if (made) made->put_Double(real);
        value = made.get();
    } else if (step != nullptr) {
        SmartPtr<IVariant> made(IVCreate(static_cast<int>(step->get_State())));
        value = made.get();
    } else if (io != nullptr) {
        int16_t state = 0;
        io->get_State(&state);
        SmartPtr<IVariant> made(IVCreate(state & 1));
        value = made.get();
    } else if (text != nullptr) {
        SmartPtr<IVariant> made(IVCreate(text));
        value = made.get();
    } else {
        value = own;
    }
    return SmartPtr<IVariant>(value.Detach());
}

// An item's facets are asked in order of precedence, and only as far as needed. False when the
// item has none of them; true when it has one, even if its value could not be made (then `value`
// stays null: the item is listed without a value, not under its name).
bool ValueOfItem(IUnknown* item, SmartPtr<IVariant>& value) {
    if (SmartPtr<IResultParameter> result = QueryAs<IResultParameter>(item, IID_IResultParameter))
        value = ValueOf(result.get(), nullptr, nullptr, nullptr, nullptr);
    else if (SmartPtr<IStep> step = QueryAs<IStep>(item, IID_IStep))
        value = ValueOf(nullptr, step.get(), nullptr, nullptr, nullptr);
    else if (SmartPtr<IDigitalIO> io = QueryAs<IDigitalIO>(item, IID_IDigitalIO))
        value = ValueOf(nullptr, nullptr, io.get(), nullptr, nullptr);
    else if (SmartPtr<IString> text = QueryAs<IString>(item, IID_IString))
        value = ValueOf(nullptr, nullptr, nullptr, text.get(), nullptr);
    else if (!(value = QueryAs<IVariant>(item, IID_IVariant)))
        return false;
    return true;
}

// The text of an assignment as a variant: by the parameter's type where it names one, otherwise
// a number when the text is one (an integer only up to 9 characters), else text.
SmartPtr<IVariant> ConvertAssigned(const CREFString& value, int32_t type) {
    if (type == VALUE_FLOAT || type == VALUE_DOUBLE) return SmartPtr<IVariant>(IVCreate(_IS2Double(value)));
    if (type != VALUE_STRING) {
        int32_t i = value.length > 0 && value.text[0] == L'-' ? 1 : 0;
        int dots = 0;
        bool number = true;
        for (; i < value.length && number; ++i) {
            if (value.text[i] == L'.') number = ++dots <= 1;
            else number = value.text[i] >= L'0' && value.text[i] <= L'9';
        }
        if (number && dots == 1) return SmartPtr<IVariant>(IVCreate(_IS2Double(value)));
        if (number && value.length <= 9) return SmartPtr<IVariant>(IVCreate(_IS2Integer(value, 10)));
    }
    SmartPtr<IString> text(ISCreate(static_cast<const tagREFString&>(value)));
    return SmartPtr<IVariant>(IVCreate(text.get()));
}

}  // namespace

// What the command language asks of the object a path reached, asked once.
struct CommandFacets {
    explicit CommandFacets(IUnknown* target)
        : parameters(QueryAs<IParameters>(target, IID_IParameters)),
          named(QueryAs<INamedCollection>(target, IID_INamedCollection)),
          variant(QueryAs<IVariant>(target, IID_IVariant)),
          text(QueryAs<IString>(target, IID_IString)),
          step(QueryAs<IStep>(target, IID_IStep)),
          io(QueryAs<IDigitalIO>(target, IID_IDigitalIO)),
          result(QueryAs<IResultParameter>(target, IID_IResultParameter)),
          files(QueryAs<IFileNameCollection>(target, IID_IFileNameCollection)),
          info(QueryAs<IObjectInfo>(target, IID_IObjectInfo)),
          name(ObjectName(info.get())),
          buttons(QueryAs<IUnknown>(target, IID_IButtonCollection)),
          button(QueryAs<IButton>(target, IID_IButton)) {}

    SmartPtr<IParameters> parameters;
    SmartPtr<INamedCollection> named;
    SmartPtr<IVariant> variant;
    SmartPtr<IString> text;
    SmartPtr<IStep> step;
    SmartPtr<IDigitalIO> io;
    SmartPtr<IResultParameter> result;
    SmartPtr<IFileNameCollection> files;
    SmartPtr<IObjectInfo> info;
    tagREFString name;  // the target's name, read as its facets are asked; `info` keeps it alive
    SmartPtr<IUnknown> buttons;
    SmartPtr<IButton> button;
};

// The state of resolving one command's path: where the next name is looked up, and what the
// path has reached so far. Every reference it holds is released with it.
class CPathWalk {
public:
    CPathWalk(CWKSProtocol& owner, IRunningObjectTableEx* table)
        : m_Owner(owner), m_Held(QueryAs<INamedCollection>(table, IID_INamedCollection)), m_Current(m_Held.get()) {}

    // "?" alone: the target is the protocol object itself.
    void StartAtOwner() { target.Assign(m_Owner.Self()); }

    // Resolves the path at the front of `line` and cuts it off; the line keeps the character
    // that ended the path. E_FAIL when a name cannot be found.
    HRESULT Walk(CREFString& line) {
        for (bool firstName = true;; firstName = false) {
            const CREFString name = CutName(line);
            // The first name is asked of the object's own parameters under a text of its own (which
            // becomes the own-parameter name when it is found), and of a collection under another.
            if (firstName && TakeOwnParameter(SmartPtr<IString>(ISCreate(static_cast<const tagREFString&>(name))), line) &&
                (line.length == 0 || !IsPathDot(line.text[0])))
                return S_OK;
            if (const HRESULT hr = Step(NewString(name).get()); hr < 0) return hr;
            // The path goes on at "::" or "."; a single ":" followed by anything else ends it.
            const bool goesOn = line.length >= 2 && (line.text[0] == L'.' || (line.text[0] == L':' && line.text[1] == L':'));
            if (goesOn)
                while (line.length > 0 && IsPathDot(line.text[0])) ++line.text, --line.length;
            if (!goesOn || SameName(m_TargetName, L"KQBible")) return S_OK;
        }
    }

    // The collection a path that ended at an own parameter was found in (the protocol object's),
    // else the target's own named collection; null when there is none.
    INamedCollection* Current() const { return m_Current; }

    SmartPtr<IUnknown> target;  // the object the path reached
    SmartPtr<IUnknown> parent;  // the object reached before it (none for a one-name path)
    SmartPtr<IUnknown> first;   // the object the first name reached
    SmartPtr<IString> ownName;  // set when the first name is one of the object's own parameters

private:
    // The next name: up to the first separator, unquoted, trailing blanks dropped.
    CREFString CutName(CREFString& line) const {
        CREFString name(line.text, 0);
        while (name.length < line.length && !IsSeparator(line.text[name.length])) ++name.length;
        line.text += name.length;
        line.length -= name.length;
        if (name.length > 0 && name.text[0] == L'"') {
            ++name.text, --name.length;
            m_Owner.m_Locale.Trim(name, CLocaleCache::kBack);
            if (name.length > 0 && name.text[name.length - 1] == L'"') --name.length;
        }
        m_Owner.m_Locale.Trim(name, CLocaleCache::kBack);
        return name;
    }

    // A first name that is one of the protocol object's own parameters addresses that parameter:
    // its value becomes the target and the search goes on, if at all, in the object's collection.
    bool TakeOwnParameter(SmartPtr<IString>&& key, CREFString& line) {
        int32_t index = 0;
        if (!key || m_Owner.get_Index(key.get(), &index) < 0) return false;
        m_Held.Reset();  // the owner's collection lives as long as the caller's reference
        m_Current = static_cast<INamedCollection*>(m_Owner.OwnParameters());
        ownName = std::move(key);
        m_Owner.get_Item(index, target.Out());
        m_Owner.m_Locale.Trim(line, CLocaleCache::kFront);
        return true;
    }

    // Looks `key` up in the tabs of the object reached last, or else in the current collection,
    // and makes the object found the target.
    HRESULT Step(IString* key) {
        SmartPtr<IUnknown> found;
        int32_t index = 0;
        if (m_Tabs) {
            if (key == nullptr || m_Tabs->get_Index(key, &index) < 0) return E_FAIL;
            int32_t active = 0;
            m_Tabs->get_ActiveIndex(&active);
            if (active != index) m_Tabs->put_ActiveIndex(index, 1);
            if (m_Selector) m_Selector->get_SelectedObject(found.Out());
            else m_Tabs->get_Item(index, found.Out());
        } else if (m_Current != nullptr) {
            if (key == nullptr || m_Current->get_Index(key, &index) < 0) return E_FAIL;
            m_Current->get_Item(index, found.Out());
        } else {
            return E_FAIL;
        }
        parent = std::move(target);
        target = std::move(found);
        if (!first) first = target;

        m_Info = QueryAs<IObjectInfo>(target.get(), IID_IObjectInfo);
        m_TargetName = ObjectName(m_Info.get());
        m_Selector = QueryAs<IUIFolderSelectable>(target.get(), IID_IUIFolderSelectable);
        m_Tabs = QueryAs<ITabCollection>(target.get(), IID_ITabCollection);
        m_Held = QueryAs<INamedCollection>(target.get(), IID_INamedCollection);
        // The button collection is asked of every object; it serves only one without a named collection.
        SmartPtr<IUnknown> buttons = QueryAs<IUnknown>(target.get(), IID_IButtonCollection);
        if (!m_Held) m_Held = QueryAs<INamedCollection>(buttons.get(), IID_INamedCollection);
        m_Current = m_Held.get();
        return S_OK;
    }

    CWKSProtocol& m_Owner;
    SmartPtr<INamedCollection> m_Held;  // the current collection, when it is not the owner's
    INamedCollection* m_Current;        // where the next name is looked up
    SmartPtr<ITabCollection> m_Tabs;   // of the object reached last
    SmartPtr<IUIFolderSelectable> m_Selector;
    SmartPtr<IObjectInfo> m_Info;       // keeps m_TargetName's text alive
    tagREFString m_TargetName{0, nullptr};
};

HRESULT CWKSProtocol::ParseCommand(CREFString line, IRunningObjectTableEx* table) {
    m_Locale.Refresh();  // the locale of the moment, for trimming, names and the reply's bytes
    m_Locale.Trim(line, CLocaleCache::kBoth);
    if (line.length == 0) return S_OK;
    CPathWalk walk(*this, table);

    // A "?" first or last marks a query.
    bool query = false;
    if (line.text[0] == L'?') {
        ++line.text, --line.length;
        m_Locale.Trim(line, CLocaleCache::kFront);
        query = true;
    }
    if (line.length > 0 && line.text[line.length - 1] == L'?') {
        --line.length;
        m_Locale.Trim(line, CLocaleCache::kBack);
        query = true;
    }

    if (line.length > 0) {
        if (const HRESULT hr = walk.Walk(line); hr < 0) return hr;
    } else if (query) {
        walk.StartAtOwner();
    } else {
        return S_OK;
    }

    const CommandFacets facets(walk.target.get());
    if (facets.files)
        while (facets.files->IsBusy()) usleep(kBusyPoll);  // no limit: the collection decides
    return query ? Query(walk, facets) : Act(line, walk, facets);
}

HRESULT CWKSProtocol::Query(const CPathWalk& walk, const CommandFacets& facets) {
    const tagREFString& targetName = facets.name;
    SmartPtr<INamedCollection> named = facets.named;  // a button collection's serves when there is none
    if (!named && facets.buttons) named = QueryAs<INamedCollection>(facets.buttons.get(), IID_INamedCollection);
    if (facets.parameters && !SameName(targetName, L"ResultsView", &m_Locale) &&
        (!facets.step || SameName(targetName, L"IOQuen", &m_Locale)))
        return Reply(facets.parameters.get());

    SmartPtr<IParametersCreatable> built(BASEObject::CreateParameters());
    if (!built) return S_OK;
    if (SmartPtr<IVariant> value = ValueOf(facets.result.get(), facets.step.get(), facets.io.get(), facets.text.get(),
                                           facets.variant.get())) {
        built->Add(walk.ownName.get(), value.get(), nullptr, 0);
        return Reply(built.get());
    }
    int32_t count = 0;
    if (named) named->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> itemName;
        SmartPtr<IUnknown> item;
        named->get_ItemName(i, itemName.Out());
        named->get_Item(i, item.Out());
        SmartPtr<IVariant> itemValue;
        if (!ValueOfItem(item.get(), itemValue)) {
            if (SmartPtr<IObjectInfo> itemInfo = QueryAs<IObjectInfo>(item.get(), IID_IObjectInfo)) {
                SmartPtr<IString> text(ISCreate(ObjectName(itemInfo.get())));
                itemValue.Attach(IVCreate(text.get()));
            }
        }
        built->Add(itemName.get(), itemValue.get(), nullptr, 0);
    }
    return Reply(built.get());
}

HRESULT CWKSProtocol::Act(CREFString rest, const CPathWalk& walk, const CommandFacets& facets) {
    m_Locale.Trim(rest, CLocaleCache::kFront);
    tagREFString before{0, nullptr};
    CREFString value = rest;
    if (value.GetWord(&before, true, tagREFString{1, L"="}) > 0) {  // what stands before "=" is ignored
        ++value.text, --value.length;
        return Assign(value, walk, facets);
    }
    if (rest.length > 0 && (rest.text[0] == L'+' || rest.text[0] == L'-')) {
        SmartPtr<IUIManager> manager = QueryAs<IUIManager>(walk.first.get(), IID_IUIManager);
        if (!manager) return E_FAIL;
        rest.text[0] == L'+' ? manager->Increment() : manager->Decrement();
        return S_OK;
    }
    // Any other text is handed to a manager collection's selection, or to a search.
    SmartPtr<IUIManagerCollection> managers = QueryAs<IUIManagerCollection>(walk.first.get(), IID_IUIManagerCollection);
    if (!managers) {
        if (SmartPtr<ICollectionMoniker> moniker = QueryAs<ICollectionMoniker>(walk.first.get(), IID_ICollectionMoniker))
            moniker->BindToObject(&IID_IUIManagerCollection, managers.OutVoid());
    }
    if (managers) {
        if (rest.length == 0) {
            managers->SelectDefault();
        } else {
            SmartPtr<IString> text(ISCreate(static_cast<const tagREFString&>(rest)));
            SmartPtr<IUnknown> selected;
            managers->Select(text.get(), 0, selected.Out());
        }
    } else if (SmartPtr<IKQSearch> search = QueryAs<IKQSearch>(walk.target.get(), IID_IKQSearch)) {
        SmartPtr<IString> text(ISCreate(static_cast<const tagREFString&>(rest)));
        search->Search(text.get(), 0, 0);
    }
    return S_OK;
}

HRESULT CWKSProtocol::Assign(CREFString value, const CPathWalk& walk, const CommandFacets& facets) {
    m_Locale.Trim(value, CLocaleCache::kFront);
    if (value.length == 0) return E_FAIL;
    if (value.text[0] == L'"') {
        ++value.text, --value.length;
        m_Locale.Trim(value, CLocaleCache::kFront);
        if (value.length > 0 && value.text[value.length - 1] == L'"') --value.length;
        if (value.length == 0) return E_FAIL;
    }
    const bool zero = value.text[0] == L'0';
    // The own collection is known to be a parameter collection; anything else is asked.
    INamedCollection* current = walk.Current();
    SmartPtr<IParameters> asked;
    auto parametersOf = [&]() -> IParameters* {
        if (current != nullptr && current == static_cast<INamedCollection*>(OwnParameters())) return OwnParameters();
        asked = QueryAs<IParameters>(current, IID_IParameters);
        return asked.get();
    };
    if (facets.step) {
        zero ? facets.step->SwitchOff() : facets.step->SwitchOn();
    } else if (facets.io) {
        facets.io->put_State(zero ? 2 : 1);
    } else if (facets.button) {
        const int32_t state = zero ? 0 : 1;
        int32_t id = 0;
        facets.button->get_Attribute(8, &id);
        if (SmartPtr<IToolbarHost> host = QueryAs<IToolbarHost>(walk.first.get(), IID_IToolbarHost)) host->put_ButtonState(id, state);
        else facets.button->put_Attribute(15, state);
    } else if (IParameters* parameters = parametersOf()) {
        int32_t index = 0, flags = 0;
        parameters->get_Index(walk.ownName.get(), &index);
        parameters->get_ItemFlags(index, &flags);
        SmartPtr<IVariant> converted = ConvertAssigned(value, ValueTypeOf(flags));
        parameters->put_Item(index, converted.get());  // a refused value is not the command's failure
    } else if (SmartPtr<IUIManager> manager = QueryAs<IUIManager>(walk.parent.get(), IID_IUIManager)) {
        SmartPtr<IUnknown> active;
        manager->get_ActiveObject(active.Out());
        active.Reset();
        if (SmartPtr<_IUIContainerEvents> events = QueryAs<_IUIContainerEvents>(manager.get(), IID__IUIContainerEvents))
            events->Notify(manager.get(), 1, -1, -1, walk.target.get());
    }
    return S_OK;
}
