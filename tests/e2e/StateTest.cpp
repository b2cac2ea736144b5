// wks-host keeping a protocol object's state in a file across runs, crashes included, and its
// parameters as hand-editable XML.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "host/kit/Files.h"
#include "support/Output.h"

namespace {

// wks-host with `arguments`, reading `input`; its standard output and error.
std::string RunHost(const std::string& arguments, const std::string& input, int& status) {
    std::ofstream("e2e-in.txt", std::ios::binary) << input;
    return Output("./wks-host --no-prompt " + arguments + " < e2e-in.txt 2>&1", status);
}

std::string Contents(const char* path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

class StateFile : public ::testing::Test {
protected:
    void TearDown() override {
        for (const char* file : {"e2e-state.wks", "e2e-params.xml", "e2e-input.txt", "e2e-in.txt"}) std::remove(file);
        // A host killed while saving leaves its temporary file behind (never the state file half-written).
        std::system("rm -f e2e-state.wks.?????? && rm -rf e2e-gone");
    }
};

// Settings and parameters survive a restart; the XML export and import carry the parameters.
TEST_F(StateFile, SettingsAndParametersSurviveRestarts) {
    std::remove("e2e-state.wks");
    int status = -1;
    EXPECT_EQ(RunHost("--state e2e-state.wks --return-style csv", "Var1=42\nVar2=two words\nBreak\n", status), "");
    EXPECT_EQ(status, 0);
    // No option this time: the comma-separated form comes from the file.
    EXPECT_EQ(RunHost("--state e2e-state.wks", "?\n", status), "Var1=42,Var2=two words\n");

    EXPECT_EQ(RunHost("--state e2e-state.wks --export-xml e2e-params.xml", "", status), "");
    EXPECT_EQ(status, 0);
    const std::string xml = Contents("e2e-params.xml");
    EXPECT_NE(xml.find("<Var1>42</Var1>"), std::string::npos) << xml;
    std::ofstream("e2e-params.xml") << std::string(xml).replace(xml.find("<Var1>42<") + 6, 2, "7");
    EXPECT_EQ(RunHost("--state e2e-state.wks --import-xml e2e-params.xml", "Var1?\n", status), "Var1=7\n");
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", status), "Var1=7\n") << "the import was kept";
    // An element that names no parameter (misspelt by hand) is skipped, and named.
    std::ofstream("e2e-params.xml") << "<wks version=\"1\"><var1>8</var1><Var2>x</Var2></wks>";
    EXPECT_EQ(RunHost("--import-xml e2e-params.xml", "?\n", status),
              "wks-host: warning: e2e-params.xml: element var1 names no parameter of the object: skipped\n"
              "Var1=100\nVar2=x\n");
}

// An environment without a locale (a service manager, cron) still keeps every character.
TEST_F(StateFile, TextKeepsItsCharactersWithoutALocale) {
    int status = -1;
    EXPECT_EQ(Output("printf 'Var2=Gr\\303\\274\\303\\237e\\nVar2?\\n' | env -i ./wks-host --no-prompt", status),
              "Var2=Gr\xc3\xbc\xc3\x9f" "e\n");
    EXPECT_EQ(status, 0);
}

// An entry the object does not read (a misspelt name) is named once, and not saved again.
TEST_F(StateFile, EntriesLeftUnreadAreNamed) {
    std::ofstream("e2e-state.wks") << "{\"format\":\"wks-folder\",\"version\":1,\"entries\":["
                                      "{\"name\":\"ReturnStyel\",\"typed\":3,\"value\":0}]}";
    int status = -1;
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1=1\n", status),
              "wks-host: warning: e2e-state.wks: entry ReturnStyel was left unread (a name the object does not know, a "
              "value of another kind or size, an object of an unknown component): what it holds is not kept\n");
    EXPECT_EQ(Contents("e2e-state.wks").find("ReturnStyel"), std::string::npos);
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", status), "Var1=1\n") << "a state saved whole is read whole";
}

// A state whose object no longer binds to the workspace (its input's identifier edited) would
// answer every command naming an object "?" and be saved so: it is refused and left as it is.
TEST_F(StateFile, AStateThatCannotBindIsRefused) {
    int status = -1;
    RunHost("--state e2e-state.wks", "Var1=3\n", status);
    std::string saved = Contents("e2e-state.wks");
    const size_t iid = saved.find("\"IID\"");
    ASSERT_NE(iid, std::string::npos) << saved;
    const size_t bytes = saved.find("\"bytes\": \"", iid) + 10;
    saved.replace(bytes, 32, std::string(32, '0'));
    std::ofstream("e2e-state.wks") << saved;
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Lamp=1\n", status),
              "wks-host: e2e-state.wks: the object it holds cannot be bound to the workspace (its input "
              "RunningObjectTable takes no object): refused, and the file is left as it is\n");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(Contents("e2e-state.wks"), saved);
}

