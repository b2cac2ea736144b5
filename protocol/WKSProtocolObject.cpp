// Creation, interfaces, lifetime, page list, binding and persistence of the protocol object.
#include <cstring>
#include <iterator>

#include "module/Module.h"
#include "module/ValueType.h"
#include "parameters/ParameterBinding.h"
#include "protocol/WKSProtocol.h"
#include "text/Conversions.h"

namespace {
// Bits of an item's flags that only the property page reads: a range control, a list of choices.
constexpr uint32_t kPageRangeItem = 0x10;
constexpr uint32_t kPageChoiceItem = 0x40;

SmartPtr<IString> WideName(const wchar_t* text) { return SmartPtr<IString>(ISCreate(text)); }

// The interfaces the object answers, and how it finds which one it is asked for: a table of 256
// slots indexed by a hash of all 16 bytes of the identifier, each slot naming the one answered
// interface that hashes there. A command asks the object it reaches for a dozen interfaces, most of
// which it lacks: those find an empty slot, and an answered one costs one comparison. Made once,
// when the first object is asked (identifiers are computed as the module loads, so they are not
// constants here).
enum class Answer : uint8_t {
    kNone, kObjectInfo, kProtocolManager, kPropInterrogate, kParameters, kPageSpecify, kBindable, kDataPersist,
    kInputs,
};

class CAnswerTable {
public:
    CAnswerTable() {
        for (const Row& row : kRows) {
            uint8_t& slot = m_Slots[Slot(*row.iid)];
            slot = slot == 0 ? static_cast<uint8_t>(&row - kRows + 1) : kShared;
        }
    }
    Answer Find(const IID& iid) const {
        const uint8_t slot = m_Slots[Slot(iid)];
        if (slot == 0) return Answer::kNone;
        if (slot != kShared) return iid == *kRows[slot - 1].iid ? kRows[slot - 1].answer : Answer::kNone;
        for (const Row& row : kRows)  // identifiers that share a slot, compared in turn
            if (iid == *row.iid) return row.answer;
        return Answer::kNone;
    }

private:
    struct Row {
        const IID* iid;
        Answer answer;
    };
    static constexpr Row kRows[] = {
        {&IID_IObjectInfo, Answer::kObjectInfo},
        {&IID_IProtocolManager, Answer::kProtocolManager},
        {&IID_IUIPropInterrogate, Answer::kPropInterrogate},
        {&IID_IParametersCreatable, Answer::kParameters},
        {&IID_IUIPropertyPageSpecify, Answer::kPageSpecify},
        {&IID_IBindableObject, Answer::kBindable},
        {&IID_IDataPersist, Answer::kDataPersist},
        {&IID_IInputParameters, Answer::kInputs},
        {&IID_IParameters, Answer::kParameters},
        {&IID_INamedCollection, Answer::kParameters},
    };
    static constexpr uint8_t kShared = 0xFF;
    static_assert(std::size(kRows) < kShared, "every row has a slot number");

    static unsigned Slot(const IID& iid) {
        uint64_t low, high;
        std::memcpy(&low, iid.bytes, 8);
        std::memcpy(&high, iid.bytes + 8, 8);
        return static_cast<unsigned>(((low ^ high) * 0x9E3779B97F4A7C15ull) >> 56);
    }
    uint8_t m_Slots[256] = {};
};
}  // namespace

CWKSProtocol::~CWKSProtocol() { delete[] m_Response; }

