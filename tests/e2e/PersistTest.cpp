// The module's protocol object saved by a host into its folder stream, written to text, read back
// and loaded into a fresh object, all through the module-host kit.
#include <gtest/gtest.h>

#include <string>

#include "host/collections/HostObject.h"
#include "host/collections/HostString.h"
#include "host/collections/Utf8.h"
#include "host/components/FolderStream.h"
#include "host/components/Registry.h"
#include "host/components/XmlStream.h"
#include "host/components/Inputs.h"
#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

class Persist : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(WorkspaceLoad(WorkspaceSample(), "test", m_Workspace, error)) << error;
        ASSERT_TRUE(m_Host.Load("./WKSProtocol.so", error)) << error;
        m_Names = QueryAs<INamedCollection>(m_Workspace.table.get(), IID_INamedCollection);
        {
            CProtocolSession warm;  // the module's process-wide factories (queries) exist from here on
            ASSERT_EQ(warm.Open(m_Host, m_Names.get()), S_OK);
            Send(warm, "?\nVar1=1\nLamp?");
            QueryAs<IUIPropInterrogate>(warm.Manager(), IID_IUIPropInterrogate)->Control(2, 0);
            Send(warm, "?");  // and the other reply style's
        }
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override { EXPECT_EQ(HOSTLiveObjects(), m_Live) << "everything made was released"; }

    static std::string Send(CProtocolSession& session, const std::string& message) {
        std::string replies;
        session.Exchange(message.data(), message.size(), [&](const unsigned char* bytes, int32_t length) {
            replies.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length)) += '|';
        });
        return replies;
    }
    static CInputParameter* FirstInput(CProtocolSession& session) {
        SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(session.Manager(), IID_IInputParameters);
        return static_cast<CInputParameters*>(inputs.get())->Input(0);
    }

    Workspace m_Workspace;
    CModuleHost m_Host;
    SmartPtr<INamedCollection> m_Names;
    int32_t m_Live = 0;
};

