// What the browser console shows and changes: the workspace tree with live values, and the
// protocol object's property pages read from its property table and parameters alone.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "host/app/ConsoleModel.h"
#include "host/collections/HostObject.h"

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
        const json tree = json::parse(ConsoleTree(m_Workspace));
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
    Send("Lamp=1\nTabs.Second.Value?");
    EXPECT_EQ(Object("Lamp")["value"], "on") << "a change made through the protocol shows";
    EXPECT_EQ(Object("Tabs")["value"], "Second");
}

TEST_F(ConsoleModel, PagesComeFromThePropertyTableAndTheParameters) {
    const json pages = json::parse(ConsolePages(m_Session.Manager()));
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
    EXPECT_EQ(Send("?"), "Var1=100\nVar2=Hello") << "nothing refused changed anything";
    ASSERT_TRUE(ConsoleControl(m_Session.Manager(), 2, 0, error)) << error;
    EXPECT_EQ(Send("?"), "Var1=100,Var2=Hello") << "the next reply takes the new form";
}

TEST_F(ConsoleModel, ParametersAreSetByTheirType) {
    const struct { int index; const char* text; bool taken; const char* query; const char* reply; } rows[] = {
        {0, "42", true, "Var1?", "Var1=42"},
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
        if (row.index < 2) {
            EXPECT_EQ(Send(row.query), row.reply) << row.text;
        }
    }
    EXPECT_EQ(json::parse(ConsolePages(m_Session.Manager()))["parameters"][1]["value"], "h\xc3\xa9llo");
}

}  // namespace