HRESULT CWKSProtocol::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return E_POINTER;
    if (iid == IID_IUnknown) {
        *object = Self();
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    static const CAnswerTable gAnswers;
    switch (gAnswers.Find(iid)) {
        case Answer::kNone: return E_NOINTERFACE;
        case Answer::kObjectInfo: *object = static_cast<IObjectInfo*>(this); break;
        case Answer::kProtocolManager: *object = static_cast<IProtocolManager*>(this); break;
        case Answer::kPropInterrogate: *object = static_cast<IUIPropInterrogateEx*>(this); break;
        case Answer::kParameters: *object = OwnParameters(); break;
        case Answer::kPageSpecify: *object = static_cast<IUIPropertyPageSpecify*>(this); break;
        case Answer::kBindable: *object = static_cast<IBindableObject*>(this); break;
        case Answer::kDataPersist: *object = static_cast<IDataPersist*>(this); break;
        case Answer::kInputs:  // forwarded, no reference here
            return m_InputParameters ? m_InputParameters->QueryInterface(IID_IInputParameters, object) : E_NOINTERFACE;
    }
    // IUIPropInterrogateEx and IReplicableObject are implemented but deliberately not answered.
    if (*object == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

// Creation without a host "InputParameters" component fails cleanly: without its input the
// object could never reach a running object table.
HRESULT CWKSProtocol::FinalConstruct() {
    if (!m_InputParameters) return E_FAIL;
    m_InputParameters->AddInput(WideName(L"RunningObjectTable").get(), IID_IRunningObjectTableEx, 0);

    m_UseSections = 1;
    m_UsePrompt = 1;
    m_ReturnStyle = 1;
    m_ErrorResponse = '?';
    AddItem(1, kPageRangeItem | VALUE_INT32, &m_UsePrompt, 0, 1);
    AddEnumeratedReturnStyle();

    m_ResponseLength = 0;
    m_ResponseCapacity = kInitialResponse;
    m_Response = new (std::nothrow) unsigned char[kInitialResponse];
    if (m_Response == nullptr) return E_FAIL;

    SmartPtr<IVariant> hundred(CREFString::CreateVariant());
    if (hundred) hundred->put_Integer(100);
    SmartPtr<IString> var1 = WideName(L"Var1"), var2 = WideName(L"Var2"), hello = WideName(L"Hello");
    Add(var1.get(), hundred.get(), nullptr, VALUE_INT32);
    Add(var2.get(), hello.get(), nullptr, VALUE_STRING);
    return S_OK;
}

void WKSAddChoices(ISuperCollection* collection, CREFString text) {
    for (int32_t k = 0; text.length > 0; ++k) {
        tagREFString piece{0, nullptr};
        text.GetLine(&piece, true, L'|', true);
        SmartPtr<IString> name(ISCreate(piece));
        SmartPtr<IVariant> value(IVCreate(k));
        collection->Add(name.get(), value.get(), 0, 0);
    }
}

// Item 2 lists the choices of "ReturnStyle" from the host's string table, entry "102" of this
// component; without that entry the item is left out.
void CWKSProtocol::AddEnumeratedReturnStyle() {
    // The component-string object is released as soon as it has named the component; what the
    // string table gives is held until the item is added.
    SmartPtr<IString> component;
    {
        SmartPtr<IComponentString> described(static_cast<IComponentString*>(
            CreateObject(tagREFString{15, L"ComponentString"}, &IID_IComponentString)));
        if (described) {
            described->SetObject(static_cast<IUIPropInterrogateEx*>(this));
            described->get_Field(1, component.Out());
        }
    }
    SmartPtr<IStringTable> table(static_cast<IStringTable*>(CreateObject(tagREFString{11, L"StringTable"}, &IID_IStringTable)));
    // Without its name the component has no list to ask for: item 2 is then left out.
    SmartPtr<INamedCollection> strings;
    if (table && component) table->get_ComponentStrings(component.get(), strings.Out());
    SmartPtr<IString> key, choices;
    SmartPtr<IUnknown> item;
    if (strings) {
        key.Attach(ISCreate(102));
        int32_t index = 0;
        if (strings->get_Index(key.get(), &index) >= 0) {
            strings->get_Item(index, item.Out());
            choices = QueryAs<IString>(item.get(), IID_IString);
        }
    }
    if (!choices) return;
    SmartPtr<ISuperCollection> enumeration(CREFString::CreateCollection());
    if (!enumeration) {
        AddItem(2, kPageChoiceItem | VALUE_INT32, &m_ReturnStyle, 0, 0);
        return;
    }
    wchar_t* text = nullptr;
    int32_t length = 0;
    choices->GetText(&text, &length);
    WKSAddChoices(enumeration.get(), CREFString(text, length));
    AddItem(2, kPageChoiceItem | VALUE_INT32, &m_ReturnStyle, 0, 0, enumeration.get());
}

// When no collection can be made the page list fails and hands out null.
HRESULT CWKSProtocol::GetPages(int32_t, INamedCollection** pages, IUnknown**) {
    if (pages == nullptr) return E_POINTER;
    *pages = nullptr;
    SmartPtr<ISuperCollection> list(CREFString::CreateCollection());
    if (!list) return E_FAIL;
    for (const wchar_t* page : {L"UIPropPages.UIPropInterrogatePropPage", L"UIPropPages.UIParametersPropPage"}) {
        SmartPtr<IString> text = WideName(page);
        list->Add(nullptr, text.get(), 0, 0);
    }
    *pages = list.Detach();  // a super collection is a named collection by derivation
    return S_OK;
}

HRESULT CWKSProtocol::Bind(INamedCollection* collection, IUnknown*) {
    SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(Self(), IID_IInputParameters);
    int32_t count = 0;
    if (inputs) inputs->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        inputs->get_Item(i, item.Out());
        SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(item.get(), IID_IInputParameter);
        if (!input) continue;
        IID iid = IID_NULL;
        int32_t flags = 0;
        input->get_InterfaceID(&iid);
        input->get_BindFlags(&flags);
        if (iid == IID_IRunningObjectTableEx) {
            inputs->put_InputObject(i, collection);
            continue;
        }
        if (iid == IID_IUnknown) continue;
        SmartPtr<IUnknown> moniker;
        if (input->get_Moniker(moniker.Out()) >= 0) continue;
        if (flags & 1) continue;
        // A collection that is no super collection offers no search: the input stays unbound.
        SmartPtr<ISuperCollection> super = QueryAs<ISuperCollection>(collection, IID_ISuperCollection);
        if (!super || super->CollectionLock() < 0) continue;
        int32_t index = 0;
        SmartPtr<IUnknown> found;
        if (super->FindByInterface(&iid, 0, 0, &index) >= 0 && super->get_Item(index, found.Out()) >= 0)
            input->put_Moniker(found.get());
        super->CollectionUnlock();
    }
    ParameterBindParameterDescriptors(OwnParameters(), collection);
    return S_OK;
}

// Reports 0x80004001 even after a complete save, as callers of this component expect.
HRESULT CWKSProtocol::Save(IDataStream* stream, int32_t mode) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOTIMPL;
    folder->WriteTyped(WideName(L"UsePrompt").get(), &m_UsePrompt, VALUE_INT32);
    folder->WriteTyped(WideName(L"ReturnStyle").get(), &m_ReturnStyle, VALUE_INT32);
    SmartPtr<IFolderStream> child;
    folder->OpenChild(WideName(L"Parameters").get(), 0, child.Out());
    Params_SaveFolderStream(child.get(), mode);
    folder->WriteObject(WideName(L"Inputs").get(), m_InputParameters.get(), 0);
    return E_NOTIMPL;
}