// Settings, parameters and the input's flags and moniker survive the trip through a file's text;
// the fresh object answers in the loaded reply style and keeps the collection it was bound to.
TEST_F(Persist, ProtocolObjectSurvivesTheTextOfAFolderStream) {
    std::string text;
    {
        CProtocolSession saved;
        ASSERT_EQ(saved.Open(m_Host, m_Names.get()), S_OK);
        Send(saved, "Var1=42");
        SmartPtr<IUIPropInterrogate> table = QueryAs<IUIPropInterrogate>(saved.Manager(), IID_IUIPropInterrogate);
        table->Control(1, 0);  // UsePrompt
        table->Control(2, 0);  // ReturnStyle: CSV
        SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(L"Lamp"));
        FirstInput(saved)->put_Moniker(moniker.get());
        FirstInput(saved)->put_InputFlags(5);
        SmartPtr<IFolderStream> folder(HOSTNewFolderStream());
        EXPECT_EQ(QueryAs<IDataPersist>(saved.Manager(), IID_IDataPersist)->Save(folder.get(), 0), E_NOTIMPL)
            << "the object reports 0x80004001 after a complete save";
        ASSERT_TRUE(HOSTFolderStreamToText(folder.get(), text));
    }
    for (const char* part : {R"("name": "UsePrompt",)", R"("name": "ReturnStyle",)", R"("name": "Parameters",)",
                             R"("name": "Var1",)", R"("integer": 42)", R"("object": "InputParameters",)",
                             R"("name": "RunningObjectTable",)", R"("object": "CollectionMoniker",)", R"("string": "Lamp")"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;

    std::string problem;
    SmartPtr<IFolderStream> read(HOSTFolderStreamFromText(text, problem));
    ASSERT_TRUE(read) << problem;
    CProtocolSession loaded;
    ASSERT_EQ(loaded.Open(m_Host, m_Names.get()), S_OK);
    EXPECT_EQ(Send(loaded, "?"), "Var1=100\nVar2=Hello|") << "a fresh object";
    ASSERT_EQ(QueryAs<IDataPersist>(loaded.Manager(), IID_IDataPersist)->Load(read.get(), 0), S_OK);
    EXPECT_EQ(Send(loaded, "?"), "Var1=42,Var2=Hello|");
    EXPECT_EQ(Send(loaded, "Lamp?"), "0|") << "still bound to the workspace";
    int32_t usePrompt = -1;
    QueryAs<IUIPropInterrogate>(loaded.Manager(), IID_IUIPropInterrogate)->Inquire(1, &usePrompt);
    EXPECT_EQ(usePrompt, 0);
    int32_t flags = -1;
    SmartPtr<IUnknown> moniker;
    FirstInput(loaded)->get_InputFlags(&flags);
    EXPECT_EQ(flags, 5);
    ASSERT_EQ(FirstInput(loaded)->get_Moniker(moniker.Out()), S_OK);
    EXPECT_EQ(static_cast<CCollectionMoniker*>(QueryAs<ICollectionMoniker>(moniker.get(), IID_ICollectionMoniker).get())->Name(), L"Lamp");
}

// The property table's own persistence, by position, with captions from the host's string table:
// folder children and XML elements named after them, read back into a fresh object.
TEST_F(Persist, PropertyTableTakesItsCaptionsFromTheStringTable) {
    CProtocolSession saved, loaded;
    ASSERT_EQ(saved.Open(m_Host, m_Names.get()), S_OK);
    ASSERT_EQ(loaded.Open(m_Host, m_Names.get()), S_OK);
    auto table = [](CProtocolSession& session) {
        SmartPtr<IUIPropInterrogate> ex = QueryAs<IUIPropInterrogate>(session.Manager(), IID_IUIPropInterrogate);
        SmartPtr<IUIPropInterrogatePersist> persist;
        persist.Assign(static_cast<IUIPropInterrogatePersist*>(ex.get()));
        return persist;
    };
    table(saved)->Control(1, 0);
    table(saved)->Control(2, 0);

    SmartPtr<IFolderStream> folder(HOSTNewFolderStream());
    ASSERT_EQ(table(saved)->UIPropInterrogate_SaveFolderStream(nullptr, folder.get(), 0), S_OK);
    std::string text;
    ASSERT_TRUE(HOSTFolderStreamToText(folder.get(), text));
    EXPECT_NE(text.find(R"("name": "Use Prompt")"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("name": "Return Style")"), std::string::npos) << text;
    ASSERT_EQ(table(loaded)->UIPropInterrogate_LoadFolderStream(folder.get(), 0), S_OK);
    int32_t style = -1;
    table(loaded)->Inquire(2, &style);
    EXPECT_EQ(style, 0);

    SmartPtr<IXMLStream> xml(HOSTNewXMLStream());
    ASSERT_EQ(table(saved)->UIPropInterrogate_SaveXML(nullptr, xml.get(), 0), S_OK);
    ASSERT_TRUE(HOSTXMLStreamToText(xml.get(), text));
    EXPECT_NE(text.find("<Use_Prompt>0</Use_Prompt>"), std::string::npos) << text;
    std::string problem;
    SmartPtr<IXMLStream> edited(HOSTXMLStreamFromText("<wks version=\"1\"><RETURN_STYLE>1</RETURN_STYLE></wks>", problem));
    ASSERT_TRUE(edited) << problem;
    ASSERT_EQ(table(loaded)->UIPropInterrogate_LoadXML(nullptr, edited.get(), 0), S_OK);
    table(loaded)->Inquire(2, &style);
    EXPECT_EQ(style, 1);
}

// A file name in a parameter is saved through the registry's mapping, or relative to the
// installation, and comes back as it was.
TEST_F(Persist, FileNamesTravelThroughTheRegistry) {
    HOSTSetRegistry(HostRegistry{L"/opt/wks", {{L"Data", L"/srv/data"}}});
    const struct { const wchar_t* name; int32_t flags; const char* stored; } rows[] = {
        {L"/srv/data/run1/a.xml", 0x06, "[Data]"},
        {L"/opt/wks/sub/b.xml", 0x106, "b.xml"},
    };
    for (const auto& row : rows) {
        std::string text;
        {
            CProtocolSession saved;
            ASSERT_EQ(saved.Open(m_Host, m_Names.get()), S_OK);
            SmartPtr<IParametersCreatable> parameters = QueryAs<IParametersCreatable>(saved.Manager(), IID_IParametersCreatable);
            SmartPtr<IString> name(HOSTNewString(L"File")), value(HOSTNewString(row.name));
            ASSERT_GE(parameters->Add(name.get(), value.get(), nullptr, row.flags), 0);
            SmartPtr<IFolderStream> folder(HOSTNewFolderStream());
            QueryAs<IDataPersist>(saved.Manager(), IID_IDataPersist)->Save(folder.get(), 0);
            ASSERT_TRUE(HOSTFolderStreamToText(folder.get(), text));
        }
        EXPECT_NE(text.find(row.stored), std::string::npos) << text;
        EXPECT_EQ(text.find(HOSTNarrowUtf8(row.name)), std::string::npos) << "stored portable:\n" << text;
        std::string problem;
        SmartPtr<IFolderStream> read(HOSTFolderStreamFromText(text, problem));
        CProtocolSession loaded;
        ASSERT_EQ(loaded.Open(m_Host, m_Names.get()), S_OK);
        ASSERT_EQ(QueryAs<IDataPersist>(loaded.Manager(), IID_IDataPersist)->Load(read.get(), 0), S_OK);
        EXPECT_EQ(Send(loaded, "File?"), "File=" + HOSTNarrowUtf8(row.name) + "|");
    }
    HOSTSetRegistry(HostRegistry());
}

}  // namespace
