// What the browser console shows and changes: the workspace tree with live values, and the
// protocol object's property pages read from its property table and parameters alone.
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "host/app/ConsoleModel.h"
#include "host/collections/ComponentList.h"
#include "host/collections/HostObject.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"

namespace {

using nlohmann::json;

class ConsoleModel : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(WorkspaceLoad(WorkspaceSample(), "sample", m_Workspace, error)) << error;
        ASSERT_TRUE(m_Host.Load("./WKSProtocol.so", error)) << error;
        SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(m_Workspace.table.get(), IID_INamedCollection);
        ASSERT_EQ(m_Session.Open(m_Host, names.get()), S_OK);
    }
    std::string Send(const std::string& line) {
        std::string replies;
        m_Session.Exchange(line.data(), line.size(), [&](const unsigned char* bytes, int32_t length) {
            replies.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length));
        });
        return replies;
    }
    json Object(const std::string& path) {
        const json tree = json::parse(CConsoleTree(m_Workspace).Whole());
        for (const json& object : tree["objects"])
            if (object["path"] == path) return object;
        return json();
    }

    Workspace m_Workspace;
    CModuleHost m_Host;
    CProtocolSession m_Session;
};

TEST_F(ConsoleModel, TreeShowsEveryKindWithItsLiveValue) {
    const struct { const char* path; const char* kind; int depth; const char* value; } rows[] = {
        {"Lamp", "step", 0, "off"},          {"Valve", "io", 0, "1"},
        {"Station", "container", 0, ""},     {"Station.Feeder", "step", 1, "off"},
        {"Station.ResultsView.Length", "result", 2, "12.25"},
        {"Tabs", "tabs", 0, "First"},        {"Links", "moniker", 0, ""},
    };
    for (const auto& row : rows) {
        const json object = Object(row.path);
        ASSERT_FALSE(object.is_null()) << row.path;
        EXPECT_EQ(object["kind"], row.kind) << row.path;
        EXPECT_EQ(object["depth"], row.depth) << row.path;
        EXPECT_EQ(object["value"], row.value) << row.path;
    }
    // The console makes the tree again only when the workspace counted a change, as wks-host
    // runs it: counted, not kept.
    m_Workspace.log.keep = false;
    const uint64_t before = m_Workspace.log.changes;
    Send("Lamp?\nTabs?\nStation?");
    EXPECT_EQ(m_Workspace.log.changes, before) << "queries change nothing";
    Send("Lamp=1\nTabs.Second.Value?");
    EXPECT_EQ(m_Workspace.log.changes, before + 2) << "SwitchOn and put_ActiveIndex";
    EXPECT_EQ(Object("Lamp")["value"], "on") << "a change made through the protocol shows";
    // A busy collection turns idle with no call: the tree says so, to be made again meanwhile.
    for (const auto& [busy, expected] : {std::pair{60000, true}, {0, false}}) {
        Workspace files;
        std::string error;
        ASSERT_TRUE(WorkspaceLoad("[[object]]\nname = \"F\"\nkind = \"files\"\nbusy_ms = " + std::to_string(busy) + "\n",
                                  "files", files, error)) << error;
        EXPECT_EQ(CConsoleTree(files).Busy(), expected) << busy;
    }
    EXPECT_EQ(Object("Tabs")["value"], "Second");
}

// After the whole tree, a look sends only the values that changed since the last, whatever made
// them change, and the whole tree made later shows the values as last taken.
TEST_F(ConsoleModel, ChangesHoldOnlyTheValuesThatChanged) {
    CConsoleTree tree(m_Workspace);
    auto change = [](const char* path, const char* value) { return json{{"path", path}, {"value", value}}; };
    const struct { const char* lines; json changes; } rows[] = {
        {"Lamp?", json()},
        {"Lamp=1", json::array({change("Lamp", "on")})},
        {"Lamp=1", json()},  // switched on again: counted as a change, but the value is the same
        {"Tabs.Second.Value?\nStation.Feeder=1", json::array({change("Station.Feeder", "on"), change("Tabs", "Second")})},
    };
    for (const auto& row : rows) {
        Send(row.lines);
        const std::string changes = tree.Changes();
        EXPECT_EQ(changes.empty() ? json() : json::parse(changes)["objects"], row.changes) << row.lines;
    }
    // A result's value changes with no call the tree could see: the next look finds it all the same.
    m_Workspace.Find(L"Station.ResultsView.Length")->m_Value = 3.5;
    EXPECT_EQ(json::parse(tree.Changes()),
              json::parse(R"({"type":"values","objects":[{"path":"Station.ResultsView.Length","value":"3.5"}]})"));
    const json whole = json::parse(tree.Whole());
    EXPECT_EQ(whole, json::parse(CConsoleTree(m_Workspace).Whole())) << "the whole tree shows the values taken";

    // A busy collection turns idle by itself: a look then says so.
    Workspace files;
    std::string error;
    ASSERT_TRUE(WorkspaceLoad("[[object]]\nname = \"F\"\nkind = \"files\"\nbusy_ms = 100\n", "files", files, error)) << error;
    CConsoleTree filesTree(files);
    ASSERT_TRUE(filesTree.Busy());
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(json::parse(filesTree.Changes())["objects"], json::array({change("F", "idle")}));
    EXPECT_FALSE(filesTree.Busy());
}

