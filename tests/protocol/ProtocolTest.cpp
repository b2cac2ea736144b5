// The protocol object driven as a host drives it: created through its creator and fed messages
// through IProtocolManager's slots. Paths through a workspace are the end-to-end suite's; here
// only the calls a path makes, on fakes that log them.
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "protocol/LocaleCache.h"
#include "protocol/WKSProtocol.h"
#include "support/Fakes.h"
#include "text/Conversions.h"

namespace {

// A collection as "name=value " entries: a text as it is, a variant's integer in decimal.
std::wstring Listed(INamedCollection* list) {
    std::wstring listed;
    int32_t count = 0;
    list->get_Count(&count);
    for (int32_t k = 0; k < count; ++k) {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> item;
        list->get_ItemName(k, name.Out());
        list->get_Item(k, item.Out());
        SmartPtr<IVariant> number = QueryAs<IVariant>(item.get(), IID_IVariant);
        listed += TextOf(name.get()) + L"=" +
                  (number ? std::to_wstring(number->get_Integer()) : TextOf(QueryAs<IString>(item.get(), IID_IString).get())) + L" ";
    }
    return listed;
}

using Received = HRESULT (*)(void*, unsigned char*, int32_t);
using Response = HRESULT (*)(void*, unsigned char**, int32_t*);

class Protocol : public ::testing::Test {
protected:
    void SetUp() override {
        // Warm the process-wide factory components so that counting starts from a steady state.
        SmartPtr<IProtocolManager> warm;
        IID iid = IID_IProtocolManager;
        CObject<CWKSProtocol>::_CreateInstance(nullptr, &iid, warm.OutVoid());
        SendOn(warm.get(), "?\r\nVar1?");
        warm.Reset();
        m_Live = LiveHostObjects();
        m_Fakes = FakeLive();

        ASSERT_EQ(CObject<CWKSProtocol>::_CreateInstance(nullptr, &iid, m_Manager.OutVoid()), S_OK);
    }
    void TearDown() override {
        m_Manager.Reset();
        EXPECT_EQ(FakeLive(), m_Fakes) << "every fake was released";
        EXPECT_EQ(LiveHostObjects(), m_Live) << "every host object was released";
    }

    // Hands `text` over as one message; returns the replies, "?" for a failed line.
    static std::vector<std::string> SendOn(IProtocolManager* manager, const std::string& text) {
        std::vector<unsigned char> bytes(text.begin(), text.end());
        Slot<Received>(manager, 4)(manager, bytes.data(), static_cast<int32_t>(bytes.size()));
        std::vector<std::string> replies;
        for (HRESULT more = S_OK, guard = 0; more == S_OK && guard < 20; ++guard) {
            unsigned char* reply = nullptr;
            int32_t length = -1;
            more = Slot<Response>(manager, 5)(manager, &reply, &length);
            if (reply) replies.emplace_back(reinterpret_cast<char*>(reply), length);
        }
        return replies;
    }
    std::vector<std::string> Send(const std::string& text) { return SendOn(m_Manager.get(), text); }
    std::string One(const std::string& line) {
        auto replies = Send(line);
        return replies.empty() ? std::string("<none>") : replies.front();
    }

