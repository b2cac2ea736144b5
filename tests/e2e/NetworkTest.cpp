// wks-host as a network service, over real sockets on loopback: framing, pipelining, many
// clients, authentication, refusals of other protocols, limits, bad bytes and stopping.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/app/Framing.h"
#include "support/Output.h"

namespace {

// A wks-host serving an ephemeral loopback port; stopped with SIGTERM when it goes.
class Server {
public:
    // `shell` runs before the host, in the shell that starts it (to lower a limit, say).
    explicit Server(const std::string& options, const std::string& shell = "") {
        int err[2];
        if (pipe(err) != 0) return;
        m_Pid = fork();
        if (m_Pid == 0) {
            dup2(err[1], STDERR_FILENO);
            close(err[0]);
            std::freopen("/dev/null", "r", stdin);
            std::freopen("/dev/null", "w", stdout);
            const std::string command = shell + " exec ./wks-host --no-prompt --listen 127.0.0.1:0 " + options;
            execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(err[1]);
        m_Log = fdopen(err[0], "r");
        // One "listening on ADDRESS:PORT" line per --listen, in their order.
        size_t listeners = 1;
        for (size_t at = options.find("--listen"); at != std::string::npos; at = options.find("--listen", at + 1)) ++listeners;
        char line[512];
        while (m_Ports.size() < listeners && m_Log && std::fgets(line, sizeof line, m_Log)) {
            m_Text += line;
            const char* at = std::strstr(line, "listening on ");
            const char* colon = at ? std::strrchr(line, ':') : nullptr;
            if (colon) m_Ports.push_back(std::atoi(colon + 1));
        }
        m_Port = m_Ports.empty() ? 0 : m_Ports.front();
    }
    ~Server() { Stop(); }
    void Signal(int signal) { kill(m_Pid, signal); }
    bool Running() {
        int raw = 0;
        return m_Pid > 0 && waitpid(m_Pid, &raw, WNOHANG) == 0;
    }
    // Sends `signal` (every millisecond until the host ends, with `repeat`); the exit status.
    int Stop(int signal = SIGTERM, bool repeat = false) {
        if (m_Pid <= 0) return m_Status;
        kill(m_Pid, signal);
        int raw = 0;
        while (repeat && waitpid(m_Pid, &raw, WNOHANG) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            kill(m_Pid, signal);
        }
        if (!repeat) waitpid(m_Pid, &raw, 0);
        m_Pid = 0;
        m_Status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        char line[512];
        while (m_Log && std::fgets(line, sizeof line, m_Log)) m_Text += line;
        if (m_Log) std::fclose(m_Log), m_Log = nullptr;
        return m_Status;
    }
    int Port() const { return m_Port; }
    const std::vector<int>& Ports() const { return m_Ports; }
    const std::string& Log() const { return m_Text; }

private:
    pid_t m_Pid = -1;
    FILE* m_Log = nullptr;
    int m_Port = 0;
    std::vector<int> m_Ports;
    int m_Status = -1;
    std::string m_Text;
};

class Client {
public:
    explicit Client(int port, bool v6 = false) {
        m_Fd = socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
        int connected = -1;
        if (v6) {
            sockaddr_in6 address{};
            address.sin6_family = AF_INET6;
            address.sin6_port = htons(static_cast<uint16_t>(port));
            address.sin6_addr = in6addr_loopback;
            connected = connect(m_Fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        } else {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(static_cast<uint16_t>(port));
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            connected = connect(m_Fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        }
        if (connected != 0) close(m_Fd), m_Fd = -1;
    }
    ~Client() {
        if (m_Fd >= 0) close(m_Fd);
    }
    bool Send(const std::string& bytes) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = send(m_Fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<size_t>(n);
        }
        return true;
    }
    // Reads until `bytes` have come, the peer closes, or two seconds pass without data.
    std::string Receive(size_t bytes = SIZE_MAX) {
        while (m_Buffer.size() < bytes) {
            pollfd wait{m_Fd, POLLIN, 0};
            if (poll(&wait, 1, 2000) <= 0) break;
            char chunk[65536];
            const ssize_t n = recv(m_Fd, chunk, sizeof chunk, 0);
            if (n <= 0) {
                m_Closed = true;
                break;
            }
            m_Buffer.append(chunk, static_cast<size_t>(n));
        }
        std::string all;
        all.swap(m_Buffer);
        return all;
    }
    // Everything until the peer closes.
    std::string UntilClosed() {
        std::string all;
        while (!m_Closed) {
            const std::string more = Receive();
            if (more.empty() && !m_Closed) break;
            all += more;
        }
        return all;
    }
    bool Closed() const { return m_Closed; }
    bool Connected() const { return m_Fd >= 0; }

private:
    int m_Fd = -1;
    std::string m_Buffer;
    bool m_Closed = false;
};

// The counted framing's blocks, one per message: each the list of its replies.
std::vector<std::vector<std::string>> Blocks(const std::string& bytes) {
    std::vector<std::vector<std::string>> blocks;
    size_t at = 0;
    while (at < bytes.size() && bytes[at] == '+') {
        const size_t end = bytes.find('\n', at);
        if (end == std::string::npos) break;
        const int count = std::atoi(bytes.c_str() + at + 1);
        at = end + 1;
        std::vector<std::string> replies;
        for (int i = 0; i < count; ++i) {
            const size_t colon = bytes.find(':', at);
            const size_t length = std::stoul(bytes.substr(at, colon - at));
            replies.push_back(bytes.substr(colon + 1, length));
            at = colon + 1 + length + 1;
        }
        blocks.push_back(replies);
    }
    return blocks;
}

// 1,000 lines of every kind in one write: every block belongs to its line, in order.
TEST(Network, PipelinedMessagesAreAnsweredInOrder) {
    Server server("--framing counted");
    ASSERT_GT(server.Port(), 0) << server.Log();
    Client client(server.Port());
    std::string lines;
    std::vector<std::vector<std::string>> expected;
    for (int i = 0; i < 1000; ++i) {
        switch (i % 5) {
            case 0: lines += "Var1=" + std::to_string(i) + "\n", expected.push_back({}); break;
            case 1: lines += "Var1?\r\n", expected.push_back({"Var1=" + std::to_string(i - 1)}); break;
            case 2: lines += "Nobody?\r", expected.push_back({"?"}); break;
            case 3: lines += "?\n", expected.push_back({"Var1=" + std::to_string(i - 3) + "\nVar2=Hello"}); break;
            default: lines += "Station.ResultsView?\n", expected.push_back({"Length=12.25\nWidth=3.5"}); break;
        }
    }
    ASSERT_TRUE(client.Send(lines));
    std::string received;
    for (int round = 0; round < 10000 && Blocks(received).size() < expected.size(); ++round) received += client.Receive(1);
    EXPECT_EQ(Blocks(received), expected);
}

// Line ends of every kind, lines split at every byte, and a CR that ends one read before its LF.
TEST(Network, LinesAreCutAtEveryKindOfLineEnd) {
    Server server("--framing counted");
    Client client(server.Port());
    const std::string text = "Var1=7\r\nVar1?\rVar1?\nVar1=8\r";
    for (char c : text) {
        ASSERT_TRUE(client.Send(std::string(1, c)));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(client.Send("\nVar1?\n"));
    const std::vector<std::vector<std::string>> expected{{}, {"Var1=7"}, {"Var1=7"}, {}, {"Var1=8"}};
    std::string received;
    for (int round = 0; round < 100 && Blocks(received).size() < expected.size(); ++round) received += client.Receive(1);
    EXPECT_EQ(Blocks(received), expected) << "the LF after a CR read alone is no empty line";
}

// Clients at once, each answered in its own order; Break closes only its own connection; the
// text framing ends every block with an empty line.
TEST(Network, ClientsAreServedApartAndBreakClosesOnlyItsOwn) {
    Server server("--log-level debug");
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 20; ++i) clients.push_back(std::make_unique<Client>(server.Port()));
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(clients[i]->Send("Lamp?\nStation.Feeder?\n"));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(clients[i]->Receive(6), "0\n\n0\n\n") << i;
    ASSERT_TRUE(clients[0]->Send("Lamp=1\nBreak\nLamp?\n"));
    EXPECT_EQ(clients[0]->UntilClosed(), "\n") << "the assignment's empty block, then nothing";
    EXPECT_TRUE(clients[0]->Closed());
    ASSERT_TRUE(clients[1]->Send("Lamp?\n"));
    EXPECT_EQ(clients[1]->Receive(3), "1\n\n") << "one object for every client";
    server.Stop();
    EXPECT_NE(server.Log().find(": 6 bytes read, 3 messages so far, 3 bytes of answers to send"), std::string::npos)
        << server.Log();
}

// The first line decides: a token when one is required, and never another protocol's opening.
TEST(Network, StrangersAreRefusedBeforeTheObjectSeesAnything) {
    {
        // An editor's byte order mark and a blank after the token are no part of it.
        std::ofstream("e2e-token") << "\xEF\xBB\xBFs3cret \n";
    }
    Server server("--auth-file e2e-token");
    const struct { std::string first; std::string answer; } rows[] = {
        {"AUTH s3cret\nLamp?\n", "\n0\n\n"},
        {"AUTH wrong\nLamp=1\n", "ERROR: authentication failed\n"},
        {"Lamp=1\n", "ERROR: authentication failed\n"},
        {"GET / HTTP/1.1\r\nHost: x\r\n\r\n", "ERROR: this is a line protocol: refused an HTTP request\n"},
        {"host: example\n", "ERROR: this is a line protocol: refused an HTTP header\n"},
        {"SSH-2.0-OpenSSH_9.2\r\n", "ERROR: this is a line protocol: refused an SSH banner\n"},
        {std::string("\x16\x03\x01\x02\x00\x01", 6), "ERROR: this is a line protocol, not TLS\n"},
    };
    for (const auto& row : rows) {
        Client client(server.Port());
        ASSERT_TRUE(client.Send(row.first));
        EXPECT_EQ(row.first.rfind("AUTH s3cret", 0) == 0 ? client.Receive(row.answer.size()) : client.UntilClosed(),
                  row.answer)
            << row.first;
    }
    Client check(server.Port());
    check.Send("AUTH s3cret\nLamp?\n");
    EXPECT_EQ(check.Receive(4), "\n0\n\n") << "nothing a refused client sent reached the object";
    server.Stop();
    std::istringstream log(server.Log());
    int warned = 0;
    for (std::string line; std::getline(log, line);)
        warned += line.find("authentication failed") != std::string::npos && line.find("wks-host warning:") != std::string::npos;
    EXPECT_EQ(warned, 2) << "a wrong token is a warning\n" << server.Log();
    std::remove("e2e-token");
}

// Limits: the line length, the number of clients and a client that never reads.
TEST(Network, LimitsDropOnlyTheClientThatPassesThem) {
    // The output cap is larger than the answers to one read can be (64 KiB of "?" lines give
    // about 1 MB): it must count what earlier reads left waiting.
    Server server("--max-clients 3 --max-output 2097152 --stall-timeout 1 --framing counted");
    Client longLine(server.Port());
    longLine.Send(std::string(70000, 'x'));
    EXPECT_EQ(longLine.UntilClosed(), "-line too long\n");

    Client a(server.Port()), b(server.Port()), c(server.Port());
    a.Send("Var1?\n");
    EXPECT_EQ(a.Receive(14), "+1\n8:Var1=100\n");
    Client d(server.Port());
    EXPECT_EQ(d.UntilClosed(), "-too many clients\n");

    // b sends and never reads: once its answers fill the cap its input is held back, and when
    // the socket takes none of them for the stall time it is dropped; c is not.
    std::string many;
    for (int i = 0; i < 2000; ++i) many += "?\n";
    bool dropped = false;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!dropped && std::chrono::steady_clock::now() < until) dropped = !b.Send(many);
    EXPECT_TRUE(dropped);
    c.Send(std::string("\x00\xff\xfe garbage \xc3\x28\n", 15) + "Var1?\n");
    std::string received;
    for (int round = 0; round < 100 && Blocks(received).size() < 2; ++round) received += c.Receive(1);
    const std::vector<std::vector<std::string>> answers = Blocks(received);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[1], std::vector<std::string>{"Var1=100"}) << "bad bytes disturb nobody";
    server.Stop();
    EXPECT_NE(server.Log().find("dropped: it does not read its answers"), std::string::npos) << server.Log();
    EXPECT_NE(server.Log().find("already 3 clients"), std::string::npos) << server.Log();
}

// Out of descriptors, the host cannot take new clients: it says so at most once a second, keeps
// the clients it has, and takes new ones again once descriptors are free.
TEST(Network, FailedAcceptsAreLoggedOnceASecond) {
#if defined(WKS_SANITIZED)
    // The sanitizers probe memory through a pipe: with no descriptor left they report errors that
    // are none (UBSan's vptr check sees "invalid vptr" and stops the host).
    GTEST_SKIP() << "needs a build without sanitizers";
#endif
    Server server("", "ulimit -n 32;");
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 40; ++i) clients.push_back(std::make_unique<Client>(server.Port()));
    clients.front()->Send("Var1?\n");
    EXPECT_EQ(clients.front()->Receive(10), "Var1=100\n\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    clients.resize(1);
    Client later(server.Port());
    later.Send("Var1?\n");
    EXPECT_EQ(later.Receive(10), "Var1=100\n\n");
    server.Stop();
    size_t lines = 0;
    for (size_t at = server.Log().find("accepting failed"); at != std::string::npos; at = server.Log().find("accepting failed", at + 1))
        ++lines;
    EXPECT_GE(lines, 1u) << server.Log();
    EXPECT_LE(lines, 3u) << server.Log();
    EXPECT_NE(server.Log().find("more failures not shown"), std::string::npos) << server.Log();
}

// A client that sends one line at a time and reads nothing is held back too: its reads end at a
// line end, so only the answers still waiting can tell that it is over the cap.
TEST(Network, ALineAtATimeNeverReadIsHeldBackAndDropped) {
    Server server("--max-output 65536 --stall-timeout 1 --framing counted --max-line 1000000");
    Client client(server.Port());
    ASSERT_TRUE(client.Send("Var2=" + std::string(500000, 'x') + "\n"));  // the socket's buffers fill soon
    // Dropped once the socket's buffers are full and the stall time has passed, long before the
    // host would have buffered a hundred answers of half a megabyte.
    bool dropped = false;
    for (int line = 0; !dropped && line < 200; ++line) {
        dropped = !client.Send("Var2?\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // each line a read of its own
    }
    EXPECT_TRUE(dropped);
    server.Stop();
    EXPECT_NE(server.Log().find("dropped: it does not read its answers"), std::string::npos) << server.Log();
}

// SIGTERM, SIGINT and SIGHUP (a closed terminal) stop the service with status 0 after saving the
// state, however recent the change.
TEST(Network, TerminationSavesTheState) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        std::remove("e2e-net.wks");
        Server server("--state e2e-net.wks");
        Client client(server.Port());
        client.Send("Var1=77\n");
        EXPECT_EQ(client.Receive(1), "\n");
        // The stop signal again and again while the host stops (as a process, then its group, may
        // get it) is no harm.
        EXPECT_EQ(server.Stop(signal, true), 0) << signal << server.Log();
        EXPECT_NE(server.Log().find("disconnected after"), std::string::npos) << "the client closed is logged" << server.Log();
        std::ifstream file("e2e-net.wks");
        std::stringstream text;
        text << file.rdbuf();
        EXPECT_NE(text.str().find("\"integer\": 77"), std::string::npos) << signal << text.str();
    }
    std::remove("e2e-net.wks");