TEST_F(ConsoleModel, PagesComeFromThePropertyTableAndTheParameters) {
    const json pages = json::parse(ConsolePages(m_Session.Manager()));
    EXPECT_EQ(pages["pages"], json::parse(R"(["UIPropPages.UIPropInterrogatePropPage","UIPropPages.UIParametersPropPage"])"));
    ASSERT_EQ(pages["items"].size(), 2u);
    const json prompt = pages["items"][0], style = pages["items"][1];
    EXPECT_EQ(prompt, json::parse(R"({"id":1,"caption":"Use Prompt","kind":"range","min":0,"max":1,"value":1})"));
    EXPECT_EQ(style["caption"], "Return Style");
    EXPECT_EQ(style["kind"], "enumeration");
    EXPECT_EQ(style["choices"], json::parse(R"([{"text":"Comma separated","value":0},{"text":"INI lines","value":1}])"));
    EXPECT_EQ(pages["parameters"],
              json::parse(R"([{"index":0,"name":"Var1","type":"integer","value":"100"},
                              {"index":1,"name":"Var2","type":"text","value":"Hello"}])"));
}

TEST_F(ConsoleModel, ControlTakesOnlyValuesTheItemOffers) {
    std::string error;
    EXPECT_FALSE(ConsoleControl(m_Session.Manager(), 2, 2, error)) << "not one of the choices";
    EXPECT_FALSE(ConsoleControl(m_Session.Manager(), 1, -1, error)) << "below the range";
    EXPECT_FALSE(ConsoleControl(m_Session.Manager(), 7, 0, error)) << "no such item";
    EXPECT_EQ(error, "no setting 7");
    EXPECT_FALSE(ConsoleControl(m_Session.Manager(), (int64_t{1} << 32) + 2, 0, error)) << "item 2 beyond 32 bits";
    EXPECT_EQ(Send("?"), "Var1=100\nVar2=Hello") << "nothing refused changed anything";
    ASSERT_TRUE(ConsoleControl(m_Session.Manager(), 2, 0, error)) << error;
    EXPECT_EQ(Send("?"), "Var1=100,Var2=Hello") << "the next reply takes the new form";

    // A value none of the choices name (as a state file may hold) is shown as its number, and
    // is still not offered.
    SmartPtr<IUIPropInterrogate> table = QueryAs<IUIPropInterrogate>(m_Session.Manager(), IID_IUIPropInterrogate);
    ASSERT_GE(table->Control(2, 7), 0);
    const json style = json::parse(ConsolePages(m_Session.Manager()))["items"][1];
    EXPECT_EQ(style["value"], 7);
    EXPECT_EQ(style["choices"].back(), json::parse(R"({"text":"7","value":7,"listed":false})"));
    EXPECT_FALSE(ConsoleControl(m_Session.Manager(), 2, 7, error)) << "shown, not offered";
    EXPECT_TRUE(ConsoleControl(m_Session.Manager(), 2, 1, error)) << error;
    EXPECT_EQ(json::parse(ConsolePages(m_Session.Manager()))["items"][1]["choices"].size(), 2u);
}

TEST_F(ConsoleModel, ParametersAreSetByTheirType) {
    const struct { int64_t index; const char* text; bool taken; const char* query; const char* reply; } rows[] = {
        {0, "42", true, "Var1?", "Var1=42"},
        {int64_t{1} << 32, "43", false, "Var1?", "Var1=42"},  // index 0 beyond 32 bits
        {0, "-2147483648", true, "Var1?", "Var1=-2147483648"},
        {0, "2147483648", false, "Var1?", "Var1=-2147483648"},
        {0, "4x", false, "Var1?", "Var1=-2147483648"},
        {0, "", false, "Var1?", "Var1=-2147483648"},
        {1, "h\xc3\xa9llo", true, "Var2?", "Var2=hllo"},  // the module writes in the C locale: é is left out
        {1, "\xff", false, "Var2?", "Var2=hllo"},
        {2, "1", false, "", ""},
    };
    for (const auto& row : rows) {
        std::string error;
        EXPECT_EQ(ConsoleSetParameter(m_Session.Manager(), row.index, row.text, error), row.taken) << row.text;
        EXPECT_EQ(row.taken, error.empty()) << row.text;
        if (*row.query != '\0') {
            EXPECT_EQ(Send(row.query), row.reply) << row.text;
        }
    }
    EXPECT_EQ(json::parse(ConsolePages(m_Session.Manager()))["parameters"][1]["value"], "h\xc3\xa9llo");
}