HRESULT CWKSProtocol::Load(IDataStream* stream, int32_t) {
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_NOTIMPL;
    folder->ReadTyped(WideName(L"UsePrompt").get(), &m_UsePrompt, VALUE_INT32);
    folder->ReadTyped(WideName(L"ReturnStyle").get(), &m_ReturnStyle, VALUE_INT32);
    // A folder without a named view has no "Parameters" entry to find: that step is skipped.
    // What the lookup took is held until the inputs are read too, and released on return.
    SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(folder.get(), IID_INamedCollection);
    SmartPtr<IUnknown> entry;
    SmartPtr<IDataStream> child;
    int32_t index = 0;
    if (entries && entries->get_Index(WideName(L"Parameters").get(), &index) >= 0) {
        entries->get_Item(index, entry.Out());
        if ((child = QueryAs<IDataStream>(entry.get(), IID_IDataStream))) Params_LoadFolderStream(child.get(), PERSIST_REBUILD);
    }
    // The stream reads into the inputs field itself: it is handed the inputs as they stand, so
    // that a stream that loads an object in place loads this one; a stream that makes a new object
    // releases the one it was handed and puts its own there, an inputs collection, which is kept
    // as it is put (the field holds what was saved from it, and is asked nothing).
    IUnknown* place = static_cast<IUnknown*>(m_InputParameters.Detach());
    folder->ReadObject(WideName(L"Inputs").get(), &place, 0);
    m_InputParameters.Attach(static_cast<IInputParameters*>(place));
    return S_OK;
}