    SmartPtr<IProtocolManager> m_Manager;
    int32_t m_Live = 0;
    int m_Fakes = 0;
};

// The parameter interfaces are one object, the inputs are forwarded to their own collection, the
// property table's extended interface and replication are not offered.
TEST_F(Protocol, InterfacesAndSlots) {
    SmartPtr<IUnknown> self = QueryAs<IUnknown>(m_Manager.get(), IID_IUnknown);
    EXPECT_EQ(self->AddRef(), 3) << "one for the test, one from QueryInterface";
    self->Release();
    SmartPtr<IUnknown> parameters = QueryAs<IUnknown>(m_Manager.get(), IID_IParametersCreatable);
    for (const IID* iid : {&IID_IParameters, &IID_INamedCollection})
        EXPECT_EQ(QueryAs<IUnknown>(m_Manager.get(), *iid).get(), parameters.get());
    // Each interface of its own answers with a pointer of its own (no two mixed up).
    std::set<IUnknown*> own;
    for (const IID* iid : {&IID_IObjectInfo, &IID_IProtocolManager, &IID_IUIPropInterrogate, &IID_IParametersCreatable,
                           &IID_IUIPropertyPageSpecify, &IID_IBindableObject, &IID_IDataPersist})
        own.insert(QueryAs<IUnknown>(m_Manager.get(), *iid).get());
    EXPECT_EQ(own.size(), 7u);
    EXPECT_EQ(own.count(nullptr), 0u);
    EXPECT_EQ(own.count(m_Manager.get()), 1u);
    EXPECT_FALSE(QueryAs<IUnknown>(m_Manager.get(), IID_IUIPropInterrogateEx));
    EXPECT_FALSE(QueryAs<IUnknown>(m_Manager.get(), IID_IReplicableObject));
    SmartPtr<IUnknown> inputs = QueryAs<IUnknown>(m_Manager.get(), IID_IInputParameters);
    ASSERT_TRUE(inputs);
    EXPECT_NE(inputs.get(), self.get()) << "forwarded to the inputs collection";
    IID replicable = IID_IReplicableObject;
    void* none = reinterpret_cast<void*>(0xCAFE);
    EXPECT_EQ(CObject<CWKSProtocol>::_CreateInstance(nullptr, &replicable, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);

    tagREFString name{};
    EXPECT_EQ(QueryAs<IObjectInfo>(m_Manager.get(), IID_IObjectInfo)->GetName(12345, &name), S_OK);
    EXPECT_EQ(std::wstring(name.text, name.length), L"WKSProtocol");
    SmartPtr<INamedCollection> pages;
    ASSERT_EQ(Slot<HRESULT (*)(void*, int32_t, INamedCollection**, IUnknown**)>(self.get(), 7)(self.get(), 0, pages.Out(), nullptr), S_OK);
    EXPECT_EQ(Listed(pages.get()), L"<null>=UIPropPages.UIPropInterrogatePropPage <null>=UIPropPages.UIParametersPropPage ");

    using Parse = HRESULT (*)(void*, CREFString, IRunningObjectTableEx*);
    EXPECT_EQ(Slot<Parse>(self.get(), 15)(self.get(), CREFString(L"Var1=7"), nullptr), S_OK);
    EXPECT_EQ(One("Var1?"), "Var1=7");
    EXPECT_EQ(Slot<Parse>(self.get(), 15)(self.get(), CREFString(L"Nope=7"), nullptr), E_FAIL);
}

// Item 1 is the prompt switch, on; item 2 the reply style, INI lines, with its choices from the
// host's string table, cut at bars and numbered from 0.
TEST_F(Protocol, SettingsAndTheirChoices) {
    SmartPtr<IUIPropInterrogate> settings = QueryAs<IUIPropInterrogate>(m_Manager.get(), IID_IUIPropInterrogate);
    int32_t prompt = 0, style = 0, low = -1, high = -1;
    EXPECT_EQ(settings->Inquire(1, &prompt), 0x13);
    EXPECT_EQ(settings->Inquire(2, &style), 0x43);
    EXPECT_EQ(settings->ParameterRange(1, &low, &high), S_OK);
    EXPECT_EQ((std::vector<int32_t>{prompt, style, low, high}), (std::vector<int32_t>{1, 1, 0, 1}));
    SmartPtr<IUnknown> choices;
    ASSERT_EQ(settings->ParameterEnumeration(2, choices.Out()), S_OK);
    EXPECT_EQ(Listed(QueryAs<INamedCollection>(choices.get(), IID_INamedCollection).get()), L"Comma separated=0 INI lines=1 ");
    for (const auto& [text, listed] : {std::pair{L"A||B", L"A=0 =1 B=2 "}, {L"A|", L"A=0 "}, {L"", L""}}) {
        SmartPtr<ISuperCollection> list(CREFString::CreateCollection());
        WKSAddChoices(list.get(), CREFString(text));
        EXPECT_EQ(Listed(list.get()), listed) << text;
    }
}

// A string table that answers every name, none included, with entry "102" = "A|B".
class AnyNameStrings final : public Fake<IStringTable> {
public:
    bool Answers(const IID& iid) override { return iid == IID_IStringTable; }
    HRESULT get_ComponentStrings(IString* name, INamedCollection** strings) override {
        asked.push_back(TextOf(name));
        SmartPtr<ISuperCollection> list(CREFString::CreateCollection());
        SmartPtr<IString> key(ISCreate(L"102")), text(ISCreate(L"A|B"));
        list->Add(key.get(), text.get(), 0, 0);
        *strings = list.Detach();
        return S_OK;
    }
    std::vector<std::wstring> asked;
};

// The host's components, but that string table, and no "ComponentString" when `describe` is off.
class ChoiceComponents final : public Fake<IComponentCollection> {
public:
    explicit ChoiceComponents(IComponentCollection* host) : m_Host(host) {}
    bool Answers(const IID& iid) override { return iid == IID_IComponentCollection; }
    HRESULT get_Count(int32_t* count) override { return m_Host->get_Count(count); }
    HRESULT get_Item(int32_t index, IUnknown** item) override { return m_Host->get_Item(index, item); }
    HRESULT get_Index(IString* name, int32_t* index) override { return m_Host->get_Index(name, index); }
    HRESULT get_ItemName(int32_t index, IString** name) override { return m_Host->get_ItemName(index, name); }
    HRESULT CreateComponent(tagREFString name, IID* iid, void** object) override {
        const std::wstring named(name.text, name.length);
        if (named == L"StringTable") return strings->QueryInterface(*iid, object);
        if (named == L"ComponentString" && !describe) return E_FAIL;
        return m_Host->CreateComponent(name, iid, object);
    }
    SmartPtr<AnyNameStrings> strings{new AnyNameStrings()};
    bool describe = true;

private:
    IComponentCollection* m_Host;
};

// Item 2's choices and the captions of saved settings are the list of the component's own name;
// without that name there is no list to ask for: the item is left out, nothing is saved as XML.
TEST_F(Protocol, ChoicesComeOnlyUnderTheComponentsName) {
    SmartPtr<IComponentCollection> host;
    host.Attach(GLOBALComponents());
    SmartPtr<ChoiceComponents> components(new ChoiceComponents(host.get()));
    InitializeModule(nullptr, components.get());
    for (const bool describe : {true, false}) {
        components->describe = describe;
        components->strings->asked.clear();
        SmartPtr<IUIPropInterrogate> settings;
        IID iid = IID_IUIPropInterrogate;
        ASSERT_EQ(CObject<CWKSProtocol>::_CreateInstance(nullptr, &iid, settings.OutVoid()), S_OK);
        SmartPtr<IUnknown> choices;
        settings->ParameterEnumeration(2, choices.Out());
        const std::wstring listed = choices ? Listed(QueryAs<INamedCollection>(choices.get(), IID_INamedCollection).get()) : L"none";
        EXPECT_EQ(listed, describe ? L"A=0 B=1 " : L"none") << describe;
        SmartPtr<FakeXML> xml(FakeXML::Parse(L"<P></P>"));
        auto* persist = static_cast<IUIPropInterrogatePersist*>(settings.get());
        persist->UIPropInterrogate_SaveXML(nullptr, xml.get(), 0);
        persist->UIPropInterrogate_LoadXML(nullptr, xml.get(), 0);
        EXPECT_EQ(components->strings->asked,
                  describe ? std::vector<std::wstring>(3, L"WKSProtocol") : std::vector<std::wstring>{});
        EXPECT_EQ(xml->asked, describe ? 3 : 0) << "without captions the stream is not even asked";
    }
    InitializeModule(nullptr, host.get());
}

TEST_F(Protocol, AssignmentsConvertByTheParameterType) {
    // The stored value's kind: 1 an integer, 2 a real, 0 a text.
    const struct { const char* line; const char* reply; int kind; } rows[] = {
        {"Var1=12.5", "Var1=12.5", 2}, {"Var1=-7", "Var1=-7", 1}, {"Var1=123456789", "Var1=123456789", 1},
        {"Var1=-12345678", "Var1=-12345678", 1}, {"Var1=1234567890", "Var1=1234567890", 0},
        {"Var1=1.2.3", "Var1=1.2.3", 0}, {"Var1 = \"quoted \"", "Var1=quoted ", 0}, {"Var2=42", "Var2=42", 0},
    };
    SmartPtr<IParameters> own = QueryAs<IParameters>(m_Manager.get(), IID_IParameters);
    for (const auto& row : rows) {
        EXPECT_EQ(Send(row.line), std::vector<std::string>{}) << row.line;
        EXPECT_EQ(One(std::string(row.line).substr(0, 4) + "?"), row.reply) << row.line;
        SmartPtr<IVariant> stored;
        ASSERT_EQ(own->get_ItemVariant(row.line[3] == '1' ? 0 : 1, stored.Out()), S_OK);
        EXPECT_EQ(stored->IsString() ? 0 : stored->get_NumberType(), row.kind) << row.line;
    }
    EXPECT_EQ(Send("Var1="), std::vector<std::string>{"?"});
    EXPECT_EQ(Send("Var1=\"\""), std::vector<std::string>{"?"});
    EXPECT_EQ(Send("X=1"), std::vector<std::string>{"?"});
}

// A workspace object that writes into a shared log every interface it is asked for (answered or
// not) and every name asked of it, as "Name:Interface".
class LoggedNode final : public FakeNamed<>, public IObjectInfo, public IStep {
public:
    LoggedNode(std::wstring name, std::vector<std::string>& log, bool step = false)
        : m_Name(std::move(name)), m_Log(log), m_Step(step) {}
    void Add(const wchar_t* name, LoggedNode* child) { m_Children.emplace_back(name, child); }

    HRESULT QueryInterface(const IID& iid, void** object) override {
        static const std::pair<const IID*, const char*> kNames[] = {
            {&IID_IRunningObjectTableEx, "IRunningObjectTableEx"}, {&IID_INamedCollection, "INamedCollection"},
            {&IID_IObjectInfo, "IObjectInfo"}, {&IID_IUIFolderSelectable, "IUIFolderSelectable"},
            {&IID_ITabCollection, "ITabCollection"}, {&IID_IButtonCollection, "IButtonCollection"},
            {&IID_IParameters, "IParameters"}, {&IID_IVariant, "IVariant"}, {&IID_IString, "IString"},
            {&IID_IStep, "IStep"}, {&IID_IDigitalIO, "IDigitalIO"}, {&IID_IResultParameter, "IResultParameter"},
            {&IID_IFileNameCollection, "IFileNameCollection"}, {&IID_IButton, "IButton"}};
        const char* asked = "?";
        for (const auto& [known, name] : kNames)
            if (iid == *known) asked = name;
        if (iid != IID_IUnknown) Log(asked);
        *object = nullptr;
        if (iid == IID_IUnknown || iid == IID_IRunningObjectTableEx || (iid == IID_INamedCollection && !m_Step))
            *object = static_cast<INamedCollection*>(this);
        else if (iid == IID_IObjectInfo)
            *object = static_cast<IObjectInfo*>(this);
        else if (iid == IID_IStep && m_Step)
            *object = static_cast<IStep*>(this);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return FakeNamed::AddRef(); }
    int32_t Release() override { return FakeNamed::Release(); }
    bool Answers(const IID&) override { return false; }

    HRESULT get_Count(int32_t* count) override { return *count = static_cast<int32_t>(m_Children.size()), S_OK; }
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        *item = static_cast<INamedCollection*>(m_Children[static_cast<size_t>(index)].second.get());
        (*item)->AddRef();
        return S_OK;
    }
    HRESULT get_Index(IUnknown* key, int32_t* index) override {
        const std::wstring name = TextOf(QueryAs<IString>(key, IID_IString).get());
        Log("get_Index");
        for (size_t i = 0; i < m_Children.size(); ++i)
            if (m_Children[i].first == name) return *index = static_cast<int32_t>(i), S_OK;
        return E_FAIL;
    }
    HRESULT GetName(int32_t, tagREFString* name) override {
        Log("GetName");
        *name = tagREFString{static_cast<int32_t>(m_Name.size()), m_Name.c_str()};
        return S_OK;
    }
    HRESULT SwitchOn() override { return Log("SwitchOn"), S_OK; }
    HRESULT SwitchOff() override { return Log("SwitchOff"), S_OK; }
    int32_t get_State() override { return 1; }

private:
    void Log(const char* what) { m_Log.push_back(std::string(m_Name.begin(), m_Name.end()) + ":" + what); }
    std::wstring m_Name;
    std::vector<std::string>& m_Log;
    bool m_Step;
    std::vector<std::pair<std::wstring, SmartPtr<LoggedNode>>> m_Children;
};

// Every object a path passes is asked the same interfaces, in order, whatever it answers; the
// target is then asked its facets, its name among them, before anything is done to it.
TEST_F(Protocol, PathsAskEveryObjectTheSameInterfacesInOrder) {
    std::vector<std::string> log;
    SmartPtr<LoggedNode> root(new LoggedNode(L"Root", log));
    LoggedNode* obj = new LoggedNode(L"Obj", log);
    root->Add(L"Obj", obj);
    obj->Add(L"Sub", new LoggedNode(L"Sub", log, true));
    SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(m_Manager.get(), IID_IInputParameters);
    ASSERT_EQ(inputs->put_InputObject(0, static_cast<INamedCollection*>(root.get())), S_OK);

    const auto reached = [](const std::string& name) {
        return std::vector<std::string>{name + ":IObjectInfo", name + ":GetName", name + ":IUIFolderSelectable",
                                        name + ":ITabCollection", name + ":INamedCollection", name + ":IButtonCollection"};
    };
    std::vector<std::string> path = {"Root:IRunningObjectTableEx", "Root:INamedCollection", "Root:get_Index"};
    for (const std::string& step : reached("Obj")) path.push_back(step);
    path.push_back("Obj:get_Index");
    for (const std::string& step : reached("Sub")) path.push_back(step);
    for (const char* facet : {"IParameters", "INamedCollection", "IVariant", "IString", "IStep", "IDigitalIO",
                              "IResultParameter", "IFileNameCollection", "IObjectInfo", "GetName", "IButtonCollection", "IButton"})
        path.push_back(std::string("Sub:") + facet);

    EXPECT_EQ(Send("Obj.Sub?"), std::vector<std::string>{"1"});
    EXPECT_EQ(log, path);
    log.clear();
    EXPECT_EQ(Send("Obj.Sub=0"), std::vector<std::string>{});
    path.push_back("Sub:SwitchOff");
    EXPECT_EQ(log, path);
    inputs->put_InputObject(0, nullptr);
}

// Out-parameters start at 0: where the host writes no index, the command goes on with index 0.
TEST_F(Protocol, AnIndexTheHostLeavesUnwrittenIsZero) {
    // The table of names, and the tab collection "Tabs" whose host cannot say which tab is active.
    class Names final : public FakeNamed<ITabCollection> {
    public:
        explicit Names(bool tabs) : m_Tabs(tabs) {}
        void Add(const wchar_t* name, IUnknown* item) { m_Items.emplace_back(name, SmartPtr<IUnknown>()).second.Assign(item); }
        bool Answers(const IID& iid) override {
            return iid == IID_INamedCollection || (m_Tabs ? iid == IID_ITabCollection : iid == IID_IRunningObjectTableEx);
        }
        HRESULT get_Item(int32_t index, IUnknown** item) override {
            *item = m_Items.at(static_cast<size_t>(index)).second.get();
            (*item)->AddRef();
            return S_OK;
        }
        HRESULT get_Index(IUnknown* key, int32_t* index) override {
            const std::wstring name = TextOf(QueryAs<IString>(key, IID_IString).get());
            for (size_t i = 0; i < m_Items.size(); ++i)
                if (m_Items[i].first == name) return *index = static_cast<int32_t>(i), S_OK;
            return E_FAIL;
        }
        HRESULT get_ActiveIndex(int32_t*) override { return E_NOTIMPL; }
        HRESULT put_ActiveIndex(int32_t, int32_t) override { return ++activated, S_OK; }
        int activated = 0;

    private:
        bool m_Tabs;
        std::vector<std::pair<std::wstring, SmartPtr<IUnknown>>> m_Items;
    };
    SmartPtr<IUnknown> other;
    IID iid = IID_IUnknown;
    ASSERT_EQ(CObject<CWKSProtocol>::_CreateInstance(nullptr, &iid, other.OutVoid()), S_OK);
    SmartPtr<Names> root(new Names(false)), tabs(new Names(true));
    root->Add(L"Other", other.get());
    root->Add(L"Tabs", static_cast<ITabCollection*>(tabs.get()));
    tabs->Add(L"Page", other.get());
    using Parse = HRESULT (*)(void*, CREFString, IRunningObjectTableEx*);
    SmartPtr<IUnknown> self = QueryAs<IUnknown>(m_Manager.get(), IID_IUnknown);
    const auto parse = [&](const wchar_t* line) {
        return Slot<Parse>(self.get(), 15)(self.get(), CREFString(line), reinterpret_cast<IRunningObjectTableEx*>(root.get()));
    };

    // "Other" is no own parameter: its collection is asked for a null name, finds none, writes no
    // index, and the value goes to item 0.
    EXPECT_EQ(parse(L"Other=5"), S_OK);
    EXPECT_EQ(Listed(QueryAs<INamedCollection>(other.get(), IID_INamedCollection).get()), L"Var1=5 Var2=Hello ");
    // The first tab was asked for and the active one is unknown: 0 it is, and nothing is switched.
    EXPECT_EQ(parse(L"Tabs.Page?"), S_OK);
    EXPECT_EQ(tabs->activated, 0);
}

// Loading takes over the inputs object it reads, with exactly one reference: it is the object's
// inputs from then on and is released with the object.
TEST_F(Protocol, LoadKeepsTheInputsItReads) {
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(m_Manager.get(), IID_IDataPersist);
    SmartPtr<IUnknown> inputs;
    ASSERT_EQ(m_Manager->QueryInterface(IID_IInputParameters, inputs.OutVoid()), S_OK);
    {  // the stream is handed the inputs as they stand, so that it can load them in place; what
       // finding "Parameters" took is held until then
        SmartPtr<FakeFolder> inPlace(new FakeFolder(true));
        persist->Save(inPlace.get(), 0);
        EXPECT_EQ(persist->Load(inPlace.get(), 0), S_OK);
        EXPECT_EQ(inPlace->handed.get(), inputs.get());
        EXPECT_EQ(inPlace->refsWhenRead, 3) << "the test's, the folder's and its named view's";
    }
    SmartPtr<FakeFolder> folder(new FakeFolder());
    folder->readObject.Attach(CreateObject(tagREFString{15, L"InputParameters"}, &IID_IInputParameters));
    ASSERT_TRUE(folder->readObject);
    EXPECT_EQ(persist->Load(folder.get(), 0), S_OK);
    ASSERT_EQ(m_Manager->QueryInterface(IID_IInputParameters, inputs.OutVoid()), S_OK);
    EXPECT_EQ(QueryAs<IUnknown>(inputs.get(), IID_IUnknown).get(),
              QueryAs<IUnknown>(folder->readObject.get(), IID_IUnknown).get());
    folder.Reset();
    inputs.Reset();
    EXPECT_EQ(Send("Var1?"), std::vector<std::string>{"Var1=100"}) << "the object works on with them";

    // What the stream puts there is kept as it is put: neither a new object nor one loaded in
    // place is asked anything.
    class CountedInputs final : public FakeNamed<IInputParameters> {
    public:
        bool Answers(const IID& iid) override { return ++asked > 0 && iid == IID_IInputParameters; }
        HRESULT AddInput(IString*, IID, int32_t) override { return E_FAIL; }
        HRESULT put_InputObject(int32_t, IUnknown*) override { return E_FAIL; }
        HRESULT get_InputObject(int32_t, IUnknown** object) override { return *object = nullptr, E_FAIL; }
        int asked = 0;
    };
    SmartPtr<CountedInputs> counted(new CountedInputs());
    folder.Attach(new FakeFolder());
    folder->readObject.Assign(static_cast<IInputParameters*>(counted.get()));
    EXPECT_EQ(persist->Load(folder.get(), 0), S_OK);
    SmartPtr<FakeFolder> inPlace(new FakeFolder());
    EXPECT_EQ(persist->Load(inPlace.get(), 0), S_OK);
    EXPECT_EQ(inPlace->handed.get(), static_cast<IUnknown*>(static_cast<IInputParameters*>(counted.get())));
    EXPECT_EQ(counted->asked, 0);
}

TEST_F(Protocol, BytesFollowTheLocaleOfTheMoment) {
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    EXPECT_EQ(Send("Var2=\xc3\xa9t\xc3\xa9"), std::vector<std::string>{});
    EXPECT_EQ(One("Var2?"), "Var2=\xc3\xa9t\xc3\xa9") << "decoded and encoded as UTF-8";
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(One("Var2?"), "Var2=t") << "in the C locale the accented characters cannot be written";
    Send("Var2=\xc3\xa9");
    std::setlocale(LC_ALL, "C.UTF-8");
    EXPECT_EQ(One("Var2?"), "Var2=\xef\xbf\xbd\xef\xbf\xbd") << "the C locale decoded two undecodable bytes";
    // Mostly three bytes a character: the conversion's work buffer must grow, keeping its bytes,
    // and runs of single bytes must stop where its room ends.
    std::string wide;
    for (int i = 0; i < 500; ++i) wide += i % 3 == 2 ? "abcdefghij" : i % 2 ? "\xe4\xb8\xad" : "\xe6\x96\x87";
    Send("Var2=" + wide);
    EXPECT_EQ(One("Var2?"), "Var2=" + wide);
    std::setlocale(LC_ALL, "C");
}

// The locale cache answers as libc does, in each locale the machine has, one after another.
TEST(LocaleCache, AnswersAsLibc) {
    CLocaleCache cache;
    for (const char* locale : {"C", "C.UTF-8", "POSIX", "C"}) {
        if (std::setlocale(LC_ALL, locale) == nullptr) continue;
        cache.Refresh();
        for (int c = 0; c < 0x200; ++c) {
            const wchar_t w = static_cast<wchar_t>(c);
            EXPECT_EQ(cache.Lower(w), static_cast<wchar_t>(std::towlower(c))) << locale << " " << c;
            EXPECT_EQ(cache.IsSpaceOrControl(w), std::iswspace(c) || std::iswcntrl(c)) << locale << " " << c;
            char mine[MB_LEN_MAX] = {}, libc[MB_LEN_MAX] = {};
            std::wctomb(nullptr, 0);
            const int n = std::wctomb(libc, w);
            mbstate_t state{};
            ASSERT_EQ(cache.Encode(mine, w, state), n) << locale << " " << c;
            EXPECT_EQ(std::string(mine, n > 0 ? n : 0), std::string(libc, n > 0 ? n : 0)) << locale << " " << c;
        }
        for (int b = 0; b < 0x100; ++b) {
            const char byte = static_cast<char>(b);
            wchar_t mine = 0, libc = 0;
            std::mbtowc(nullptr, nullptr, 0);
            const int n = std::mbtowc(&libc, &byte, 1);
            std::mbtowc(nullptr, nullptr, 0);
            mbstate_t state{};
            ASSERT_EQ(cache.Decode(&mine, &byte, 1, state), n) << locale << " " << b;
            EXPECT_EQ(n >= 0 ? mine : 0, n >= 0 ? libc : 0) << locale << " " << b;
        }
    }
    std::setlocale(LC_ALL, "C");
}

}  // namespace
