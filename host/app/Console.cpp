#include "host/app/Console.h"

#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <nlohmann/json.hpp>

#include "host/app/ConsoleModel.h"
#include "host/app/Conversation.h"
#include "host/app/Endpoint.h"
#include "host/app/Server.h"

using nlohmann::json;

// The page and its assets, compiled in (ConsoleAssets.cpp.in).
extern const char kConsolePage[];
extern const char kConsoleStyle[];
extern const char kConsoleScript[];

namespace {

using WsServer = websocketpp::server<websocketpp::config::asio>;
using Handle = websocketpp::connection_hdl;

// Changes reach every tab within kRefresh, and a tab's own change within kSoon; but the refreshes
// take at most a kLoopShare-th of the loop: after one that took T, the next waits (kLoopShare - 1) T,
// so that a very large workspace slows its tabs rather than the TCP clients.
constexpr auto kRefresh = std::chrono::milliseconds(250);
constexpr auto kSoon = std::chrono::milliseconds(20);
constexpr int kLoopShare = 20;
// A line frame holds a line of --max-line bytes however it is escaped (a control byte becomes the
// six bytes \u001f), beside the frame's own fields.
constexpr size_t kEscapedByte = 6;
constexpr size_t kFrameFields = 4096;
constexpr auto kWatch = std::chrono::seconds(1);      // how often the tabs' timeouts are looked at
constexpr auto kStopGrace = std::chrono::seconds(1);   // for the tabs' close frames when the service stops
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
constexpr const char* kStops = "the service stops";

// A frame's item or index, which is any JSON integer; false for one beyond 64 bits, which names
// no item either.
bool FrameNumber(const nlohmann::json& number, int64_t& value) {
    if (number.is_number_unsigned() && number.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) return false;
    value = number.get<int64_t>();
    return true;
}

struct Asset {
    const char* path;
    const char* type;
    const char* body;
};
const Asset kAssets[] = {
    {"/", "text/html; charset=utf-8", kConsolePage},
    {"/app.css", "text/css; charset=utf-8", kConsoleStyle},
    {"/app.js", "text/javascript; charset=utf-8", kConsoleScript},
};

// The replies of one block of the counted framing ("+N\n", then N times "LEN:bytes\n"); false for
// anything else (an error line).
bool ParseBlock(const std::string& out, std::vector<std::string>& replies) {
    size_t at = 0;
    auto number = [&](char end, size_t& value) {
        const size_t stop = out.find(end, at);
        if (stop == std::string::npos || stop == at || stop - at > 9) return false;
        value = 0;
        for (size_t i = at; i < stop; ++i) {
            if (out[i] < '0' || out[i] > '9') return false;
            value = value * 10 + static_cast<size_t>(out[i] - '0');
        }
        at = stop + 1;
        return true;
    };
    size_t count = 0;
    if (out.empty() || out[0] != '+') return false;
    ++at;
    if (!number('\n', count)) return false;
    for (size_t i = 0; i < count; ++i) {
        size_t length = 0;
        if (!number(':', length) || at + length + 1 > out.size() || out[at + length] != '\n') return false;
        replies.push_back(out.substr(at, length));
        at += length + 1;
    }
    return at == out.size();
}

// A Host header that names this machine by address or as localhost, with or without a port.
bool LocalName(const std::string& host) {
    std::string name = host;
    if (!name.empty() && name.front() == '[') {
        const size_t close = name.find(']');
        if (close == std::string::npos) return false;
        name = name.substr(1, close - 1);
    } else if (const size_t colon = name.rfind(':'); colon != std::string::npos) {
        name = name.substr(0, colon);
    }
    asio::error_code notAddress;
    asio::ip::make_address(name, notAddress);
    return !notAddress || strcasecmp(name.c_str(), "localhost") == 0;
}

class CConsoleService final : public CConsole {
public:
    CConsoleService(asio::io_context& io, const ServerOptions& options, CProtocolSession& object,
                    std::function<void()> afterChange)
        : m_Io(io), m_Object(object), m_Workspace(*options.workspace), m_Options(options.conversation),
          m_MaxTabs(options.maxClients), m_Idle(std::chrono::seconds(options.idleSeconds)),
          m_TokenTime(options.TokenSeconds()),
          m_Stall(std::chrono::seconds(options.stallSeconds)), m_MaxOutput(options.maxOutput),
          m_MaxFrame(options.conversation.maxLine * kEscapedByte + kFrameFields),
          m_AfterChange(std::move(afterChange)), m_Timer(io), m_Soon(io), m_Watch(io) {
        m_Options.framing = Framing::kCounted;
        m_Options.guard = false;  // the handshake has already told HTTP from the rest
        m_Options.pauseAt = 0;
    }