// A control character XML 1.0 cannot hold is still exported (and read back), with a warning
// that other XML tools will refuse the file; a character no XML holds is replaced, with a warning.
TEST_F(StateFile, ExportSaysWhatXmlCannotHold) {
    int status = -1;
    RunHost("--state e2e-state.wks", "Var2=a\x01" "b\n", status);
    EXPECT_EQ(RunHost("--state e2e-state.wks --export-xml e2e-params.xml", "", status),
              "wks-host: warning: e2e-params.xml: line 4 holds a control character (1) that XML 1.0 does not allow: "
              "it is written as a reference, which wks-host reads back but other XML tools refuse\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(RunHost("--import-xml e2e-params.xml", "Var2?\n", status), "Var2=a\x01" "b\n");
    // U+0000 it cannot hold even as a reference: it becomes U+FFFD, and the warning says so.
    RunHost("--state e2e-state.wks", std::string("Var2=a\0b\n", 9), status);
    EXPECT_EQ(RunHost("--state e2e-state.wks --export-xml e2e-params.xml", "", status),
              "wks-host: warning: e2e-params.xml: 1 character that XML cannot hold (such as U+0000) written as U+FFFD: "
              "the file does not read back as the object holds it\n");
}

// A save that fails at the end (the state's folder went away) is said, and the status is 1.
TEST_F(StateFile, ALostLastSaveEndsWithStatusOne) {
    int status = -1;
    // The folder goes once the first save made the file (at most 10 s later).
    const std::string output = Output("rm -rf e2e-gone && mkdir e2e-gone && { printf 'Var1=1\\n'; "
                                      "for i in $(seq 200); do [ -e e2e-gone/s.wks ] && break; sleep 0.05; done; "
                                      "rm -rf e2e-gone; printf 'Var1=2\\n'; } | ./wks-host --no-prompt --state e2e-gone/s.wks 2>&1",
                                      status);
    EXPECT_NE(output.find("e2e-gone/s.wks: cannot save: "), std::string::npos) << output;
    EXPECT_NE(output.find("wks-host: e2e-gone/s.wks: the last changes are not saved\n"), std::string::npos) << output;
    EXPECT_EQ(status, 1);
    // One that cannot be saved at all stops the host before it serves anything.
    EXPECT_EQ(Output("printf 'Var1?\\n' | ./wks-host --no-prompt --state e2e-none/s.wks 2>&1", status),
              "wks-host: e2e-none/s.wks: cannot save: cannot create a file beside it: No such file or directory\n");
    EXPECT_EQ(status, 1);
}

// A state file that is not one stops the host and is never overwritten.
TEST_F(StateFile, BadFilesAreReportedAndLeftAlone) {
    // Which texts the folder format refuses, and why, is the folder stream suite's; here, that the
    // host stops on an empty file, a cut one and one that is no text at all.
    for (const char* content : {"", "{\"format\":\"wks-folder\",\"version\":1,\"entries\":[", "\x89PNG\r\n"}) {
        std::ofstream("e2e-state.wks", std::ios::binary) << content;
        int status = -1;
        const std::string output = RunHost("--state e2e-state.wks", "Var1=1\n", status);
        EXPECT_EQ(status, 1) << content;
        EXPECT_EQ(output.rfind("wks-host: ", 0), 0u) << output;
        EXPECT_NE(output.find("e2e-state.wks: "), std::string::npos) << output;
        EXPECT_EQ(Contents("e2e-state.wks"), content) << "untouched";
    }
    std::ofstream("e2e-params.xml") << "<wks><Var1>1</Var1>";
    int status = -1;
    EXPECT_NE(RunHost("--import-xml e2e-params.xml", "", status).find("e2e-params.xml: "), std::string::npos);
    EXPECT_EQ(status, 1);
    // The export is never written over a file the host reads, however the two names are written.
    RunHost("--state e2e-state.wks", "Var1=1\n", status);
    const std::string saved = Contents("e2e-state.wks");
    EXPECT_NE(RunHost("--state e2e-state.wks --export-xml ./e2e-state.wks", "", status).find("is the file of --state"),
              std::string::npos);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(Contents("e2e-state.wks"), saved);
    std::remove("e2e-state.wks");  // nor over the one its first save would make, through a link too
    RunHost("--state e2e-state.wks --export-xml ./e2e-state.wks", "", status);
    EXPECT_EQ(status, 2);
    ASSERT_EQ(symlink("e2e-state.wks", "e2e-link.wks"), 0);
    RunHost("--state e2e-link.wks --export-xml e2e-state.wks", "", status);
    std::remove("e2e-link.wks");
    EXPECT_EQ(status, 2);
    // An export serves nothing: an option of serving beside it is a mistake, said as such.
    EXPECT_NE(RunHost("--export-xml e2e-params.xml --listen 5025", "", status).find("--export-xml excludes --listen"),
              std::string::npos);
    EXPECT_EQ(status, 2);
}

// A link is followed (its target is replaced, the link stays), a pipe is written to, never
// replaced; SIGTERM on standard input ends the session with the state saved and status 0.
TEST_F(StateFile, LinksPipesAndSignalsKeepWhatTheUserNamed) {
    std::remove("e2e-state.wks");
    std::system("rm -f e2e-link.wks e2e-fifo && ln -s e2e-state.wks e2e-link.wks && mkfifo e2e-fifo");
    int status = -1;
    EXPECT_EQ(RunHost("--state e2e-link.wks", "Var1=9\n", status), "");
    struct stat link;
    ASSERT_EQ(lstat("e2e-link.wks", &link), 0);
    EXPECT_TRUE(S_ISLNK(link.st_mode)) << "the link itself was replaced";
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", status), "Var1=9\n");

    const std::string xml = Output("(timeout 10 cat e2e-fifo &) ; ./wks-host --export-xml e2e-fifo; sleep 0.2", status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(xml.find("<Var1>100</Var1>"), std::string::npos) << xml;
    struct stat fifo;
    ASSERT_EQ(lstat("e2e-fifo", &fifo), 0);
    EXPECT_TRUE(S_ISFIFO(fifo.st_mode)) << "the pipe was replaced by a file";
    // Standard output is written where the shell's redirection stands, piped or into a file.
    EXPECT_EQ(Output("./wks-host --export-xml /dev/stdout </dev/null | grep -c '<Var1>100</Var1>'", status), "1\n");
    EXPECT_EQ(Output("{ echo before; ./wks-host --export-xml /dev/fd/1 </dev/null; echo after; } > e2e-out.txt; "
                     "head -n 1 e2e-out.txt; grep -c Var1 e2e-out.txt; tail -n 1 e2e-out.txt",
                     status),
              "before\n1\nafter\n");
    std::remove("e2e-out.txt");

    const std::string answered = Output("(printf 'Var1=31\\nVar1?\\n'; sleep 4) | timeout --preserve-status -s TERM 3 "
                                        "./wks-host --no-prompt --state e2e-state.wks",
                                        status);
    EXPECT_EQ(answered, "Var1=31\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", status), "Var1=31\n");
    std::remove("e2e-link.wks");
    std::remove("e2e-fifo");
}

// A stop signal ends a session whose input never pauses, on its own and beside a network service
// (whose loop must not fall behind a flood of standard input): status 0, the state saved.
TEST_F(StateFile, SignalsStopSessionsWhoseInputNeverPauses) {
    for (const char* options : {"", "--listen 127.0.0.1:0 "}) {
        std::remove("e2e-state.wks");
        int status = -1;
        Output(std::string("yes Var1=7 | timeout -k 5 --preserve-status -s TERM 1 ./wks-host --no-prompt ") + options +
                   "--state e2e-state.wks >/dev/null 2>&1",
               status);
        EXPECT_EQ(status, 0) << options << "(137: it had to be killed)";
        EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", status), "Var1=7\n") << options;
    }
}

// The host killed at any moment while it saves leaves a file that loads: the old state or the new.
TEST_F(StateFile, KillDuringSavesNeverLeavesAHalfWrittenFile) {
    // What was answered was saved: a read's messages are saved before their answers are written.
    std::remove("e2e-state.wks");
    int answered = -1;
    Output("(printf 'Var1=7\\nVar1?\\n'; sleep 5) | ./wks-host --no-prompt --state e2e-state.wks >e2e-read.out & "
           "for i in $(seq 100); do grep -qs Var1=7 e2e-read.out && break; sleep 0.1; done; kill -9 $!",
           answered);
    EXPECT_EQ(RunHost("--state e2e-state.wks", "Var1?\n", answered), "Var1=7\n");
    std::remove("e2e-read.out");
    std::remove("e2e-state.wks");
    {
        std::ofstream input("e2e-input.txt");
        for (int i = 0; i < 20000; ++i) input << "Var1=" << i << "\nVar2=" << std::string(i % 97, 'x') << "\n";
    }
    std::mt19937 random(7);
    for (int round = 0; round < 12; ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            std::freopen("e2e-input.txt", "r", stdin);
            std::freopen("/dev/null", "w", stdout);
            execl("./wks-host", "wks-host", "--no-prompt", "--state", "e2e-state.wks", static_cast<char*>(nullptr));
            _exit(127);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 60));
        kill(child, SIGKILL);
        int raw = 0;
        waitpid(child, &raw, 0);
        int status = -1;
        const std::string reply = RunHost("--state e2e-state.wks", "Var1?\n", status);
        ASSERT_EQ(status, 0) << "round " << round << ": " << reply;
        ASSERT_EQ(reply.rfind("Var1=", 0), 0u) << reply;
    }
}