    // Started with SIGHUP ignored (nohup), the host keeps ignoring it.
    signal(SIGHUP, SIG_IGN);
    Server ignoring("");
    signal(SIGHUP, SIG_DFL);
    ignoring.Signal(SIGHUP);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(ignoring.Running()) << ignoring.Log();
    Client client(ignoring.Port());
    client.Send("Lamp?\n");
    EXPECT_EQ(client.Receive(3), "0\n\n") << "still serving after a hangup";
    EXPECT_EQ(ignoring.Stop(), 0);
}

// An output nobody reads holds up the session on standard input only: clients are still served,
// and a stop still stops, saving the state.
TEST(Network, AnOutputNobodyReadsHoldsUpOnlyStandardInput) {
    std::remove("e2e-stuck");
    ASSERT_EQ(mkfifo("e2e-stuck", 0600), 0);
    const int reader = open("e2e-stuck", O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // opened, never read
    {
        std::ofstream queries("e2e-queries.txt");
        for (int i = 0; i < 100000; ++i) queries << "Var1?\n";  // a megabyte of answers
    }
    std::remove("e2e-stuck.wks");
    Server server("--state e2e-stuck.wks < e2e-queries.txt > e2e-stuck");
    Client client(server.Port());
    client.Send("Var1=9\nVar1?\n");
    if (client.Receive(9) != "\nVar1=9\n\n") {
        server.Stop(SIGKILL);  // the loop is stuck: a stop signal would wait for ever
        FAIL() << "a client is not served while standard output is full";
    }
    EXPECT_EQ(server.Stop(), 0) << server.Log();
    int status = -1;
    EXPECT_EQ(Output("printf 'Var1?\\n' | ./wks-host --no-prompt --state e2e-stuck.wks", status), "Var1=9\n");
    close(reader);
    for (const char* file : {"e2e-stuck", "e2e-queries.txt", "e2e-stuck.wks"}) std::remove(file);
}

// The test reads the host's standard error only when the host has ended: a line a read of the
// client logs fills the pipe in about 600 messages. Lines are lost then, clients are not.
TEST(Network, ALogNobodyReadsLosesLinesNotClients) {
    Server server("--log-level debug");
    Client client(server.Port());
    const std::string answer = "Var1=100\n\n";
    int answered = 0;
    for (; answered < 1500 && client.Send("Var1?\n") && client.Receive(answer.size()) == answer; ++answered) {
    }
    if (answered != 1500) {
        server.Stop(SIGKILL);
        FAIL() << "answered " << answered << " messages while standard error was full";
    }
    EXPECT_EQ(server.Stop(), 0);
}

// A person at netcat: CR LF line ends, an empty line after every message's replies; the last
// line, sent without its line end before the input ended, is still answered.
TEST(Network, NetcatSessionReadsAsTheReadmeSays) {
    Server server("");
    int status = -1;
    const std::string transcript = Output("printf 'Lamp=1\\r\\nLamp?\\r\\n?\\r\\nNobody' | nc -q1 127.0.0.1 " +
                                              std::to_string(server.Port()), status);
    EXPECT_EQ(transcript, "\n1\n\nVar1=100\nVar2=Hello\n\n?\n\n");
}

// A recorded session replays without a difference; against another workspace the difference is
// shown and the status says so.
TEST(Network, RecordedSessionsReplay) {
    std::system("rm -rf e2e-rec && mkdir e2e-rec");
    {
        std::ofstream("e2e-other.toml") << "[[object]]\nname = \"Lamp\"\nkind = \"result\"\nvalue = 7\n";
        Server server("--framing counted --record e2e-rec");
        { Client silent(server.Port()); }  // connects and goes
        Client client(server.Port());
        client.Send("Lamp=1\nLamp?\nVar1=5\n?\nBreak\n");
        client.UntilClosed();
    }
    int status = -1;
    const std::string files = Output("ls e2e-rec", status);
    ASSERT_NE(files.find(".wksrec"), std::string::npos) << files;
    EXPECT_EQ(files.find('\n'), files.size() - 1) << "no file for standard input at its end, nor for a silent client\n" << files;
    const std::string file = "e2e-rec/" + files.substr(0, files.find('\n'));
    EXPECT_NE(Output("./wks-host --replay " + file, status).find("every answer as recorded"), std::string::npos);
    EXPECT_EQ(status, 0);
    const std::string report = Output("./wks-host --replay " + file + " --workspace e2e-other.toml", status);
    EXPECT_EQ(status, 1);
    EXPECT_NE(report.find("Lamp?\n- +1\\n1:1\\n\n+ +1\\n1:7\\n"), std::string::npos) << report;

    // With a token: an accepted and a refused one replay as they went, and neither is written,
    // not even the refused line that held the token in the wrong form; only the host's user reads
    // the files.
    std::system("rm -rf e2e-rec && mkdir e2e-rec");
    {
        std::ofstream("e2e-token3") << "s3cret\n";
        Server server("--record e2e-rec --auth-file e2e-token3");
        Client accepted(server.Port()), refused(server.Port());
        accepted.Send("AUTH s3cret\nLamp?\nAUTH later\nAUTH s3cret\nauth  s3cret \ns3cret\nBreak\n");
        accepted.UntilClosed();
        refused.Send("auth s3cret\n");
        refused.UntilClosed();
    }
    const std::string sessions = Output("cd e2e-rec && for f in *127_0_0_1*; do ../wks-host --replay $f >/dev/null; echo $?; done; "
                                        "stat -c %a * | sort -u; cat * | grep -c s3cret",
                                        status);
    EXPECT_EQ(sessions, "0\n0\n600\n0\n") << "both replay as recorded; the token is in no file";
    EXPECT_NE(Output("grep -h AUTH e2e-rec/*", status).find("> AUTH later"), std::string::npos)
        << "after authenticating, a line is recorded as it came, but for the token";

    // Standard input with its prompt: the prompt follows the answers but is no part of them. A
    // line over the network's limit replays under the limit of the session that took it, a
    // first line that would be refused on the network replays as the message it was here, and
    // the reply style the session began with is the replay's.
    std::system("rm -rf e2e-rec && mkdir e2e-rec");
    Output("{ printf 'GET / HTTP/1.0\\nVar1=5\\nVar1?\\nVar2='; head -c 70000 /dev/zero | tr '\\0' a; printf '\\nVar2?\\n?\\n'; } | "
           "./wks-host --prompt --return-style csv --record e2e-rec",
           status);
    EXPECT_NE(Output("./wks-host --replay e2e-rec/*stdin*", status).find("every answer as recorded"), std::string::npos);
    EXPECT_EQ(status, 0);

    // A line refused for its length never was a message: a remark says so, followed by the answer
    // the client got, and the replay agrees.
    std::system("rm -rf e2e-rec && mkdir e2e-rec");
    Output("printf 'Var1=123456789\\nVar1?\\n' | ./wks-host --max-line 8 --record e2e-rec 2>/dev/null", status);
    EXPECT_EQ(Output("grep -A1 '^# refused: a line of 14 bytes' e2e-rec/*stdin* | cut -d' ' -f2-; "
                     "./wks-host --replay e2e-rec/*stdin* >/dev/null",
                     status),
              "refused: a line of 14 bytes or more\n< ?\\n\n");
    EXPECT_EQ(status, 0);

    // A transcript that cannot be written (here: over the file size limit) says so once; the
    // session goes on.
    std::system("rm -rf e2e-rec && mkdir e2e-rec");
    const std::string said = Output("trap '' XFSZ; ulimit -f 1; { printf 'Var2='; head -c 3000 /dev/zero | tr '\\0' x; "
                                    "printf '\\nVar2?\\nVar1?\\n'; } | ./wks-host --record e2e-rec 2>&1 >/dev/null",
                                    status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(said.find("cannot write: File too large; the transcript ends here\n"), std::string::npos) << said;
    EXPECT_EQ(said.find('\n'), said.size() - 1) << "said once: " << said;
    std::system("rm -rf e2e-rec e2e-other.toml e2e-token3");
}

// Answers that cannot be written end the session on standard input: quietly when the reader went
// away, with an error and status 1 when the output is full; the network, when served, goes on.
TEST(Network, AnOutputThatFailsEndsTheSessionOnStandardInput) {
    int status = -1;
    for (const char* file : {"e2e-out.wks", "e2e-out.log"}) std::remove(file);
    // The last line is sent once the host has said it cannot write (or after 10 s at most).
    Output("{ printf 'Var1=5\\nVar1?\\n'; for i in $(seq 100); do grep -qs cannot e2e-out.log && break; sleep 0.1; done; "
           "printf 'Var1=6\\n'; } | { ./wks-host --no-prompt --state e2e-out.wks 2>e2e-out.log >/dev/full; echo $? >e2e-out.status; }",
           status);
    EXPECT_EQ(Output("cat e2e-out.status", status), "1\n");
    const std::string said = Output("cat e2e-out.log", status);
    EXPECT_NE(said.find("cannot write standard output: No space left on device"), std::string::npos) << said;
    EXPECT_EQ(Output("printf 'Var1?\\n' | ./wks-host --no-prompt --state e2e-out.wks", status), "Var1=5\n")
        << "the line after the failure was not handled";
    std::remove("e2e-out.wks");

    // A read's worth of queries whose answers fill the pipe, then assignments: none of them may
    // be handled once the answers could not be written.
    Output("{ yes 'Var1?' | head -n 10923; yes 'Var1=55' | head -n 20000; } | timeout 3 ./wks-host --no-prompt "
           "--listen 127.0.0.1:0 --state e2e-out.wks 2>e2e-out.log | head -c 10 >/dev/null",
           status);
    const std::string log = Output("cat e2e-out.log", status);
    EXPECT_EQ(log.find("standard output is closed: standard input is no longer read"),
              log.rfind("standard output is closed: standard input is no longer read")) << "said once:\n" << log;
    EXPECT_NE(log.find("standard output is closed"), std::string::npos) << log;
    EXPECT_EQ(Output("printf 'Var1?\\n' | ./wks-host --no-prompt --state e2e-out.wks", status), "Var1=100\n");
    std::remove("e2e-out.wks");
    std::remove("e2e-out.log");
    std::remove("e2e-out.status");
}

// An idle client is closed when asked; a wildcard address without a token is warned about.
TEST(Network, IdleClientsCloseAndOpenAddressesWarn) {
    Server server("--idle-timeout 1 --listen 0.0.0.0:0");
    Client idle(server.Port());
    const auto start = std::chrono::steady_clock::now();
    idle.UntilClosed();
    EXPECT_TRUE(idle.Closed());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    server.Stop();
    EXPECT_NE(server.Log().find("0.0.0.0:0 is reachable from other machines and no --auth-file is set"), std::string::npos)
        << server.Log();
    EXPECT_NE(server.Log().find("idle timeout"), std::string::npos) << server.Log();

    // A client that must authenticate has that long to give its token, however much it sends.
    {
        std::ofstream("e2e-token4") << "s3cret\n";
    }
    Server guarded("--idle-timeout 1 --auth-file e2e-token4");
    Client waiting(guarded.Port());
    waiting.Send("AUTH s3");
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    waiting.Send("cr");
    EXPECT_EQ(waiting.UntilClosed(), "ERROR: no token within 1 s\n");
    guarded.Stop();
    EXPECT_NE(guarded.Log().find("disconnected after 1."), std::string::npos) << guarded.Log();
    EXPECT_NE(guarded.Log().find("0 messages: no token within 1 s"), std::string::npos) << guarded.Log();
    std::remove("e2e-token4");
}

// A client that reads its answers slowly, its input held back meanwhile, is not idle: it gets
// every answer, more than the sockets' buffers hold. One that takes none of the answers it is
// owed is idle all the same.
TEST(Network, AClientOwedAnswersIsNotIdle) {
    Server server("--idle-timeout 1 --max-output 65536 --framing counted --max-line 2000000");
    Client client(server.Port()), stopped(server.Port());
    const std::string value(1000000, 'x');
    std::string lines = "Var2=" + value + "\n";
    for (int i = 0; i < 30; ++i) lines += "Var2?\n";
    ASSERT_TRUE(stopped.Send(lines.substr(0, value.size() + 6 + 10 * 6)));  // 11 messages, then nothing read
    ASSERT_TRUE(client.Send(lines));
    std::string received;
    for (int round = 0; round < 100 && received.size() < 30 * value.size() && !client.Closed(); ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // 3 s or more in all
        received += client.Receive(1000000);
    }
    received += client.Receive();
    const std::vector<std::vector<std::string>> blocks = Blocks(received);
    ASSERT_EQ(blocks.size(), 31u);
    EXPECT_EQ(blocks.back(), std::vector<std::string>{"Var2=" + value});
    EXPECT_LT(Blocks(stopped.UntilClosed()).size(), 11u) << "closed with answers still owed";
    server.Stop();
}

// Several addresses at once, all reaching the one object; [::] is every interface, so IPv4
// clients reach it too.
TEST(Network, ServesSeveralAddressesAndTheIPv6WildcardTakesIPv4) {
    Server server("--listen [::]:0");
    ASSERT_EQ(server.Ports().size(), 2u) << server.Log();
    Client v4(server.Ports()[0]), v6(server.Ports()[1], true), v4OnWildcard(server.Ports()[1]);
    if (!v6.Connected()) GTEST_SKIP() << "no IPv6 loopback here";
    ASSERT_TRUE(v4OnWildcard.Connected());
    v6.Send("Lamp=1\n");
    EXPECT_EQ(v6.Receive(1), "\n");
    for (Client* client : {&v4, &v4OnWildcard}) {
        client->Send("Lamp?\n");
        EXPECT_EQ(client->Receive(3), "1\n\n");
    }
}

// Input held back at the output cap is taken up again as the answers go out, however fast the
// reader takes them: every answer comes once and in order.
TEST(Network, InputHeldBackIsTakenUpInOrder) {
    Server server("--max-output 65536 --framing counted");
    Client client(server.Port());
    std::string lines, expected;
    for (int i = 0; i < 20000; ++i) {
        const std::string value = std::to_string(i) + std::string(200, 'x');
        lines += "Var2=" + value + "\nVar2?\n";
        expected += "+0\n+1\n" + std::to_string(value.size() + 5) + ":Var2=" + value + "\n";
    }
    std::thread writer([&] { client.Send(lines); });
    const std::string received = client.Receive(expected.size());
    writer.join();
    ASSERT_EQ(received.size(), expected.size());
    EXPECT_TRUE(received == expected) << "the answers differ from byte " << std::mismatch(received.begin(), received.end(), expected.begin()).first - received.begin();
}

// Standard input served beside the network is the operator's: no token asked of it, a line over
// its limit refused alone, the prompt when asked for; and a reader of the host's output that goes
// away stops nothing.
TEST(Network, StandardInputIsTheOperators) {
    {
        std::ofstream("e2e-token2") << "s3cret\n";
    }
    // SIGTERM comes after 5 s, when the host has surely answered (a sanitized build on a busy
    // machine starts slowly); the hosts run side by side, so the wait is paid once.
    const std::string serve = " | timeout --preserve-status -s TERM 5 ./wks-host --listen 127.0.0.1:0 --log-level error ";
    const struct { const char* input; const char* options; const char* output; } rows[] = {
        {"Lamp?\\n", "--no-prompt --auth-file e2e-token2", "0\n\n"},
        {"Lamp=1\\nxxxxxxxxxx\\nLamp?\\n", "--no-prompt --max-line 8",
         "\n?\n\n1\n\n"},  // the refusal itself goes to standard error
        {"Lamp?\\n", "--prompt", "> 0\n\n> "},
    };
    std::vector<std::string> commands;
    for (const auto& row : rows) commands.push_back(std::string("printf '") + row.input + "'" + serve + row.options + " 2>/dev/null");
    commands.push_back("bash -c 'set -o pipefail; sleep 6 | timeout --preserve-status -s TERM 5 ./wks-host "
                       "--no-prompt --listen 127.0.0.1:0 2>&1 | true'; echo $?");
    std::vector<int> statuses;
    const std::vector<std::string> outputs = Outputs(commands, statuses);
    for (size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(outputs[i], rows[i].output) << rows[i].options;
        EXPECT_EQ(statuses[i], 0) << rows[i].options;
    }
    EXPECT_EQ(outputs.back(), "0\n") << "the host's status after its log's reader went away";
    std::remove("e2e-token2");
}

// The text framing sends a reply's line breaks of every kind as LF, and its empty lines as a
// blank, so that a client cutting lines at a lone CR still sees the block end where it is; blocks
// are written into the output as it stands.
TEST(Network, ReplyBlocksAreWrittenInPlace) {
    CReplyBlock block(Framing::kText);
    std::string out = "before\n";
    block.Add(out, "x\r\ry\n\nz\r\nw");
    block.Add(out, "");
    block.Finish(out);
    EXPECT_EQ(out, "before\nx\n \ny\n \nz\nw\n \n\n");

    // A counted block's header is written over at its end, wider when the count is; a discarded
    // block leaves nothing behind.
    CReplyBlock counted(Framing::kCounted);
    std::string many = "+0\n";
    for (int i = 0; i < 12; ++i) counted.Add(many, std::to_string(i));
    counted.Finish(many);
    EXPECT_EQ(many, "+0\n+12\n1:0\n1:1\n1:2\n1:3\n1:4\n1:5\n1:6\n1:7\n1:8\n1:9\n2:10\n2:11\n");
    counted.Add(many, "gone");
    counted.Discard(many);
    counted.Finish(many);
    EXPECT_EQ(many.substr(many.size() - 8), "2:11\n+0\n");
}

}  // namespace
