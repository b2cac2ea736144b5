// The message exchange and the command language of the protocol object.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <utility>

#include "module/Module.h"
#include "protocol/LocaleCache.h"
#include "protocol/WKSProtocol.h"
#include "text/Conversions.h"

namespace {

constexpr wchar_t kUndecodable = 0xFFFD;
constexpr wchar_t kPathSeparators[] = L":.=\f\n\r+-";
constexpr int32_t kLineBudget = 11;
constexpr int32_t kCsvOpenMode = 0x30000;
constexpr useconds_t kBusyPoll = 10000;
constexpr int32_t kReplyWork = 260;

bool IsTrailingBlank(wchar_t c) { return c == 127 || static_cast<uint32_t>(c) <= 32; }

// Drops leading white space and control characters, as the locale classifies them.
void TrimFront(tagREFString& view, const CLocaleCache& locale) {
    while (view.length > 0 && locale.IsSpaceOrControl(view.text[0])) ++view.text, --view.length;
}

void TrimBack(tagREFString& view) {
    while (view.length > 0 && IsTrailingBlank(view.text[view.length - 1])) --view.length;
}

void Drop(tagREFString& view, int32_t n) {
    view.text += n;
    view.length -= n;
}

// A name of a path ends at any of the nine characters of kPathSeparators, its terminating zero
// included: a zero character (a zero byte of the message) ends a name as well. All nine lie below
// 64, so one mask holds them.
constexpr uint64_t SeparatorMask() {
    uint64_t mask = 0;
    for (size_t i = 0; i < sizeof kPathSeparators / sizeof kPathSeparators[0]; ++i) mask |= uint64_t{1} << kPathSeparators[i];
    return mask;
}
constexpr uint64_t kSeparatorMask = SeparatorMask();

bool IsSeparator(wchar_t c) { return static_cast<uint32_t>(c) < 64 && ((kSeparatorMask >> c) & 1) != 0; }

// Whole-name comparison, exact, or without regard to case as the locale lowers characters.
bool SameName(const tagREFString& name, const wchar_t* literal, const CLocaleCache* lowering = nullptr) {
    const int32_t n = static_cast<int32_t>(std::wcslen(literal));
    if (name.length != n) return false;
    for (int32_t i = 0; i < n; ++i) {
        const wchar_t a = name.text[i], b = literal[i];
        if (lowering ? lowering->Lower(a) != lowering->Lower(b) : a != b) return false;
    }
    return true;
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

// An item's facets are asked in order of precedence, and only as far as needed.
SmartPtr<IVariant> ValueOfItem(IUnknown* item) {
    if (SmartPtr<IResultParameter> result = QueryAs<IResultParameter>(item, IID_IResultParameter))
        return ValueOf(result.get(), nullptr, nullptr, nullptr, nullptr);
    if (SmartPtr<IStep> step = QueryAs<IStep>(item, IID_IStep)) return ValueOf(nullptr, step.get(), nullptr, nullptr, nullptr);
    if (SmartPtr<IDigitalIO> io = QueryAs<IDigitalIO>(item, IID_IDigitalIO))
        return ValueOf(nullptr, nullptr, io.get(), nullptr, nullptr);
    if (SmartPtr<IString> text = QueryAs<IString>(item, IID_IString))
        return ValueOf(nullptr, nullptr, nullptr, text.get(), nullptr);
    SmartPtr<IVariant> own = QueryAs<IVariant>(item, IID_IVariant);
    return own;
}

// The text of an assignment as a variant: by the parameter's type where it names one, otherwise
// a number when the text is one (an integer only up to 9 characters), else text.
SmartPtr<IVariant> ConvertAssigned(const CREFString& value, int32_t type) {
    if (type == 4 || type == 5) return SmartPtr<IVariant>(IVCreate(_IS2Double(value)));
    if (type != 6) {
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
    SmartPtr<IUnknown> buttons;
    SmartPtr<IButton> button;
};

// --- The exchange -------------------------------------------------------------------------------

HRESULT CWKSProtocol::RecievedMessage(unsigned char* message, int32_t length) {
    m_Locale.Refresh();  // the locale of the moment, for decoding, trimming and the break test
    SmartPtr<IString> text(CREFString::CreateString());
    if (text && length > 0 && message != nullptr) {
        CLocaleCache& codec = m_Locale;
        std::mbtowc(nullptr, nullptr, 0);
        const char* bytes = reinterpret_cast<const char*>(message);
        for (int32_t p = 0; p < length;) {
            wchar_t c = 0;
            const int used = codec.Decode(&c, bytes + p, static_cast<size_t>(length - p));
            // An undecodable byte is taken as U+FFFD and decoding goes on at the next byte.
            if (used < 0) c = kUndecodable;
            p += used > 0 ? used : 1;
            text->AppendText(1, &c);
        }
    }
    IString* old = m_Message;
    m_Message = text.Detach();
    if (old) old->Release();
    m_Text = CREFString();
    if (m_Message != nullptr) {
        wchar_t* chars = nullptr;
        int32_t count = 0;
        if (m_Message->GetText(&chars, &count) >= 0) m_Text = CREFString(chars, count);
    }
    TrimFront(m_Text, m_Locale);
    TrimBack(m_Text);
    m_ResponseLength = 0;
    m_State = 0;
    m_LineCount = 0;

    static const wchar_t kBreak[] = L"Break";
    const int32_t n = m_Text.length < 5 ? m_Text.length : 5;
    if (n > 0) {
        bool isBreak = true;
        for (int32_t i = 0; i < n && isBreak; ++i) isBreak = m_Locale.Lower(m_Text.text[i]) == m_Locale.Lower(kBreak[i]);
        if (isBreak) return E_BREAK;
    }
    m_State = 2;
    return S_OK;
}

HRESULT CWKSProtocol::GetResponse(unsigned char** response, int32_t* length) {
    if (response == nullptr || length == nullptr) return E_POINTER;  // a host's error: nothing is consumed
    if (m_State != 2 || m_Text.length == 0 || m_LineCount > kLineBudget - 1) {
        m_State = 0;
        return S_FALSE;
    }
    ++m_LineCount;

    SmartPtr<IUnknown> bound;
    if (m_InputParameters) m_InputParameters->get_InputObject(0, bound.Out());
    SmartPtr<IRunningObjectTableEx> table = QueryAs<IRunningObjectTableEx>(bound.get(), IID_IRunningObjectTableEx);
    m_ResponseLength = 0;

    int32_t n = 0;
    while (n < m_Text.length && m_Text.text[n] != L'\r' && m_Text.text[n] != L'\n') ++n;
    const CREFString line(m_Text.text, n);
    Drop(m_Text, n);

    const HRESULT hr = ParseCommand(line, table.get());
    if (hr < 0) {
        *response = &m_ErrorResponse;
        *length = 1;
    } else if (m_ResponseLength != 0) {
        *response = m_Response;
        *length = m_ResponseLength;
    }
    TrimFront(m_Text, m_Locale);  // the line end, blank lines and the next line's leading blanks
    if (m_Text.length != 0) return S_OK;
    m_State = 0;
    return S_FALSE;
}

HRESULT CWKSProtocol::GetInitialResponse(unsigned char**, int32_t*) { return S_FALSE; }
HRESULT CWKSProtocol::GetMessageSizes(int32_t*, int32_t*) { return E_NOTIMPL; }
HRESULT CWKSProtocol::GetState(int32_t) { return E_NOTIMPL; }
HRESULT CWKSProtocol::CanHandleRequest(tagREFString) { return E_NOTIMPL; }

// --- The command language -----------------------------------------------------------------------

HRESULT CWKSProtocol::ParseCommand(CREFString line, IRunningObjectTableEx* table) {
    m_Locale.Refresh();  // the locale of the moment, for trimming, names and the reply's bytes
    TrimFront(line, m_Locale);
    TrimBack(line);
    if (line.length == 0) return S_OK;
    // Where the next name is looked up: a collection held for the call, or the protocol object's
    // own, which lives as long as the caller's reference and needs no reference of its own.
    SmartPtr<INamedCollection> held = QueryAs<INamedCollection>(table, IID_INamedCollection);
    INamedCollection* current = held.get();

    bool query = false;
    if (line.text[0] == L'?') {
        Drop(line, 1);
        TrimFront(line, m_Locale);
        query = true;
    }
    if (line.length > 0 && line.text[line.length - 1] == L'?') {
        --line.length;
        TrimBack(line);
        query = true;
    }

    SmartPtr<IUnknown> target, parent, first;
    SmartPtr<IString> ownName;
    if (line.length == 0) {
        if (!query) return S_OK;
        target.Assign(Self());  // "?" alone: the object's own parameters
    } else {
        SmartPtr<ITabCollection> tabs;
        SmartPtr<IUIFolderSelectable> selector;
        bool firstName = true;
        for (;;) {
            CREFString name(line.text, 0);
            while (name.length < line.length && !IsSeparator(line.text[name.length])) ++name.length;
            Drop(line, name.length);
            if (name.length > 0 && name.text[0] == L'"') {
                Drop(name, 1);
                TrimBack(name);
                if (name.length > 0 && name.text[name.length - 1] == L'"') --name.length;
            }
            TrimBack(name);

            // The same text serves the own-parameter lookup and the lookup in the collection.
            SmartPtr<IString> key = NewString(name);
            if (firstName) {
                firstName = false;
                int32_t index = -1;
                if (key && get_Index(key.get(), &index) >= 0) {
                    held.Reset();
                    current = static_cast<INamedCollection*>(OwnParameters());
                    ownName = std::move(key);
                    get_Item(index, target.Out());
                    TrimFront(line, m_Locale);
                    if (line.length == 0 || (line.text[0] != L':' && line.text[0] != L'.')) break;
                    key = NewString(name);  // the own-parameter name stays as it is
                }
            }

            SmartPtr<IUnknown> found;
            int32_t index = -1;
            if (tabs) {
                if (!key || tabs->get_Index(key.get(), &index) < 0) return E_FAIL;
                int32_t active = -1;
                tabs->get_ActiveIndex(&active);
                if (active != index) tabs->put_ActiveIndex(index, 1);
                if (selector) selector->get_SelectedObject(found.Out());
                else tabs->get_Item(index, found.Out());
            } else if (current) {
                if (!key || current->get_Index(key.get(), &index) < 0) return E_FAIL;
                current->get_Item(index, found.Out());
            } else {
                return E_FAIL;
            }
            parent = std::move(target);
            target = std::move(found);
            if (!first) first = target;

            SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(target.get(), IID_IObjectInfo);
            const tagREFString objectName = ObjectName(info.get());
            selector = QueryAs<IUIFolderSelectable>(target.get(), IID_IUIFolderSelectable);
            tabs = QueryAs<ITabCollection>(target.get(), IID_ITabCollection);
            held = QueryAs<INamedCollection>(target.get(), IID_INamedCollection);
            if (!held) {
                SmartPtr<IUnknown> buttons = QueryAs<IUnknown>(target.get(), IID_IButtonCollection);
                held = QueryAs<INamedCollection>(buttons.get(), IID_INamedCollection);
            }
            current = held.get();

            const bool goesOn = line.length >= 2 && ((line.text[0] == L':' && line.text[1] == L':') || line.text[0] == L'.');
            if (goesOn)
                while (line.length > 0 && (line.text[0] == L':' || line.text[0] == L'.')) Drop(line, 1);
            if (!goesOn || SameName(objectName, L"KQBible")) break;
        }
    }

    CommandFacets facets(target.get());
    const tagREFString targetName = ObjectName(facets.info.get());
    if (facets.files)
        while (facets.files->IsBusy()) usleep(kBusyPoll);

    if (!query) {
        TrimFront(line, m_Locale);
        for (int32_t i = 0; i < line.length; ++i)
            if (line.text[i] == L'=')
                return Assign(CREFString(line.text + i + 1, line.length - i - 1), facets, target.get(), first.get(),
                              parent.get(), current, ownName.get());
        if (line.length > 0 && (line.text[0] == L'+' || line.text[0] == L'-')) {
            SmartPtr<IUIManager> manager = QueryAs<IUIManager>(first.get(), IID_IUIManager);
            if (!manager) return E_FAIL;
            return line.text[0] == L'+' ? (manager->Increment(), S_OK) : (manager->Decrement(), S_OK);
        }
        SmartPtr<IUIManagerCollection> managers = QueryAs<IUIManagerCollection>(first.get(), IID_IUIManagerCollection);
        if (!managers) {
            if (SmartPtr<ICollectionMoniker> moniker = QueryAs<ICollectionMoniker>(first.get(), IID_ICollectionMoniker))
                moniker->BindToObject(&IID_IUIManagerCollection, managers.OutVoid());
        }
        if (managers) {
            if (line.length == 0) {
                managers->SelectDefault();
            } else {
                SmartPtr<IString> text(ISCreate(static_cast<const tagREFString&>(line)));
                SmartPtr<IUnknown> selected;
                managers->Select(text.get(), 0, selected.Out());
            }
        } else if (SmartPtr<IKQSearch> search = QueryAs<IKQSearch>(target.get(), IID_IKQSearch)) {
            SmartPtr<IString> text(ISCreate(static_cast<const tagREFString&>(line)));
            search->Search(text.get(), 0, 0);
        }
        return S_OK;
    }

    SmartPtr<INamedCollection> named = facets.named;
    if (!named && facets.buttons) named = QueryAs<INamedCollection>(facets.buttons.get(), IID_INamedCollection);
    if (facets.parameters && !SameName(targetName, L"ResultsView", &m_Locale) &&
        (!facets.step || SameName(targetName, L"IOQuen", &m_Locale)))
        return Reply(facets.parameters.get());

    SmartPtr<IParametersCreatable> built(BASEObject::CreateParameters());
    if (!built) return S_OK;
    if (SmartPtr<IVariant> value = ValueOf(facets.result.get(), facets.step.get(), facets.io.get(), facets.text.get(),
                                           facets.variant.get())) {
        built->Add(ownName.get(), value.get(), nullptr, 0);
    } else if (named) {
        int32_t count = 0;
        named->get_Count(&count);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IString> itemName;
            SmartPtr<IUnknown> item;
            named->get_ItemName(i, itemName.Out());
            named->get_Item(i, item.Out());
            SmartPtr<IVariant> itemValue = ValueOfItem(item.get());
            if (!itemValue) {
                SmartPtr<IObjectInfo> itemInfo = QueryAs<IObjectInfo>(item.get(), IID_IObjectInfo);
                if (itemInfo) {
                    SmartPtr<IString> text(ISCreate(ObjectName(itemInfo.get())));
                    itemValue.Attach(IVCreate(text.get()));
                }
            }
            built->Add(itemName.get(), itemValue.get(), nullptr, 0);
        }
    }
    return Reply(built.get());
}

HRESULT CWKSProtocol::Assign(CREFString value, const CommandFacets& facets, IUnknown* target, IUnknown* first,
                             IUnknown* parent, INamedCollection* current, IString* ownName) {
    TrimFront(value, m_Locale);
    if (value.length == 0) return E_FAIL;
    if (value.text[0] == L'"') {
        Drop(value, 1);
        TrimFront(value, m_Locale);
        if (value.length > 0 && value.text[value.length - 1] == L'"') --value.length;
        if (value.length == 0) return E_FAIL;
    }
    const bool zero = value.text[0] == L'0';
    // The own collection is known to be a parameter collection; anything else is asked.
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
        if (SmartPtr<IToolbarHost> host = QueryAs<IToolbarHost>(first, IID_IToolbarHost)) host->put_ButtonState(id, state);
        else facets.button->put_Attribute(15, state);
    } else if (IParameters* parameters = parametersOf()) {
        int32_t index = -1, flags = 0;
        parameters->get_Index(ownName, &index);
        parameters->get_ItemFlags(index, &flags);
        SmartPtr<IVariant> converted = ConvertAssigned(value, flags & 0xF);
        parameters->put_Item(index, converted.get());  // a refused value is not the command's failure
    } else if (SmartPtr<IUIManager> manager = QueryAs<IUIManager>(parent, IID_IUIManager)) {
        SmartPtr<IUnknown> active;
        manager->get_ActiveObject(active.Out());
        active.Reset();
        if (SmartPtr<_IUIContainerEvents> events = QueryAs<_IUIContainerEvents>(manager.get(), IID__IUIContainerEvents))
            events->Notify(manager.get(), 1, -1, -1, target);
    }
    return S_OK;
}

// Serialises `collection` with the host's stream of the chosen style and stores the text, as
// multibyte bytes, in the response buffer, which grows when the reply does not fit.
HRESULT CWKSProtocol::Reply(IUnknown* collection) {
    void* data = nullptr;
    int32_t bytes = 0;
    if (m_ReturnStyle == 0) {
        SmartPtr<ICSVStream> csv(static_cast<ICSVStream*>(CreateObject(tagREFString{9, L"CSVStream"}, &IID_ICSVStream)));
        if (!csv) return S_OK;
        csv->Open(0, kCsvOpenMode);
        csv->WriteObject(collection, 0);
        csv->Seek(0, 0, 0);
        csv->GetBuffer(&data, &bytes);
        return StoreReply(static_cast<const wchar_t*>(data), bytes / static_cast<int32_t>(sizeof(wchar_t)));
    }
    SmartPtr<IINIStream> ini(static_cast<IINIStream*>(CreateObject(tagREFString{9, L"INIStream"}, &IID_IINIStream)));
    if (!ini) return S_OK;
    ini->Open(0);
    ini->WriteObject(collection);
    ini->Seek(0, 0, 0);
    ini->GetBuffer(&data, &bytes);
    return StoreReply(static_cast<const wchar_t*>(data), bytes / static_cast<int32_t>(sizeof(wchar_t)));
}

HRESULT CWKSProtocol::StoreReply(const wchar_t* text, int32_t count) {
    if (text == nullptr || count <= 0) return S_OK;
    // The work buffer: max(count + 4, 260) bytes, growing by 256 whenever fewer than 4 bytes are
    // free after a character. Small replies stay on the stack.
    unsigned char local[kReplyWork];
    int32_t size = count + 4 > kReplyWork ? count + 4 : kReplyWork;
    unsigned char* work = size == kReplyWork ? local : static_cast<unsigned char*>(std::malloc(size));
    if (work == nullptr) return S_OK;
    auto grow = [&](int32_t by) {
        unsigned char* bigger = static_cast<unsigned char*>(std::malloc(size + by));
        if (bigger == nullptr) return false;
        std::memcpy(bigger, work, size);
        if (work != local) std::free(work);
        work = bigger;
        size += by;
        return true;
    };
    CLocaleCache& codec = m_Locale;  // refreshed by ParseCommand
    std::wctomb(nullptr, 0);
    int32_t used = 0;
    bool ok = true;
    for (int32_t i = 0; i < count && ok; ++i) {
        char bytes[MB_LEN_MAX];
        const int n = codec.Encode(bytes, text[i]);
        if (n <= 0) continue;  // a character the locale cannot write is left out
        while (ok && size - used < n) ok = grow(256);
        if (!ok) break;
        std::memcpy(work + used, bytes, static_cast<size_t>(n));
        used += n;
        if (size - used < 4) ok = grow(256);
    }
    if (ok) work[used] = 0;  // terminated, not counted

    if (ok && m_ResponseCapacity < used) {
        unsigned char* larger = new (std::nothrow) unsigned char[used + 1];
        if (larger == nullptr) ok = false;
        else {
            delete[] m_Response;
            m_Response = larger;
            m_ResponseCapacity = used + 1;
        }
    }
    if (ok) {
        std::memcpy(m_Response, work, static_cast<size_t>(used));
        m_ResponseLength = used;
    }
    if (work != local) std::free(work);
    return S_OK;
}