// A file read whole may be a device, but one that never ends is refused at the limit.
TEST(Files, ReadWholeStopsAtItsLimit) {
    std::string bytes = "x", error;
    EXPECT_TRUE(ReadWholeFile("/dev/null", bytes, error, nullptr, 100000)) << error;
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(ReadWholeFile("/dev/zero", bytes, error, nullptr, 100000));
    EXPECT_EQ(error, "more than 100000 bytes");
    EXPECT_TRUE(bytes.empty());
}

// Whether a file could be replaced is found out by making a file beside it, whatever the file
// holds; what would be written to as it is (a pipe) is not opened, as nobody may read it yet.
TEST(Files, CanReplaceTriesTheFolder) {
    std::string error;
    std::ofstream("e2e-can.wks") << "kept";
    EXPECT_TRUE(CanReplaceFile("e2e-can.wks", error)) << error;
    EXPECT_EQ(Contents("e2e-can.wks"), "kept");
    int status = -1;
    EXPECT_EQ(Output("ls e2e-can.wks.* 2>/dev/null | wc -l", status), "0\n") << "nothing left beside it";
    std::remove("e2e-can.wks");
    EXPECT_FALSE(CanReplaceFile("/proc/self/e2e.wks", error));
    EXPECT_EQ(error.rfind("cannot create a file beside it: ", 0), 0u) << error;
    EXPECT_FALSE(CanReplaceFile(".", error));
    EXPECT_EQ(error, "is a directory");
    ASSERT_EQ(mkfifo("e2e-can.fifo", 0600), 0);
    EXPECT_TRUE(CanReplaceFile("e2e-can.fifo", error)) << "and returns at once";
    std::remove("e2e-can.fifo");
}

}  // namespace
