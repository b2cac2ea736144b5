#include "host/app/Server.h"

#include "host/app/Console.h"
#include "host/app/Endpoint.h"
#include "host/app/LogOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <signal.h>
#include <termios.h>

#include <asio.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_set>

namespace {

LogLevel gLogLevel = LogLevel::kInfo;
constexpr size_t kReadSize = 64 * 1024;

// Blocks SIGINT, SIGTERM and SIGHUP in the calling thread (an ignored SIGHUP blocked is no harm);
// the mask before goes to `before`.
void BlockStopSignals(sigset_t* before) {
    const sigset_t stops = ServerStopSignals(true);
    pthread_sigmask(SIG_BLOCK, &stops, before);
}

// How long a stop waits for answers to standard input still being written.
constexpr auto kStdoutGrace = std::chrono::seconds(2);

// The peer as accepting the connection named it (a client that reset at once has no remote
// address left to ask the socket for).
std::string Peer(const asio::ip::tcp::endpoint& peer) {
    const std::string address = peer.address().to_string();
    return (peer.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(peer.port());
}

class CService;

// One TCP client. Reads while its conversation goes on; writes what it answers in order; drops
// the client whose unread answers pass the output cap.
class CClient : public std::enable_shared_from_this<CClient> {
public:
    CClient(CService& service, asio::ip::tcp::socket socket, std::string peer);
    void Start();
    void Close();
    void Finish(const char* how);  // closes the connection, with its log line

private:
    void Read();
    void Send(std::string& out);
    void Write();
    void WriteSome();
    void ArmIdle();
    void ArmStall();
    void ArmToken();

    CService& m_Service;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Idle;
    asio::steady_timer m_Stall;  // runs while input is held back for unsent answers
    asio::steady_timer m_Token;  // runs until a client that must authenticate has
    CConversation m_Conversation;
    std::string m_Peer;
    std::chrono::steady_clock::time_point m_Opened = std::chrono::steady_clock::now();
    char m_Buffer[kReadSize];
    // The conversation appends its answers here, so that its output cap counts every answer
    // not yet handed to the socket, whichever read it came from.
    std::string m_Pending;  // answers not yet handed to the socket
    std::string m_Writing;  // answers the socket is writing now
    size_t m_WritingFrom = 0;  // what of m_Writing the socket has taken
    bool m_Ending = false;  // the conversation is over: close once everything is written
    // Reading stopped because the answers waiting reached the output cap at the end of a read
    // (within a read, the conversation itself holds the rest back: Paused).
    bool m_HeldBack = false;
    bool m_Reading = false;  // a read is under way: Read starts no second one
    bool m_Closed = false;
    uint64_t m_Written = 0;  // bytes the socket took, to tell a slow reader from one that stopped
};

class CService {
public:
    CService(const ServerOptions& options, CProtocolSession& object, const std::function<void()>& afterMessage)
        : m_Options(options), m_Object(object), m_AfterMessage(afterMessage), m_Signals(m_Io, SIGINT, SIGTERM),
          m_SaveTimer(m_Io), m_ClientOptions(ClientOptions()) {
        if (options.stopOnHangup) m_Signals.add(SIGHUP);
        m_ScheduleSave = [this] { ScheduleSave(); };
    }
    ~CService() { CloseStdin(); }
    const ConversationOptions& ClientConversation() const { return m_ClientOptions; }

    bool Listen(std::string& error);
    int Run();

    asio::io_context& Io() { return m_Io; }
    const ServerOptions& Options() const { return m_Options; }
    CProtocolSession& Object() { return m_Object; }
    const std::function<void()>& AfterMessage() const { return m_ScheduleSave; }
    ConversationOptions ClientOptions() const {
        ConversationOptions options = m_Options.conversation;
        options.pauseAt = m_Options.maxOutput;
        return options;
    }
    void Closed(const std::shared_ptr<CClient>& client) { m_Clients.erase(client); }
    void Refused(const std::string& peer, const std::string& why) {
        unsigned suppressed = 0;
        if (m_RefusalLog.Allow(suppressed))
            ServerLog(LogLevel::kWarn, "refused %s: %s%s", peer.c_str(), why.c_str(), ServerSuppressed(suppressed).c_str());
    }

private:
    void Accept(asio::ip::tcp::acceptor& acceptor);
    void ServeStdin();
    void HandleStdin(const std::string& bytes, bool end);
    void EndStdin(int problem);
    void CloseStdin();
    void ScheduleSave();
    void Stop();

    const ServerOptions& m_Options;
    CProtocolSession& m_Object;
    const std::function<void()>& m_AfterMessage;
    asio::io_context m_Io;
    asio::signal_set m_Signals;
    std::vector<std::unique_ptr<asio::ip::tcp::acceptor>> m_Acceptors;
    std::unique_ptr<CConsole> m_Console;
    std::unordered_set<std::shared_ptr<CClient>> m_Clients;
    CRateLimit m_RefusalLog, m_AcceptLog;
    // Saving is coalesced: at most once per kSavePause, whatever the number of messages.
    asio::steady_timer m_SaveTimer;
    bool m_SavePending = false;
    std::function<void()> m_ScheduleSave;
    ConversationOptions m_ClientOptions;
    // Standard input is read, and its answers written, by a thread of its own with blocking
    // calls; it posts what it read to the loop and writes the answers the loop hands back: the loop
    // never makes the terminal's (shared) files non-blocking, and neither a terminal that waits for
    // a person nor an output nobody reads ever holds the loop up. One read at a time: the thread
    // reads again only once the answers to the last read are written, so that a flood of input
    // neither piles up in memory nor keeps the loop from its clients and signals. `open` is
    // cleared, under the lock, when the loop no longer wants the bytes; the thread posts nothing
    // after that.
    struct StdinFeed {
        std::mutex lock;
        std::condition_variable handled, written;
        bool open = true;
        bool posted = false;   // a read waits for the loop
        std::string answers;   // the loop's answers to it, which the thread writes
        bool goOn = true;      // false once the session ended (its input's end, or a break)
        bool writing = false;  // answers are handed over and not yet written
    };
    std::shared_ptr<StdinFeed> m_StdinFeed;
    std::unique_ptr<CConversation> m_StdinConversation;
};

constexpr auto kSavePause = std::chrono::milliseconds(100);

CClient::CClient(CService& service, asio::ip::tcp::socket socket, std::string peer)
    : m_Service(service),
      m_Socket(std::move(socket)),
      m_Idle(service.Io()),
      m_Stall(service.Io()),
      m_Token(service.Io()),
      m_Conversation(service.Object(), service.ClientConversation(), service.AfterMessage()),
      m_Peer(std::move(peer)) {}

// Records `conversation` when the service records sessions; a failure is logged, never fatal.
void Record(const ServerOptions& options, const ConversationOptions& conversationOptions, CConversation& conversation,
            const std::string& peer) {
    if (options.recordFolder.empty()) return;
    std::string error;
    if (auto transcript = CTranscript::Open(options.recordFolder, peer, conversationOptions, error))
        conversation.Record(std::move(transcript));
    else
        ServerLog(LogLevel::kWarn, "not recording %s: %s", peer.c_str(), error.c_str());
}

void CClient::Start() {
    Record(m_Service.Options(), m_Service.ClientConversation(), m_Conversation, m_Peer);
    asio::error_code ignored;
    m_Socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    m_Socket.non_blocking(true, ignored);  // Write tries the socket at once and must not wait there
    ServerLog(LogLevel::kInfo, "%s connected", m_Peer.c_str());
    ArmIdle();
    ArmToken();
    Read();
}

// A client that must authenticate has ServerOptions::TokenSeconds from its connection to do it,
// whatever it sends meanwhile.
void CClient::ArmToken() {
    if (m_Service.Options().conversation.token.empty()) return;
    const unsigned seconds = m_Service.Options().TokenSeconds();
    m_Token.expires_after(std::chrono::seconds(seconds));
    m_Token.async_wait([self = shared_from_this(), seconds](const asio::error_code& error) {
        if (error || self->m_Closed || self->m_Ending) return;
        std::string out;
        if (!self->m_Conversation.EndUnauthenticated("no token within " + std::to_string(seconds) + " s", out)) return;
        self->m_Ending = true;
        self->Send(out);
    });
}

void CClient::ArmIdle() {
    if (m_Service.Options().idleSeconds == 0) return;
    m_Idle.expires_after(std::chrono::seconds(m_Service.Options().idleSeconds));
    m_Idle.async_wait([self = shared_from_this(), written = m_Written](const asio::error_code& error) {
        if (error || self->m_Closed) return;
        if (self->m_Conversation.AwaitsToken()) return;  // ArmToken's timer comes first and says why
        // A client owed answers that takes some of them in the time is not idle, though it sends
        // nothing meanwhile (its input is held back until they are out).
        const bool owed = !self->m_Pending.empty() || !self->m_Writing.empty();
        if (owed && self->m_Written != written) return self->ArmIdle();
        self->Finish("idle timeout");
    });
}

void CClient::Read() {
    // Write may take up held-back input, and read again, while a read's answers are being written.
    if (m_Reading) return;
    m_Reading = true;
    m_Socket.async_read_some(asio::buffer(m_Buffer), [self = shared_from_this()](const asio::error_code& error, size_t n) {
        self->m_Reading = false;
        if (self->m_Closed) return;
        if (error == asio::error::eof) {
            // The client is done sending; it may still read the answer to a last line without
            // its line end.
            std::string out;
            self->m_Conversation.End(out);
            self->m_Ending = true;
            return self->Send(out);
        }
        if (error) return self->Finish("connection lost");
        self->ArmIdle();
        const bool goOn = self->m_Conversation.Feed(std::string_view(self->m_Buffer, n), self->m_Pending);
        ServerLog(LogLevel::kDebug, "%s: %zu bytes read, %llu messages so far, %zu bytes of answers to send",
                  self->m_Peer.c_str(), n, static_cast<unsigned long long>(self->m_Conversation.Messages()),
                  self->m_Pending.size());
        if (!goOn) {
            self->m_Ending = true;
            const std::string& why = self->m_Conversation.Ending();
            if (why.rfind("this is a line protocol", 0) == 0) self->m_Service.Refused(self->m_Peer, why);
        }
        if (self->m_Writing.empty()) self->Write();
        if (!goOn || self->m_Closed) return;
        if (self->m_Conversation.Paused()) return self->ArmStall();  // Write resumes it
        if (self->m_Pending.size() >= self->m_Service.Options().maxOutput) {
            self->m_HeldBack = true;  // Write reads again once the answers are out
            return self->ArmStall();
        }
        self->Read();
    });
}

// A client whose input is held back is dropped when the socket takes none of its answers for the
// stall time.
void CClient::ArmStall() {
    m_Stall.expires_after(std::chrono::seconds(m_Service.Options().stallSeconds));
    m_Stall.async_wait([self = shared_from_this(), written = m_Written](const asio::error_code& error) {
        if (error || self->m_Closed || !(self->m_Conversation.Paused() || self->m_HeldBack)) return;
        if (self->m_Written == written) return self->Finish("dropped: it does not read its answers");
        self->ArmStall();
    });
}

void CClient::Send(std::string& out) {
    if (m_Closed) return;
    m_Pending += out;
    if (m_Writing.empty()) Write();
}

void CClient::Write() {
    for (;;) {
        if (m_Pending.empty() && m_Conversation.Paused() && !m_Ending) {
            // Everything held back so far is sent: take up the input again.
            const bool goOn = m_Conversation.Resume(m_Pending);
            if (!goOn) m_Ending = true;
            if (goOn && !m_Conversation.Paused()) Read();
        } else if (m_Pending.empty() && m_HeldBack && !m_Ending) {
            m_HeldBack = false;
            Read();
        }
        if (m_Pending.empty()) {
            if (m_Ending) Finish(m_Conversation.Ending().c_str());
            return;
        }
        // The socket mostly takes the answers at once: they are written now, and only what it
        // leaves waits for an asynchronous write.
        asio::error_code error;
        const size_t taken = m_Socket.write_some(asio::buffer(m_Pending), error);
        if (error && error != asio::error::would_block && error != asio::error::try_again) return Finish("connection lost");
        m_Written += taken;
        if (taken < m_Pending.size()) {
            m_Pending.erase(0, taken);
            break;
        }
        m_Pending.clear();
    }
    m_Writing.swap(m_Pending);  // the two trade their room: neither grows again for ordinary answers
    m_WritingFrom = 0;
    WriteSome();
}

// Hands the socket what it has not taken of m_Writing, counting every part it takes, so that the
// idle and stall timers see a client that reads slowly make progress.
void CClient::WriteSome() {
    const asio::const_buffer rest(m_Writing.data() + m_WritingFrom, m_Writing.size() - m_WritingFrom);
    m_Socket.async_write_some(rest, [self = shared_from_this()](const asio::error_code& error, size_t taken) {
        if (self->m_Closed) return;
        self->m_Written += taken;
        self->m_WritingFrom += taken;
        if (error) return self->Finish("connection lost");
        if (self->m_WritingFrom < self->m_Writing.size()) return self->WriteSome();
        self->m_Writing.clear();
        if (self->m_Writing.capacity() > kReadSize) std::string().swap(self->m_Writing);  // after a burst
        self->Write();
    });
}

void CClient::Finish(const char* how) {
    if (m_Closed) return;
    m_Closed = true;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Opened).count();
    const LogLevel level = std::strcmp(how, kAuthenticationFailed) == 0 ? LogLevel::kWarn : LogLevel::kInfo;
    const uint64_t messages = m_Conversation.Messages();
    ServerLog(level, "%s disconnected after %.3f s, %llu message%s: %s", m_Peer.c_str(), seconds,
              static_cast<unsigned long long>(messages), messages == 1 ? "" : "s", how);
    Close();
    m_Service.Closed(shared_from_this());
}

void CClient::Close() {
    m_Closed = true;
    asio::error_code ignored;
    m_Idle.cancel();
    m_Stall.cancel();
    m_Token.cancel();
    m_Socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    m_Socket.close(ignored);
}

bool CService::Listen(std::string& error) {
    for (const std::string& text : m_Options.listen) {
        asio::ip::tcp::endpoint endpoint;
        if (!ServerEndpoint(text, endpoint, error)) return error = "--listen " + error, false;
        const asio::ip::address ip = endpoint.address();
        asio::error_code problem;
        auto acceptor = std::make_unique<asio::ip::tcp::acceptor>(m_Io);
        acceptor->open(endpoint.protocol(), problem);
        if (!problem) acceptor->set_option(asio::ip::tcp::acceptor::reuse_address(true), problem);
        // [::] is every interface, IPv4 included; any other IPv6 address is that address alone.
        if (!problem && ip.is_v6()) acceptor->set_option(asio::ip::v6_only(!ip.is_unspecified()), problem);
        if (!problem) acceptor->bind(endpoint, problem);
        if (!problem) acceptor->listen(asio::socket_base::max_listen_connections, problem);
        if (problem) return error = "--listen " + text + ": " + problem.message(), false;
        const asio::ip::tcp::endpoint bound = acceptor->local_endpoint(problem);
        ServerLog(LogLevel::kInfo, "listening on %s%s%s:%u", ip.is_v6() ? "[" : "", ip.to_string().c_str(),
                  ip.is_v6() ? "]" : "", static_cast<unsigned>(bound.port()));
        ServerWarnIfOpen("--listen", text, ip, !m_Options.conversation.token.empty());
        m_Acceptors.push_back(std::move(acceptor));
    }
    if (!m_Options.http.empty() && m_Options.workspace != nullptr) {
        m_Console = ConsoleStart(m_Io, m_Options, m_Object, m_ScheduleSave, error);
        if (!m_Console) return false;
    }
    return true;
}

void CService::Accept(asio::ip::tcp::acceptor& acceptor) {
    auto peer = std::make_shared<asio::ip::tcp::endpoint>();
    acceptor.async_accept(*peer, [this, &acceptor, peer](const asio::error_code& error, asio::ip::tcp::socket socket) {
        if (!acceptor.is_open()) return;
        if (!error) {
            if (m_Clients.size() >= m_Options.maxClients) {
                std::string out;
                FrameError(m_Options.conversation.framing, "too many clients", out);
                asio::error_code ignored;
                socket.non_blocking(true, ignored);
                asio::write(socket, asio::buffer(out), ignored);
                Refused(Peer(*peer), "already " + std::to_string(m_Clients.size()) +
                                            (m_Clients.size() == 1 ? " client" : " clients") + " (--max-clients)");
                socket.close(ignored);
            } else {
                auto client = std::make_shared<CClient>(*this, std::move(socket), Peer(*peer));
                m_Clients.insert(client);
                client->Start();
            }
        } else if (error != asio::error::operation_aborted) {
            // Out of file descriptors, say: try again a little later rather than spin, and say so
            // at most once a second.
            unsigned suppressed = 0;
            if (m_AcceptLog.Allow(suppressed))
                ServerLog(LogLevel::kWarn, "accepting failed: %s%s", error.message().c_str(),
                          ServerSuppressed(suppressed, "failure").c_str());
            auto pause = std::make_shared<asio::steady_timer>(m_Io, std::chrono::milliseconds(100));
            pause->async_wait([this, &acceptor, pause](const asio::error_code&) {
                if (acceptor.is_open()) Accept(acceptor);
            });
            return;
        }
        Accept(acceptor);
    });
}

void CService::ServeStdin() {
    // A background job never reads its terminal: that would stop the whole program.
    if (isatty(STDIN_FILENO) && tcgetpgrp(STDIN_FILENO) != getpgrp()) {
        ServerLog(LogLevel::kInfo, "standard input is the terminal of another job: not served");
        return;
    }
    m_StdinConversation = std::make_unique<CConversation>(m_Object, m_Options.stdinConversation, m_ScheduleSave);
    Record(m_Options, m_Options.stdinConversation, *m_StdinConversation, "stdin");
    std::string prompt;  // what follows every answer (the prompt) comes before the first message too
    if (m_Options.stdinConversation.afterAnswer) m_Options.stdinConversation.afterAnswer(prompt);
    signal(SIGTTIN, SIG_IGN);  // should the job go to the background later, reading fails instead
    auto feed = m_StdinFeed = std::make_shared<StdinFeed>();
    // The thread takes no stop signal: they reach the loop, and never interrupt its reads and writes.
    sigset_t before;
    BlockStopSignals(&before);
    std::thread([this, feed, answers = std::move(prompt)]() mutable {
        std::string chunk;
        for (;;) {
            // The answers to the last read (or the first prompt) are written here, off the loop:
            // an output nobody reads stalls this session only, never the network or a stop.
            const int problem = ServerWriteStdout(answers);
            answers.clear();
            std::unique_lock<std::mutex> hold(feed->lock);
            feed->writing = false;
            feed->written.notify_all();
            if (!feed->open) return;
            if (problem != 0 || !feed->goOn) {
                asio::post(m_Io, [this, problem] { EndStdin(problem); });
                return;
            }
            hold.unlock();
            chunk.resize(kReadSize);
            const ssize_t n = read(STDIN_FILENO, chunk.data(), chunk.size());
            if (n < 0 && errno == EINTR) continue;
            const int unreadable = n < 0 ? errno : 0;
            chunk.resize(n > 0 ? static_cast<size_t>(n) : 0);
            const bool end = n <= 0;
            hold.lock();
            if (!feed->open) return;
            if (unreadable != 0)
                asio::post(m_Io, [unreadable] {
                    ServerLog(LogLevel::kError, "cannot read standard input: %s", std::strerror(unreadable));
                });
            feed->posted = true;
            asio::post(m_Io, [this, bytes = std::move(chunk), end] { HandleStdin(bytes, end); });
            feed->handled.wait(hold, [&] { return !feed->posted || !feed->open; });
            if (feed->posted) return;  // closed before the loop took the bytes: nothing to answer
            answers = std::move(feed->answers);
            feed->answers.clear();
        }
    }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void CService::HandleStdin(const std::string& bytes, bool end) {
    // Bytes the reader posted before standard input was closed are not fed: nothing read after
    // the session ended reaches the object.
    if (!m_StdinConversation || !m_StdinFeed) return;
    std::string out;
    const bool goOn = !end && m_StdinConversation->Feed(bytes, out);
    if (end) m_StdinConversation->End(out);
    std::lock_guard<std::mutex> hold(m_StdinFeed->lock);
    m_StdinFeed->answers = std::move(out);  // for the reader thread to write
    m_StdinFeed->goOn = goOn;
    m_StdinFeed->writing = true;
    m_StdinFeed->posted = false;
    m_StdinFeed->handled.notify_one();
}

// The session on standard input is over: its input ended or asked to break (`problem` 0), or its
// answers could not be written. The network goes on; without it, the host stops.
void CService::EndStdin(int problem) {
    if (!m_StdinFeed) return;
    if (problem == EPIPE) ServerLog(LogLevel::kInfo, "standard output is closed: standard input is no longer read");
    else if (problem != 0) ServerLog(LogLevel::kError, "cannot write standard output: %s; standard input is no longer read", std::strerror(problem));
    CloseStdin();
    if (m_Acceptors.empty() && !m_Console) Stop();
}

void CService::CloseStdin() {
    if (m_StdinFeed) {
        std::unique_lock<std::mutex> hold(m_StdinFeed->lock);
        m_StdinFeed->open = false;
        m_StdinFeed->handled.notify_one();
        // Answers being written go out first, for at most kStdoutGrace.
        m_StdinFeed->written.wait_for(hold, kStdoutGrace, [this] { return !m_StdinFeed->writing; });
    }
    m_StdinFeed.reset();
}

void CService::ScheduleSave() {
    if (m_SavePending || !m_AfterMessage) return;
    m_SavePending = true;
    m_SaveTimer.expires_after(kSavePause);
    m_SaveTimer.async_wait([this](const asio::error_code& error) {
        m_SavePending = false;
        if (!error) m_AfterMessage();
    });
}

void CService::Stop() {
    asio::error_code ignored;
    for (auto& acceptor : m_Acceptors) acceptor->close(ignored);
    std::unordered_set<std::shared_ptr<CClient>> clients;
    clients.swap(m_Clients);  // each one closing takes itself out of m_Clients
    for (const auto& client : clients) client->Finish("the service stops");
    m_Signals.cancel(ignored);
    // The signal set gives the stop signals back to their default action when it goes, and a
    // stop may come twice (to the process, then to its group): from here on they wait, blocked,
    // for the program to take them back.
    BlockStopSignals(nullptr);
    m_SaveTimer.cancel();
    CloseStdin();
    // The loop runs on until the tabs' close frames are out (a second at most).
    if (m_Console) m_Console->Stop([this] { m_Io.stop(); });
    else m_Io.stop();
}

int CService::Run() {
    m_Signals.async_wait([this](const asio::error_code& error, int signal) {
        if (error) return;
        ServerLog(LogLevel::kInfo, "%s: stopping", signal == SIGINT ? "SIGINT" : signal == SIGHUP ? "SIGHUP" : "SIGTERM");
        Stop();
    });
    // A stop signal that came while the program started (before the signal set took them over)
    // stops the service as soon as it runs.
    if (m_Options.stopNoted != nullptr && *m_Options.stopNoted != 0)
        asio::post(m_Io, [this] {
            ServerLog(LogLevel::kInfo, "a stop signal came while starting: stopping");
            Stop();
        });
    for (auto& acceptor : m_Acceptors) Accept(*acceptor);
    if (m_Options.serveStdin) ServeStdin();
    m_Io.run();
    return 0;
}

}  // namespace

void ServerSetLogLevel(LogLevel level) { gLogLevel = level; }

bool CRateLimit::Allow(unsigned& suppressed) {
    const auto now = std::chrono::steady_clock::now();
    if (now - m_Last < std::chrono::seconds(1)) return ++m_Suppressed, false;
    m_Last = now;
    suppressed = m_Suppressed;
    m_Suppressed = 0;
    return true;
}

int ServerWriteStdout(const std::string& out) {
    // Straight to the descriptor, not through stdio: a write that blocks must not hold the stream's
    // lock, which the program's exit takes to flush it.
    for (size_t done = 0; done < out.size();) {
        const ssize_t n = write(STDOUT_FILENO, out.data() + done, out.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n < 0 ? errno : EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

sigset_t ServerStopSignals(bool hangup) {
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    if (hangup) sigaddset(&stops, SIGHUP);
    return stops;
}

std::string ServerSuppressed(unsigned suppressed, const char* what) {
    if (suppressed == 0) return std::string();
    return " (" + std::to_string(suppressed) + " more " + what + (suppressed == 1 ? "" : "s") + " not shown)";
}

namespace {

// Whether standard error is the systemd journal's stream: $JOURNAL_STREAM names its device and
// inode as "DEV:INO" when the service manager connected it.
bool LogToJournal() {
    const char* named = std::getenv("JOURNAL_STREAM");
    struct stat status;
    if (named == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
    const std::string own = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    return own == named;
}

// "TIME wks-host LEVEL: text" and a line feed, into `line`; its length. The journal keeps the
// time itself and reads the level from a "<N>" syslog priority in front instead.
size_t ComposeLogLine(char (&line)[1152], LogLevel level, const char* text) {
    static const char* const kNames[] = {"debug", "info", "warning", "error"};
    static const char* const kPriorities[] = {"<7>", "<6>", "<4>", "<3>"};
    static const bool journal = LogToJournal();
    char stamp[32];
    if (journal) {
        std::strcpy(stamp, kPriorities[static_cast<int>(level)]);
    } else {
        const std::time_t now = std::time(nullptr);
        std::tm local;
        localtime_r(&now, &local);
        std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S%z ", &local);
    }
    const int n = std::snprintf(line, sizeof line, "%swks-host %s: %s\n", stamp, kNames[static_cast<int>(level)], text);
    return n < 0 ? 0 : std::min(static_cast<size_t>(n), sizeof line - 1);
}

}  // namespace

void ServerLog(LogLevel level, const char* format, ...) {
    if (level < gLogLevel) return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // Lines that found standard error full (nobody reads it) are counted, and the count goes
    // first once a line gets through again.
    static std::atomic<unsigned long> dropped{0};
    char line[1152];
    if (const unsigned long before = dropped.exchange(0); before != 0) {
        char note[96];
        std::snprintf(note, sizeof note, "%lu log lines dropped: standard error was not read", before);
        if (!LogOutputWrite(line, ComposeLogLine(line, LogLevel::kWarn, note))) {
            dropped += before + 1;
            return;
        }
    }
    if (!LogOutputWrite(line, ComposeLogLine(line, level, text))) ++dropped;
}

int ServerRun(const ServerOptions& options, CProtocolSession& object, const std::function<void()>& afterMessage,
              std::string& error) {
    try {
        CService service(options, object, afterMessage);
        if (!service.Listen(error)) return 1;
        return service.Run();
    } catch (const std::exception& problem) {
        error = problem.what();
        return 1;
    }
}