// A component of other items gets a fitting page from its table alone: a wide range as a number,
// a real, a text; an object item is left out; only the pages it asks for are filled.
class CFakeComponent final : public IUIPropInterrogateEx, public IUIPropertyPageSpecify {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown || iid == IID_IUIPropInterrogate || iid == IID_IUIPropInterrogateEx)
            *object = static_cast<IUIPropInterrogateEx*>(this);
        else if (iid == IID_IUIPropertyPageSpecify)
            *object = static_cast<IUIPropertyPageSpecify*>(this);
        return *object ? S_OK : E_NOINTERFACE;
    }
    int32_t AddRef() override { return 2; }  // lives on the test's stack
    int32_t Release() override { return 1; }
    HRESULT GetPages(int32_t, INamedCollection** pages, IUnknown**) override {
        SmartPtr<ISuperCollection> list(HOSTNewCollection());
        SmartPtr<IString> page(HOSTNewString(L"UIPropPages.UIPropInterrogatePropPage"));
        list->Add(nullptr, page.get(), 0, 0);
        *pages = list.Detach();
        return S_OK;
    }
    // Items 3 (an integer, 0..10), 5 (a double), 6 (a text) and 7 (an object).
    HRESULT Inquire(int32_t id, int32_t* value) override {
        if (id == 0x2000000) return *value = 4, S_OK;
        if (id == 3) return value ? *value = m_Level, 3 : 3;
        if (id == 5) return 5;
        return id == 6 || id == 7 ? E_FAIL : E_INVALIDARG;
    }
    HRESULT Control(int32_t id, int32_t value) override { return id == 3 ? m_Level = value, S_OK : E_FAIL; }
    HRESULT ParameterRange(int32_t id, int32_t* minimum, int32_t* maximum) override {
        if (id == 0x2000000) return *minimum = 3, *maximum = 7, S_OK;
        return id == 3 ? *minimum = 0, *maximum = 10, S_OK : E_INVALIDARG;
    }
    HRESULT ParameterEnumeration(int32_t, IUnknown**) override { return E_INVALIDARG; }
    HRESULT InquireEx(int32_t id, IUnknown** value) override {
        if (id == 5 && value) {
            HOSTCreateVariant(nullptr, const_cast<IID*>(&IID_IVariant), reinterpret_cast<void**>(value));
            static_cast<IVariant*>(*value)->put_Double(m_Gain);
        }
        if (id == 6 && value) *value = HOSTNewString(m_Label.c_str());
        return id == 5 ? 5 : id == 6 ? 6 : id == 7 ? 7 : E_FAIL;
    }
    HRESULT ControlEx(int32_t id, IUnknown* value) override {
        if (id == 5) return m_Gain = QueryAs<IVariant>(value, IID_IVariant)->get_Double(), S_OK;
        if (id == 6) return m_Label = HOSTText(QueryAs<IString>(value, IID_IString).get()), S_OK;
        return E_FAIL;
    }

    int32_t m_Level = 4;
    double m_Gain = 0.5;
    std::wstring m_Label = L"x";
};

TEST(ConsolePages, OtherItemsGetFittingControls) {
    CFakeComponent component;
    IUnknown* fake = static_cast<IUIPropInterrogate*>(&component);
    const json pages = json::parse(ConsolePages(fake));
    EXPECT_EQ(pages["items"], json::parse(R"([{"id":3,"caption":"Item 3","kind":"range","min":0,"max":10,"value":4},
                                               {"id":5,"caption":"Item 5","kind":"real","value":0.5},
                                               {"id":6,"caption":"Item 6","kind":"text","value":"x"}])"));
    EXPECT_EQ(pages["parameters"], json::array()) << "a page it does not ask for";
    std::string error;
    EXPECT_TRUE(ConsoleControl(fake, 3, 10, error) && ConsoleControl(fake, 5, 2.25, error) &&
                ConsoleControl(fake, 6, "y\xc3\xa9", error))
        << error;
    EXPECT_EQ(component.m_Level, 10);
    EXPECT_EQ(component.m_Gain, 2.25);
    EXPECT_EQ(component.m_Label, L"y\u00e9");
    EXPECT_FALSE(ConsoleControl(fake, 3, 11, error)) << "beyond the range";
    EXPECT_FALSE(ConsoleControl(fake, 3, 2.5, error)) << "not an integer";
    EXPECT_FALSE(ConsoleControl(fake, 5, "many", error)) << "a text for a real";
    EXPECT_FALSE(ConsoleControl(fake, 7, 1, error)) << "an object item is not shown, so not set";
}

}  // namespace
