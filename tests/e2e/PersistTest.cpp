// The module's protocol object saved by a host into its folder stream, written to text, read back
// and loaded into a fresh object, all through the module-host kit.
#include <gtest/gtest.h>

#include <string>

#include "host/collections/HostObject.h"
#include "host/collections/HostString.h"
#include "host/components/FolderStream.h"
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

}  // namespace
