// The module as wks-host drives it: loaded through the module-host kit, initialised with the
// host's collection, bound to the reference workspace, fed messages through IProtocolManager.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "host/collections/HostObject.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/Inputs.h"
#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"
#include "support/Output.h"

namespace {

class Session : public ::testing::Test {
protected:
    void Open(const std::string& toml) {
        std::string error;
        ASSERT_TRUE(WorkspaceLoad(toml, "test", m_Workspace, error)) << error;
        ASSERT_TRUE(m_Host.Load("./WKSProtocol.so", error)) << error;
        SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(m_Workspace.table.get(), IID_INamedCollection);
        ASSERT_EQ(m_Session.Open(m_Host, names.get()), S_OK);
        m_Manager.Assign(m_Session.Manager());
        Send("?\nVar1?");  // the process-wide factory objects exist from here on
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        if (!m_Manager) return;
        Send("?");
        EXPECT_EQ(HOSTLiveObjects(), m_Live) << "commands leave no host object behind";
        m_Manager.Reset();
        m_Session.Close();
        m_Workspace.table.Reset();
    }

    std::vector<std::string> Send(const std::string& text, HRESULT* received = nullptr) {
        std::vector<std::string> replies;
        const HRESULT hr = m_Session.Exchange(text.data(), text.size(), [&](const unsigned char* bytes, int32_t length) {
            replies.emplace_back(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length));
        });
        if (received) *received = hr;
        return replies;
    }
    std::vector<std::string>& Log() { return m_Workspace.log.calls; }

    Workspace m_Workspace;
    CModuleHost m_Host;
    CProtocolSession m_Session;
    SmartPtr<IProtocolManager> m_Manager;
    int32_t m_Live = 0;
};

using Replies = std::vector<std::string>;