    bool Listen(const std::vector<std::string>& endpoints, std::string& error);
    void Stop(std::function<void()> stopped) override;

private:
    using Clock = std::chrono::steady_clock;
    struct Tab {
        WsServer* server;
        std::string peer;
        Clock::time_point opened = Clock::now();
        Clock::time_point heard = opened;  // the last frame from the tab
        Clock::time_point moved = opened;  // the last time it had read every frame, or answered a ping
        uint64_t sent = 0;                 // bytes of frames sent to it
        size_t allowed = 0;                // bytes that may wait beyond --max-output: its first tree and pages
        uint64_t read = 0;                 // of those, what the tab is known to have read (its last pong)
        uint64_t pinged = 0;               // what was sent before the ping waiting for its pong
        bool pinging = false;
        std::string ending = "closed by the browser";
        std::unique_ptr<CConversation> conversation;
        bool ready = false;
        bool closing = false;
    };

    void Serve(WsServer& server, Handle handle);
    bool Accept(WsServer& server, Handle handle);
    void Open(WsServer& server, Handle handle);
    void Close(Handle handle);
    void Receive(Handle handle, const std::string& payload);
    void Send(Handle handle, Tab& tab, const std::string& text);
    void Refuse(Handle handle, Tab& tab, const std::string& why);
    void End(Handle handle, Tab& tab, websocketpp::close::status::value code, const std::string& ending);
    void Drop(Handle handle, Tab& tab, const std::string& ending);
    void Ready(Handle handle, Tab& tab);
    void Refresh();
    Clock::time_point NextRefresh() const { return m_RefreshEnd + m_RefreshCost * (kLoopShare - 1); }
    void RefreshSoon();
    void Tick();
    void Watch();
    void Stopped();