// Each message: RecievedMessage's result, the replies, and the calls the workspace received.
TEST_F(Session, MessagesOnTheSampleWorkspace) {
    Open(WorkspaceSample());
    const struct { std::string message; HRESULT received; Replies replies; std::vector<std::string> calls; } rows[] = {
        {"?", S_OK, {"Var1=100\nVar2=Hello"}, {}},
        {"Var1=7", S_OK, {}, {}},                       {"? Var1", S_OK, {"Var1=7"}, {}},
        {"Lamp=1", S_OK, {}, {"Lamp.SwitchOn"}},        {"Lamp?", S_OK, {"1"}, {}},
        {"Lamp=0", S_OK, {}, {"Lamp.SwitchOff"}},
        {"Valve=0", S_OK, {}, {"Valve.put_State(2)"}},  {"Valve?", S_OK, {"0"}, {}},
        {"Station.ResultsView?", S_OK, {"Length=12.25\nWidth=3.5"}, {}},
        {"Station.IOQuen?", S_OK, {"Host=localhost\nPort=4711\nTimeout=2.5"}, {}},
        {"Station.Feeder?", S_OK, {"0"}, {}},           {"Oven?", S_OK, {"Mode=bake\nTemperature=180"}, {}},
        {"Toolbar.Start=0", S_OK, {}, {"Toolbar.put_ButtonState(101,0)"}},
        {"Panel.Stop=1", S_OK, {}, {"Stop.put_Attribute(15,1)"}},
        {"Tabs.Second.Value?", S_OK, {"1"}, {"Tabs.put_ActiveIndex(1,1)"}},
        {"Tabs.Second.Value?", S_OK, {"1"}, {}},  // already active: no call
        {"UI.Field=x", S_OK, {}, {"UI.get_ActiveObject", "UI.Notify(1,-1,-1,Field)"}},
        {"UI+", S_OK, {}, {"UI.Increment"}},            {"UI-", S_OK, {}, {"UI.Decrement"}},
        {"Valve+", S_OK, {"?"}, {}},
        {"Managers:pick", S_OK, {}, {"Managers.Select(:pick)"}},
        {"Managers", S_OK, {}, {"Managers.SelectDefault"}},
        {"Links:via moniker", S_OK, {}, {"Managers.Select(:via moniker)"}},
        {"KQBible.first second", S_OK, {}, {"KQBible.Search(first second)"}},
        {"Station:Feeder", S_OK, {}, {}},               {"Nobody?", S_OK, {"?"}, {}},
        {" \r\n\r\n ", S_OK, {}, {}},
        {"BREAK\r\n", E_BREAK, {}, {}}, {"  Break now", E_BREAK, {}, {}}, {"b", E_BREAK, {}, {}},
        {"Brake", S_OK, {"?"}, {}}, {"xbreak", S_OK, {"?"}, {}},
        {"Breath", S_OK, {"?"}, {}},  // the whole word decides, not its first four characters
        {"Var1?\r\nVar2?\r\nNope?", S_OK, {"Var1=7", "Var2=Hello", "?"}, {}},
        {"Var1=5\n\n\r\n   Var1?", S_OK, {"Var1=5"}, {}},
        {"Var1=1\nVar1=2\nVar1=3\nVar1=4\nVar1=5\nVar1=6\nVar1=7\nVar1=8\nVar1=9\nVar1=10\nVar1?\nVar1?", S_OK,
         {"Var1=10"}, {}},  // eleven lines; the twelfth is dropped
        {std::string("Var2\0junk?", 10), S_OK, {"Var2=Hello"}, {}},  // a zero byte ends a name like a separator
    };
    for (const auto& row : rows) {
        Log().clear();
        HRESULT received = 0;
        EXPECT_EQ(Send(row.message, &received), row.replies) << row.message;
        EXPECT_EQ(received, row.received) << row.message;
        EXPECT_EQ(Log(), row.calls) << row.message;
    }
    unsigned char* untouched = reinterpret_cast<unsigned char*>(0x1);
    int32_t length = 77;
    EXPECT_EQ(m_Manager->GetResponse(&untouched, &length), S_FALSE) << "nothing pending";
    EXPECT_EQ(length, 77);
    EXPECT_EQ(m_Manager->GetResponse(nullptr, nullptr), S_FALSE) << "nothing pending, so nothing to write";
    EXPECT_EQ(m_Manager->RecievedMessage(reinterpret_cast<unsigned char*>(const_cast<char*>("Var2?")), 5), S_OK);
    EXPECT_EQ(m_Manager->GetResponse(nullptr, &length), E_POINTER) << "a host's null output consumes nothing";
    unsigned char* reply = nullptr;
    EXPECT_EQ(m_Manager->GetResponse(&reply, &length), S_FALSE);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(reply), length), "Var2=Hello");
}

TEST_F(Session, NamesWithBlanksLongRepliesBusyFilesAndCommaSeparatedReplies) {
    std::string toml = "[[object]]\nname = \"A\"\n[[object.children]]\nname = \"B\"\nkind = \"step\"\nstate = 1\n"
                       "[[object]]\nname = \"My Obj\"\n[[object.children]]\nname = \"Value\"\nkind = \"io\"\nstate = 1\n"
                       "[[object]]\nname = \"Files\"\nkind = \"files\"\nbusy_ms = 300\n"
                       "[[object]]\nname = \"Oven\"\nparameters = { Temperature = 180, Mode = \"bake\" }\n"
                       "[[object]]\nname = \"Big\"\n";
    for (int i = 0; i < 200; ++i)
        toml += "[[object.children]]\nname = \"Result" + std::to_string(i) + "\"\nkind = \"result\"\nvalue = " + std::to_string(i) + ".5\n";
    Open(toml);
    for (const char* line : {"My Obj.Value?", "\"My Obj\".Value?", "\"My Obj \"::Value ?", "? My Obj.Value"})
        EXPECT_EQ(Send(line), Replies{"1"}) << line;
    EXPECT_EQ(Send("My Obj. Value?"), Replies{"?"}) << "a blank after a separator belongs to the next name";
    EXPECT_EQ(Send("A.B?\nA::B?"), (Replies{"1", "1"})) << "one-character names";
    const Replies big = Send("Big?");
    ASSERT_EQ(big.size(), 1u);
    EXPECT_GT(big[0].size(), 2000u) << "a reply longer than the response buffer is delivered whole";
    EXPECT_EQ(big[0].substr(big[0].size() - 15), "Result199=199.5");

    // The query waits while the collection is busy; a file-name collection has no values to show.
    EXPECT_EQ(Send("Files?"), Replies{});
    EXPECT_EQ(m_Workspace.Find(L"Files")->IsBusy(), 0) << "the reply came only once the collection was idle";

    QueryAs<IUIPropInterrogate>(m_Manager.get(), IID_IUIPropInterrogate)->Control(2, 0);
    EXPECT_EQ(Send("Oven?\nMy Obj?"), (Replies{"Mode=bake,Temperature=180", "Value=1"}));
}

// Binding looks each input up in the collection by the interface it expects, unless the input's
// bind flag bit 0 says it is never looked up.
TEST_F(Session, BindLooksUpInputsUnlessTheirFlagSaysNever) {
    Open(WorkspaceSample());
    SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(m_Manager.get(), IID_IInputParameters);
    ASSERT_TRUE(inputs);
    CInputParameters* declared = static_cast<CInputParameters*>(inputs.get());
    ASSERT_EQ(inputs->AddInput(SmartPtr<IString>(HOSTNewString(L"Looked")).get(), IID_IString, 0), S_OK);
    ASSERT_EQ(inputs->AddInput(SmartPtr<IString>(HOSTNewString(L"Never")).get(), IID_IString, 0), S_OK);
    declared->Input(2)->SetBindFlags(1);
    {
        SmartPtr<ISuperCollection> pool(HOSTNewCollection());
        SmartPtr<IString> text(HOSTNewString(L"found"));
        pool->Add(nullptr, text.get(), 0, 0);
        QueryAs<IBindableObject>(m_Manager.get(), IID_IBindableObject)->Bind(pool.get(), nullptr);
        SmartPtr<IUnknown> moniker;
        EXPECT_EQ(declared->Input(1)->get_Moniker(moniker.Out()), S_OK);
        EXPECT_EQ(moniker.get(), static_cast<IUnknown*>(text.get()));
        EXPECT_LT(declared->Input(2)->get_Moniker(moniker.Out()), 0);
    }
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(m_Workspace.table.get(), IID_INamedCollection);
    QueryAs<IBindableObject>(m_Manager.get(), IID_IBindableObject)->Bind(names.get(), nullptr);
    inputs.Reset();
    m_Live = HOSTLiveObjects();  // the two inputs stay with the object
}