    asio::io_context& m_Io;
    CProtocolSession& m_Object;
    const Workspace& m_Workspace;
    ConversationOptions m_Options;  // the conversations keep a reference to it
    size_t m_MaxTabs;
    std::chrono::seconds m_Idle;       // 0: none
    std::chrono::seconds m_TokenTime;  // with a token, a tab's time to give it
    std::chrono::seconds m_Stall;
    size_t m_MaxOutput;
    size_t m_MaxFrame;
    std::function<void()> m_AfterChange;
    std::unique_ptr<CConsoleTree> m_Tree;  // made when the first tab is ready
    uint64_t m_TreeChanges = 0;            // the workspace's change count when m_Tree took its values
    Clock::time_point m_RefreshEnd{};
    Clock::duration m_RefreshCost{};
    asio::steady_timer m_Timer;  // the refresh period; when stopping, the grace for the tabs' close frames
    asio::steady_timer m_Soon;   // armed by a change a tab made: one refresh for a burst of them
    asio::steady_timer m_Watch;
    bool m_SoonArmed = false;
    std::vector<std::unique_ptr<WsServer>> m_Servers;
    std::set<const WsServer*> m_Loopback;  // the servers bound to a loopback address
    CRateLimit m_RefusalLog;
    std::map<Handle, Tab, std::owner_less<Handle>> m_Tabs;
    std::string m_Pages;  // as last sent to the tabs
    bool m_Stopped = false;
    std::function<void()> m_Stopping;  // runs once the tabs are closed after Stop
};

bool CConsoleService::Listen(const std::vector<std::string>& endpoints, std::string& error) {
    for (const std::string& text : endpoints) {
        asio::ip::tcp::endpoint endpoint;
        if (!ServerEndpoint(text, endpoint, error)) return error = "--http " + error, false;
        const asio::ip::address ip = endpoint.address();
        asio::error_code problem;
        auto server = std::make_unique<WsServer>();
        WsServer& s = *server;
        s.clear_access_channels(websocketpp::log::alevel::all);
        s.clear_error_channels(websocketpp::log::elevel::all);
        s.init_asio(&m_Io, problem);
        s.set_reuse_addr(true);
        s.set_user_agent("wks-host");
        s.set_max_message_size(m_MaxFrame);
        s.set_http_handler([this, &s](Handle handle) { Serve(s, handle); });
        s.set_validate_handler([this, &s](Handle handle) { return Accept(s, handle); });
        s.set_open_handler([this, &s](Handle handle) { Open(s, handle); });
        s.set_close_handler([this](Handle handle) { Close(handle); });
        s.set_pong_handler([this](Handle handle, std::string) {
            auto tab = m_Tabs.find(handle);
            if (tab == m_Tabs.end()) return;
            tab->second.read = tab->second.pinged;
            tab->second.pinging = false;
            tab->second.moved = Clock::now();
        });
        s.set_fail_handler([this](Handle handle) { m_Tabs.erase(handle); });
        s.set_message_handler([this](Handle handle, WsServer::message_ptr message) {
            if (message->get_opcode() != websocketpp::frame::opcode::text) {
                auto tab = m_Tabs.find(handle);
                if (tab != m_Tabs.end()) Refuse(handle, tab->second, "frames are JSON text");
                return;
            }
            Receive(handle, message->get_payload());
        });
        if (!problem) s.listen(endpoint, problem);
        if (!problem) s.start_accept(problem);
        if (problem) return error = "--http " + text + ": " + problem.message(), false;
        const asio::ip::tcp::endpoint bound = s.get_local_endpoint(problem);
        const std::string host = (ip.is_v6() ? "[" + ip.to_string() + "]" : ip.to_string()) + ":" + std::to_string(bound.port());
        ServerLog(LogLevel::kInfo, "http console on http://%s/", host.c_str());
        ServerWarnIfOpen("--http", text, ip, !m_Options.token.empty());
        if (ip.is_loopback()) m_Loopback.insert(&s);
        m_Servers.push_back(std::move(server));
    }
    Tick();
    Watch();
    return true;
}

void CConsoleService::Serve(WsServer& server, Handle handle) {
    WsServer::connection_ptr connection = server.get_con_from_hdl(handle);
    connection->append_header("Content-Security-Policy", kPolicy);
    connection->append_header("X-Content-Type-Options", "nosniff");
    connection->append_header("Referrer-Policy", "no-referrer");
    connection->append_header("Cache-Control", "no-store");
    const std::string& method = connection->get_request().get_method();
    // A query (a cache buster, say) asks for the same asset.
    const std::string& resource = connection->get_resource();
    const std::string_view path = std::string_view(resource).substr(0, resource.find('?'));
    for (const Asset& asset : kAssets) {
        if (path != asset.path) continue;
        if (method != "GET" && method != "HEAD") {
            connection->set_status(websocketpp::http::status_code::method_not_allowed);
            connection->append_header("Allow", "GET, HEAD");
            return;
        }
        connection->set_status(websocketpp::http::status_code::ok);
        connection->append_header("Content-Type", asset.type);
        connection->set_body(method == "HEAD" ? std::string() : std::string(asset.body));
        return;
    }
    connection->set_status(websocketpp::http::status_code::not_found);
    connection->append_header("Content-Type", "text/plain; charset=utf-8");
    connection->set_body("not found\n");
}

bool CConsoleService::Accept(WsServer& server, Handle handle) {
    WsServer::connection_ptr connection = server.get_con_from_hdl(handle);
    const std::string host = connection->get_request_header("Host");
    if (connection->get_resource() != "/ws") {
        connection->set_status(websocketpp::http::status_code::not_found);
        return false;
    }
    if (m_Stopped) {
        connection->set_status(websocketpp::http::status_code::service_unavailable);
        return false;
    }
    // On a loopback address the page is reached by address or as localhost: any other name in
    // Host is a name that was made to point here (DNS rebinding), however well it matches Origin.
    unsigned suppressed = 0;
    if (m_Loopback.count(&server) != 0 && !LocalName(host)) {
        if (m_RefusalLog.Allow(suppressed))
            ServerLog(LogLevel::kWarn, "refused a console socket for host '%s' (a loopback console answers to its "
                      "address or localhost)%s", host.c_str(), ServerSuppressed(suppressed).c_str());
        connection->set_status(websocketpp::http::status_code::forbidden);
        return false;
    }
    if (host.empty() || connection->get_request_header("Origin") != "http://" + host) {
        if (m_RefusalLog.Allow(suppressed))
            ServerLog(LogLevel::kWarn, "refused a console socket from origin '%s' (not the page's own, http://%s)%s",
                      connection->get_request_header("Origin").c_str(), host.c_str(), ServerSuppressed(suppressed).c_str());
        connection->set_status(websocketpp::http::status_code::forbidden);
        return false;
    }
    if (m_Tabs.size() >= m_MaxTabs) {
        if (m_RefusalLog.Allow(suppressed))
            ServerLog(LogLevel::kWarn, "refused a console socket: already %zu tab%s (--max-clients)%s", m_Tabs.size(),
                      m_Tabs.size() == 1 ? "" : "s", ServerSuppressed(suppressed).c_str());
        connection->set_status(websocketpp::http::status_code::service_unavailable);
        return false;
    }
    return true;
}

void CConsoleService::Open(WsServer& server, Handle handle) {
    Tab& tab = m_Tabs[handle];
    tab.server = &server;
    tab.peer = server.get_con_from_hdl(handle)->get_remote_endpoint();
    ServerLog(LogLevel::kInfo, "console tab %s connected", tab.peer.c_str());
    tab.conversation = std::make_unique<CConversation>(m_Object, m_Options, m_AfterChange);
    Send(handle, tab, json{{"type", "hello"}, {"auth", !m_Options.token.empty()}, {"version", WKS_VERSION}}.dump());
    if (m_Options.token.empty()) Ready(handle, tab);
}

void CConsoleService::Close(Handle handle) {
    auto found = m_Tabs.find(handle);
    if (found == m_Tabs.end()) return;
    Tab& tab = found->second;
    // A frame websocketpp refused (too large, or breaking the protocol) closes the tab with no
    // word from us: its close code says why.
    std::error_code problem;
    WsServer::connection_ptr connection = tab.server->get_con_from_hdl(handle, problem);
    if (!tab.closing && !problem) {
        namespace status = websocketpp::close::status;
        const status::value code = connection->get_local_close_code();
        const std::string& reason = connection->get_local_close_reason();
        const std::string tooBig =
            websocketpp::processor::error::make_error_code(websocketpp::processor::error::message_too_big).message();
        if (code == status::message_too_big && reason == tooBig)
            tab.ending = "refused: a frame of more than " + std::to_string(m_MaxFrame) + " bytes (--max-line " +
                         std::to_string(m_Options.maxLine) + ")";
        else if (code == status::protocol_error || code == status::invalid_payload)
            tab.ending = "refused: " + reason;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tab.opened).count();
    const uint64_t messages = tab.conversation ? tab.conversation->Messages() : 0;
    // A wrong token is worth a warning, as on the network: someone may be guessing.
    const bool guessed = tab.ending == std::string("refused: ") + kAuthenticationFailed;
    const LogLevel level = guessed ? LogLevel::kWarn : LogLevel::kInfo;
    ServerLog(level, "console tab %s disconnected after %.3f s, %llu message%s: %s", tab.peer.c_str(), seconds,
              static_cast<unsigned long long>(messages), messages == 1 ? "" : "s", tab.ending.c_str());
    m_Tabs.erase(found);
    if (m_Stopping && m_Tabs.empty()) {
        m_Timer.cancel();
        Stopped();
    }
}

void CConsoleService::Ready(Handle handle, Tab& tab) {
    // The tabs already open get what changed since their last refresh first: the tree and pages
    // kept are then the ones every tab shows, the newcomer's included.
    Refresh();
    if (!m_Tree) {
        m_TreeChanges = m_Workspace.log.changes;
        m_Tree = std::make_unique<CConsoleTree>(m_Workspace);
    }
    tab.ready = true;
    // The whole tree may wait on top of --max-output: a workspace larger than that still shows.
    tab.allowed += m_Tree->Whole().size() + m_Pages.size();
    Send(handle, tab, "{\"type\":\"ready\"}");
    Send(handle, tab, m_Tree->Whole());
    Send(handle, tab, m_Pages);
}

void CConsoleService::Receive(Handle handle, const std::string& payload) {
    auto found = m_Tabs.find(handle);
    if (found == m_Tabs.end() || found->second.closing) return;
    Tab& tab = found->second;
    tab.heard = Clock::now();
    const json frame = json::parse(payload, nullptr, false);
    const std::string type = frame.is_object() && frame.contains("type") && frame["type"].is_string() ? frame["type"].get<std::string>() : "";
    if (type == "auth" && !tab.ready && frame.contains("token") && frame["token"].is_string()) {
        // The token is one line of the conversation: one with a line end in it could smuggle a command in.
        const std::string token = frame["token"].get<std::string>();
        std::string out;
        if (token.find_first_of("\r\n") == std::string::npos && tab.conversation->Feed("AUTH " + token + "\n", out) &&
            out == "+0\n")
            return Ready(handle, tab);
        return Refuse(handle, tab, kAuthenticationFailed);
    }
    if (!tab.ready) return Refuse(handle, tab, "authenticate first");
    std::string error;
    if (type == "line" && frame.contains("id") && frame["id"].is_number_integer() && frame.contains("text") && frame["text"].is_string()) {
        const std::string text = frame["text"].get<std::string>();
        if (text.find_first_of("\r\n") != std::string::npos) return Refuse(handle, tab, "a line holds no line end");
        std::string out;
        const bool goOn = tab.conversation->Feed(text + "\n", out);
        std::vector<std::string> replies;
        const bool ended = tab.conversation->Ending() == "break";
        if (!goOn && !ended) return Refuse(handle, tab, tab.conversation->Ending());
        if (!ended && !ParseBlock(out, replies)) return Refuse(handle, tab, "the answer could not be read");
        json failed = json::array();
        for (const std::string& reply : replies) failed.push_back(reply == "?");
        Send(handle, tab, json{{"type", "reply"}, {"id", frame["id"]}, {"replies", replies}, {"failed", failed}, {"ended", ended}}
                              .dump(-1, ' ', false, json::error_handler_t::replace));
        RefreshSoon();
        if (ended) End(handle, tab, websocketpp::close::status::normal, "break");
        return;
    }
    if (type == "control" && frame.contains("item") && frame["item"].is_number_integer() && frame.contains("value") &&
        (frame["value"].is_number() || frame["value"].is_string())) {
        int64_t item = 0;
        if (!FrameNumber(frame["item"], item)) error = "no setting " + frame["item"].dump();
        if (!error.empty() || !ConsoleControl(m_Object.Manager(), item, frame["value"], error))
            return Send(handle, tab, json{{"type", "error"}, {"text", error}, {"item", frame["item"]}}.dump());
    } else if (type == "parameter" && frame.contains("index") && frame["index"].is_number_integer() && frame.contains("value") &&
               frame["value"].is_string()) {
        int64_t index = 0;
        if (!FrameNumber(frame["index"], index)) error = "no parameter " + frame["index"].dump();
        if (!error.empty() || !ConsoleSetParameter(m_Object.Manager(), index, frame["value"].get<std::string>(), error))
            return Send(handle, tab, json{{"type", "error"}, {"text", error}, {"index", frame["index"]}}
                                         .dump(-1, ' ', false, json::error_handler_t::replace));
    } else {
        return Refuse(handle, tab, "not a frame of the console");
    }
    if (m_AfterChange) m_AfterChange();
    RefreshSoon();
}

void CConsoleService::Send(Handle handle, Tab& tab, const std::string& text) {
    if (tab.closing) return;
    std::error_code problem;
    WsServer::connection_ptr connection = tab.server->get_con_from_hdl(handle, problem);
    if (problem) return;
    // A tab that takes nothing cannot make the host hold its frames without bound: beside the ones
    // being written, no more than --max-output wait, beside the tab's first tree (which grows with
    // the workspace).
    if (connection->get_buffered_amount() > m_MaxOutput + tab.allowed)
        return Drop(handle, tab,
                    "dropped: more than " + std::to_string(m_MaxOutput) + " bytes of frames unread (--max-output)");
    problem = connection->send(text, websocketpp::frame::opcode::text);
    if (!problem) tab.sent += text.size();
}

void CConsoleService::Refuse(Handle handle, Tab& tab, const std::string& why) {
    Send(handle, tab, json{{"type", "error"}, {"text", why}}.dump(-1, ' ', false, json::error_handler_t::replace));
    End(handle, tab, websocketpp::close::status::policy_violation, "refused: " + why);
}

void CConsoleService::End(Handle handle, Tab& tab, websocketpp::close::status::value code, const std::string& ending) {
    if (tab.closing) return;
    tab.closing = true;
    tab.ending = ending;
    std::error_code ignored;
    // The close frame's reason has room for 123 bytes.
    const std::string reason = ending.rfind("refused: ", 0) == 0 ? ending.substr(9) : ending;
    tab.server->close(handle, code, reason.substr(0, 120), ignored);
}

// A tab that does not read would not read a close frame either: its connection is cut. Later, as
// cutting it at once would take it out of m_Tabs under the caller's feet.
void CConsoleService::Drop(Handle handle, Tab& tab, const std::string& ending) {
    if (tab.closing) return;
    tab.closing = true;
    tab.ending = ending;
    std::error_code problem;
    WsServer::connection_ptr connection = tab.server->get_con_from_hdl(handle, problem);
    if (!problem) asio::post(m_Io, [connection] { connection->terminate(std::error_code()); });
}

// Sends what changed to every tab: the pages when they changed, and the values that changed. The
// values are looked at only when a call may have changed an object, or while a collection is busy
// (it turns idle by itself); the pages (the object's few settings and parameters) are cheap to ask
// every time.
void CConsoleService::Refresh() {
    const Clock::time_point start = Clock::now();
    std::string pages = ConsolePages(m_Object.Manager());
    std::string values;
    if (m_Tree && (m_Tree->Busy() || m_TreeChanges != m_Workspace.log.changes)) {
        m_TreeChanges = m_Workspace.log.changes;
        values = m_Tree->Changes();
    }
    const bool pagesChanged = pages != m_Pages;
    if (pagesChanged) m_Pages = std::move(pages);
    if (pagesChanged || !values.empty())
        for (auto& [handle, tab] : m_Tabs) {
            if (!tab.ready) continue;
            if (!values.empty()) Send(handle, tab, values);
            if (pagesChanged) Send(handle, tab, m_Pages);
        }
    m_RefreshEnd = Clock::now();
    m_RefreshCost = m_RefreshEnd - start;
}

// What a tab changes reaches every tab at once, but a burst of lines costs one refresh.
void CConsoleService::RefreshSoon() {
    if (m_SoonArmed || m_Stopped) return;
    m_SoonArmed = true;
    m_Soon.expires_at(std::max(Clock::now() + kSoon, NextRefresh()));
    m_Soon.async_wait([this](const asio::error_code& error) {
        m_SoonArmed = false;
        if (!error) Refresh();
    });
}

// Changes made by others (TCP clients, standard input, time: a busy collection) show up within
// a refresh period.
void CConsoleService::Tick() {
    if (m_Stopped) return;
    if (!m_Tabs.empty() && Clock::now() >= NextRefresh()) Refresh();
    m_Timer.expires_at(std::max(Clock::now() + kRefresh, NextRefresh()));
    m_Timer.async_wait([this](const asio::error_code& error) {
        if (!error) Tick();
    });
}

// The tabs' timeouts, as a TCP client's: one that does not authenticate in time, one silent for
// --idle-timeout (the frames pushed to it do not count), one that reads none of the frames sent to
// it for --stall-timeout. What the socket took says nothing (the kernel holds megabytes for a tab
// that reads nothing): a ping, which the tab answers once it has read every frame before it, does.
void CConsoleService::Watch() {
    if (m_Stopped) return;
    const Clock::time_point now = Clock::now();
    for (auto& [handle, tab] : m_Tabs) {
        std::error_code problem;
        WsServer::connection_ptr connection = tab.server->get_con_from_hdl(handle, problem);
        if (problem || tab.closing) continue;
        if (tab.read == tab.sent) tab.moved = now;  // owed nothing: a pong moves it on otherwise
        if (tab.read != tab.sent && !tab.pinging) {
            connection->ping(std::string(), problem);
            tab.pinging = !problem;
            tab.pinged = tab.sent;
        }
        if (!tab.ready && now - tab.opened >= m_TokenTime)
            Refuse(handle, tab, "no token within " + std::to_string(m_TokenTime.count()) + " s");
        else if (m_Idle.count() != 0 && now - tab.heard >= m_Idle)
            End(handle, tab, websocketpp::close::status::normal, "idle timeout");
        else if (now - tab.moved >= m_Stall)
            Drop(handle, tab, "dropped: it does not read its answers");
    }
    m_Watch.expires_after(kWatch);
    m_Watch.async_wait([this](const asio::error_code& error) {
        if (!error) Watch();
    });
}

void CConsoleService::Stop(std::function<void()> stopped) {
    m_Stopping = std::move(stopped);
    if (!m_Stopped) {
        m_Stopped = true;
        m_Soon.cancel();
        m_Watch.cancel();
        std::error_code ignored;
        for (auto& server : m_Servers) server->stop_listening(ignored);
        for (auto& [handle, tab] : m_Tabs) End(handle, tab, websocketpp::close::status::going_away, kStops);
    }
    if (m_Tabs.empty()) return Stopped();
    m_Timer.expires_after(kStopGrace);
    m_Timer.async_wait([this](const asio::error_code& error) {
        if (!error) Stopped();
    });
}

// The tabs are closed, or the grace is over: the ones still open are logged as closed now.
void CConsoleService::Stopped() {
    std::function<void()> stopped = std::move(m_Stopping);
    m_Stopping = nullptr;
    m_Timer.cancel();
    while (!m_Tabs.empty()) Close(m_Tabs.begin()->first);
    if (stopped) stopped();
}

}  // namespace

std::unique_ptr<CConsole> ConsoleStart(asio::io_context& io, const ServerOptions& options, CProtocolSession& object,
                                       std::function<void()> afterChange, std::string& error) {
    auto console = std::make_unique<CConsoleService>(io, options, object, std::move(afterChange));
    if (!console->Listen(options.http, error)) return nullptr;
    return console;
}