// wks-host on a scripted session, whose transcript is the replies, one per line; wrong input of
// every kind is named, and the host stops with a status that says so.
TEST(WksHost, SessionsAndRefusals) {
    {
        std::ofstream("e2e-session.txt") << "Lamp=1\nLamp?\nStation.ResultsView?\nNobody\nVar1=5\nVar1?\nBreak\nLamp?\n";
        std::ofstream("e2e-bad.toml") << "[[object]]\nname = \"A\"\n\n[[object]]\nname = \"B\"\nkind = \"teapot\"\n";
        std::ofstream("e2e-warned.toml") << "[[object]]\nname = \"Breaker\"\nkind = \"step\"\n";
        std::ofstream("e2e-lines.txt") << "Var1=5\n" << std::string(70000, 'x') << "\nVar1?\nVar2=" << std::string(59, 'z') << "\n" << std::string(65, 'y');
        std::ofstream("e2e-ends.txt") << "Var1=5\r\nVar1?\rLamp?\n";
        std::ofstream("e2e-bom.txt") << "\xEF\xBB\xBFVar1=7\nVar1?\n\xEF\xBB\xBFVar1?\n";
        std::ofstream("e2e-limit.wksrec") << "# wks-host transcript 1\n# max-line 1k\n";
        std::ofstream("e2e-v12.wksrec") << "# wks-host transcript 12\n";
        std::ofstream("e2e-crlf.wksrec") << "# wks-host transcript 1\r\n";
        std::ofstream("e2e-cut.wksrec") << "# wks-host transcript 1\n0.5 > Var1=12";
        // As an editor may leave it: a byte order mark, escapes in small letters.
        std::ofstream("e2e-edited.wksrec") << "\xEF\xBB\xBF# wks-host transcript 1\n# framing raw\n0.5 > Var2=a\\x2cb\n"
                                              "0.5 > Var2?\n0.5 < Var2=a,b\\x0a\n";
        std::ofstream("e2e-early.wksrec") << "# wks-host transcript 1\n0.5 < junk\n0.5 > Var1?\n0.5 < Var1=100\n";
        // A state file may give the reply style any number: its sessions replay all the same.
        std::ofstream("e2e-style7.wksrec") << "# wks-host transcript 1\n# framing raw\n# return-style 7\n0.5 > Var1?\n"
                                              "0.5 < Var1=100\\n\n";
        std::ofstream("e2e-style.wksrec") << "# wks-host transcript 1\n# return-style csv\n";
        std::ofstream("e2e-late.wksrec") << "# wks-host transcript 1\n0.5 > Var1?\n0.5 < Var1=100\n\n# framing raw\n";
        std::ofstream("e2e-long.txt") << std::string(65, 'y') << "\nVar1?\n";
        std::ofstream("e2e-blank.txt") << " \t \nLamp=1\n";
    }
    const struct { const char* arguments; int status; const char* output; } rows[] = {
        {"< e2e-session.txt", 0, "1\nLength=12.25\nWidth=3.5\n?\nVar1=5\n"},
        {"--return-style csv < e2e-session.txt", 0, "1\nLength=12.25,Width=3.5\n?\nVar1=5\n"},
        {"--return-style xml", 2, "wks-host: --return-style: 'xml' is neither csv nor ini\nRun with --help for more information.\n"},
        {"--framing RAW --max-line 6 < e2e-ends.txt", 0, "Var1=5\n0\n"},  // words in any case
        {"--framing bogus", 2, "wks-host: --framing: 'bogus' is not one of text, counted, raw\nRun with --help for more information.\n"},
        {"--framing raw --framing text", 2, "wks-host: --framing: given more than once\nRun with --help for more information.\n"},
        {"--listen 5025 --http 127.0.0.1:5025 < /dev/null", 2,
         "wks-host: --http: 127.0.0.1:5025: the same address as --listen 5025\nRun with --help for more information.\n"},
        {"--listen 127.0.0.1:5025 --http [::]:5025 < /dev/null", 2,
         "wks-host: --http: [::]:5025: overlaps --listen 127.0.0.1:5025 (a wildcard address holds its port on every "
         "interface)\nRun with --help for more information.\n"},
        {"--workspace e2e-bad.toml < /dev/null", 1, "wks-host: e2e-bad.toml:6: unknown kind 'teapot' of object 'B'\n"},
        {"--workspace e2e-warned.toml < /dev/null", 0,
         "wks-host: warning: e2e-warned.toml:2: the name 'Breaker' begins with 'break': a message beginning with it ends "
         "the session\n"},
        {"--workspace . < /dev/null", 1, "wks-host: .: is a directory\n"},
        {"< .", 1, "wks-host: cannot read standard input: Is a directory\n"},
        {"--workspace e2e-none.toml < /dev/null", 1, "wks-host: e2e-none.toml: cannot read: No such file or directory\n"},
        {"--workspace", 2, "wks-host: --workspace: 1 required FILE missing\nRun with --help for more information.\n"},
        // An empty file name (an unset variable) is no absent option: no token would be asked.
        {"--auth-file '' --listen 0", 2, "wks-host: --auth-file: an empty value names no file\nRun with --help for more information.\n"},
        {"--state ''", 2, nullptr},
        {"--record ''", 2, "wks-host: --record: an empty value names no folder\nRun with --help for more information.\n"},
        {"--auth-file e2e-session.txt < /dev/null", 2,
         "wks-host: --auth-file: guards the network: it needs --listen or --http\nRun with --help for more information.\n"},
        // "AUTH Lamp=1" is 11 bytes: no client could send it in lines of 10.
        {"--auth-file e2e-session.txt --listen 0 --max-line 10 < /dev/null", 1,
         "wks-host: e2e-session.txt: a token of 6 bytes does not fit in a line of at most 10 (--max-line)\n"},
        {"--auth-file e2e-blank.txt --listen 0 < /dev/null", 1, "wks-host: e2e-blank.txt: no token on its first line\n"},
        {"--idle-timeout 5 < /dev/null", 0, "wks-host: warning: --idle-timeout has no effect without --listen or --http\n"},
        {"--replay e2e-ends.txt --listen 0", 2, "wks-host: --listen excludes --replay\nRun with --help for more information.\n"},
        {"--max-line 0", 2, nullptr},
        {"--max-line abc", 2, "wks-host: --max-line: 'abc' is not a whole number\nRun with --help for more information.\n"},
        {"--max-line 64 < e2e-lines.txt", 0,
         "wks-host: line 2 has 70000 bytes, more than the limit of 64 (--max-line): refused\n?\nVar1=5\n"  // line 4: 64 bytes, taken
         "wks-host: line 5 has 65 bytes, more than the limit of 64 (--max-line): refused\n?\n"},
        // A line ends at CR LF or a lone CR as on the network, and its line end is no part of it.
        {"--max-line 6 < e2e-ends.txt", 0, "Var1=5\n0\n"},
        // A byte order mark begins a file, not its first line; anywhere else it is text.
        {"< e2e-bom.txt", 0, "Var1=7\n?\n"},
        // A refused line is answered in the session's framing, which stays whole.
        {"--framing text --max-line 64 < e2e-long.txt", 0,
         "wks-host: line 1 has 65 bytes, more than the limit of 64 (--max-line): refused\n?\n\nVar1=100\n\n"},
        {"--listen 5025x < /dev/null", 2, nullptr},
        {"--listen '[::1]' < /dev/null", 2, nullptr},
        {"--http 127.0.0.1: < /dev/null", 2, nullptr},
        {"--replay e2e-ends.txt", 2, "wks-host: e2e-ends.txt: not a wks-host transcript\n"},
        {"--replay e2e-limit.wksrec", 2, "wks-host: e2e-limit.wksrec:2: max-line is not a count of bytes\n"},
        {"--replay e2e-v12.wksrec", 2, "wks-host: e2e-v12.wksrec: a transcript of another version (# wks-host transcript 12)\n"},
        {"--replay e2e-crlf.wksrec", 2,
         "wks-host: e2e-crlf.wksrec: holds a carriage return: a transcript's lines end with LF alone (converted to CR LF?)\n"},
        {"--replay e2e-cut.wksrec", 2, "wks-host: e2e-cut.wksrec: its last line is cut short (the file ends in the middle of it)\n"},
        {"--replay e2e-edited.wksrec", 0, "e2e-edited.wksrec: every answer as recorded\n"},
        {"--replay e2e-early.wksrec", 2, "wks-host: e2e-early.wksrec:2: an answer before any message\n"},
        {"--replay e2e-style7.wksrec", 0, "e2e-style7.wksrec: every answer as recorded\n"},
        {"--replay e2e-style.wksrec", 2, "wks-host: e2e-style.wksrec:2: return-style is not a number\n"},
        {"--replay e2e-late.wksrec", 2, "wks-host: e2e-late.wksrec:5: a setting after the session began\n"},
        // A replay that cannot start is no difference in its answers.
        {"--replay e2e-limit.wksrec --workspace e2e-bad.toml", 2, "wks-host: e2e-bad.toml:6: unknown kind 'teapot' of object 'B'\n"},
    };
    for (const auto& row : rows) {
        int status = -1;
        const std::string output = Output(std::string("./wks-host --no-prompt ") + row.arguments + " 2>&1", status);
        EXPECT_EQ(status, row.status) << row.arguments;
        if (row.output) EXPECT_EQ(output, row.output) << row.arguments;
        else EXPECT_NE(output.find("Run with --help"), std::string::npos) << row.arguments << ": " << output;
    }
    int status = -1;  // (every row above runs with --no-prompt)
    // A folder that takes no transcript stops a service at its start, as it stops standard input.
    const std::string recorded = Output("timeout 10 ./wks-host --record /proc --listen 0 < /dev/null 2>&1", status);
    EXPECT_EQ(recorded.rfind("wks-host: --record: /proc/", 0), 0u) << recorded;
    EXPECT_EQ(status, 1);
    // Logging into the journal (a systemd service): no time stamp, the level as a syslog priority.
    EXPECT_EQ(Output("(exec 2>e2e-journal.txt; JOURNAL_STREAM=$(stat -c %d:%i e2e-journal.txt) timeout -s TERM 0.5 "
                     "./wks-host --listen 0 < /dev/null); grep -c '^<6>wks-host info: listening on ' e2e-journal.txt",
                     status),
              "1\n");
    EXPECT_EQ(Output("./wks-host --prompt --framing counted < /dev/null 2>&1", status),
              "wks-host: --prompt: the counted framing leaves no room for a prompt\nRun with --help for more information.\n");
    EXPECT_EQ(status, 2);
    for (const char* file : {"e2e-session.txt", "e2e-bad.toml", "e2e-warned.toml", "e2e-lines.txt", "e2e-ends.txt", "e2e-bom.txt", "e2e-long.txt",
                             "e2e-limit.wksrec", "e2e-v12.wksrec", "e2e-crlf.wksrec", "e2e-cut.wksrec", "e2e-early.wksrec", "e2e-edited.wksrec", "e2e-style.wksrec", "e2e-style7.wksrec",
                             "e2e-late.wksrec", "e2e-blank.txt", "e2e-journal.txt"})
        std::remove(file);
}

// Standard output full and nobody reading it: a stop still ends the session, 2 s after it at the
// most, with the state saved. A closed standard output is an error, never another file's
// descriptor (the transcript's). Relative file names need the folder the host started in.
TEST(WksHost, OutputsThatTakeNothingEndTheSession) {
    {
        std::ofstream many("e2e-many.txt");
        many << "Var1=9\n";
        for (int i = 0; i < 100000; ++i) many << "Station.ResultsView?\n";
    }
    std::remove("e2e-full.wks");
    std::remove("e2e-full");
    ASSERT_EQ(mkfifo("e2e-full", 0600), 0);
    const int reader = open("e2e-full", O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // opened, never read
    const pid_t host = fork();
    if (host == 0) {
        std::freopen("e2e-many.txt", "r", stdin);
        std::freopen("e2e-full", "w", stdout);
        std::freopen("e2e-full.err", "w", stderr);
        execl("./wks-host", "wks-host", "--state", "e2e-full.wks", static_cast<char*>(nullptr));
        _exit(127);
    }
    // Stopped once the pipe is full; ended, however slowly the host runs, well before the deadline.
    int waiting = 0, raw = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (ioctl(reader, FIONREAD, &waiting) == 0 && waiting < 65536 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    kill(host, SIGTERM);
    while (waitpid(host, &raw, WNOHANG) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (kill(host, SIGKILL) == 0) waitpid(host, &raw, 0);
    close(reader);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << raw;
    int status = -1;
    EXPECT_EQ(Output("cat e2e-full.err", status),
              "wks-host: standard output took no answers for 2 s after the stop: the rest are dropped\n");
    EXPECT_EQ(Output("printf 'Var1?\\n' | ./wks-host --no-prompt --state e2e-full.wks", status), "Var1=9\n");

    EXPECT_EQ(Output("mkdir -p e2e-closed-rec && ./wks-host --no-prompt --record e2e-closed-rec < e2e-many.txt 2>&1 >&-", status),
              "wks-host: cannot write standard output: Bad file descriptor; the session ends here\n");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(Output("W=$PWD/wks-host; mkdir e2e-vanished && cd e2e-vanished && rmdir ../e2e-vanished && "
                     "$W --state s.wks < /dev/null 2>&1", status),
              "wks-host: s.wks: the current folder cannot be found (No such file or directory): name the file from /\n");
    EXPECT_EQ(status, 2);
    Output("rm -rf e2e-many.txt e2e-full e2e-full.wks e2e-full.err e2e-closed-rec", status);
}

}  // namespace
