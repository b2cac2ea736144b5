#include "host/app/Console.h"

#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include <strings.h>

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

constexpr auto kRefresh = std::chrono::milliseconds(250);  // changes reach every tab within this
constexpr size_t kMaxFrame = 80 * 1024;                    // a 64 KiB line in its JSON frame
constexpr size_t kMaxWaiting = 16u << 20;                  // bytes a tab may leave unread
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// A frame's item or index, which is any JSON integer: one beyond 64 bits names no item either.
int64_t FrameNumber(const nlohmann::json& number) {
    if (number.is_number_unsigned() && number.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) return INT64_MAX;
    return number.get<int64_t>();
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
    CConsoleService(asio::io_context& io, CProtocolSession& object, const Workspace& workspace,
                    const ConversationOptions& conversation, size_t maxTabs, std::function<void()> afterChange)
        : m_Io(io), m_Object(object), m_Workspace(workspace), m_Options(conversation), m_MaxTabs(maxTabs),
          m_AfterChange(std::move(afterChange)), m_Timer(io), m_Soon(io) {
        m_Options.framing = Framing::kCounted;
        m_Options.guard = false;  // the handshake has already told HTTP from the rest
        m_Options.pauseAt = 0;
    }

    bool Listen(const std::vector<std::string>& endpoints, std::string& error);
    void Stop() override;

private:
    struct Tab {
        WsServer* server;
        std::string peer;
        std::chrono::steady_clock::time_point opened = std::chrono::steady_clock::now();
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
    void Ready(Handle handle, Tab& tab);
    void Refresh();
    std::string Tree();
    void RefreshSoon();
    void Tick();

    asio::io_context& m_Io;
    CProtocolSession& m_Object;
    const Workspace& m_Workspace;
    ConversationOptions m_Options;  // the conversations keep a reference to it
    size_t m_MaxTabs;
    std::function<void()> m_AfterChange;
    uint64_t m_TreeChanges = 0;  // the workspace's change count when m_Tree was made
    bool m_TreeBusy = false;     // m_Tree shows a busy file collection, which turns idle by itself
    asio::steady_timer m_Timer;
    asio::steady_timer m_Soon;  // armed by a change a tab made: one refresh for a burst of them
    bool m_SoonArmed = false;
    std::vector<std::unique_ptr<WsServer>> m_Servers;
    std::set<const WsServer*> m_Loopback;  // the servers bound to a loopback address
    CRateLimit m_RefusalLog;
    std::map<Handle, Tab, std::owner_less<Handle>> m_Tabs;
    std::string m_Tree, m_Pages;  // as last sent to the tabs
    bool m_Stopped = false;
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
        s.set_max_message_size(kMaxFrame);
        s.set_http_handler([this, &s](Handle handle) { Serve(s, handle); });
        s.set_validate_handler([this, &s](Handle handle) { return Accept(s, handle); });
        s.set_open_handler([this, &s](Handle handle) { Open(s, handle); });
        s.set_close_handler([this](Handle handle) { Close(handle); });
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
            ServerLog(LogLevel::kWarn, "refused a console socket: already %zu tabs (--max-clients)%s", m_Tabs.size(),
                      ServerSuppressed(suppressed).c_str());
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
    const Tab& tab = found->second;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tab.opened).count();
    const uint64_t messages = tab.conversation ? tab.conversation->Messages() : 0;
    // A wrong token is worth a warning, as on the network: someone may be guessing.
    const bool guessed = tab.ending == std::string("refused: ") + kAuthenticationFailed;
    const LogLevel level = guessed ? LogLevel::kWarn : LogLevel::kInfo;
    ServerLog(level, "console tab %s disconnected after %.3f s, %llu message%s: %s", tab.peer.c_str(), seconds,
              static_cast<unsigned long long>(messages), messages == 1 ? "" : "s", tab.ending.c_str());
    m_Tabs.erase(found);
}

void CConsoleService::Ready(Handle handle, Tab& tab) {
    // The tabs already open get what changed since their last refresh first: the tree and pages
    // kept are then the ones every tab shows, the newcomer's included.
    Refresh();
    if (m_Tree.empty()) m_Tree = Tree();
    tab.ready = true;
    Send(handle, tab, "{\"type\":\"ready\"}");
    Send(handle, tab, m_Tree);
    Send(handle, tab, m_Pages);
}

void CConsoleService::Receive(Handle handle, const std::string& payload) {
    auto found = m_Tabs.find(handle);
    if (found == m_Tabs.end() || found->second.closing) return;
    Tab& tab = found->second;
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
        if (ended) {
            tab.closing = true;
            std::error_code ignored;
            tab.ending = "break";
            tab.server->close(handle, websocketpp::close::status::normal, "break", ignored);
        }
        return;
    }
    if (type == "control" && frame.contains("item") && frame["item"].is_number_integer() && frame.contains("value") &&
        (frame["value"].is_number() || frame["value"].is_string())) {
        if (!ConsoleControl(m_Object.Manager(), FrameNumber(frame["item"]), frame["value"], error))
            return Send(handle, tab, json{{"type", "error"}, {"text", error}, {"item", frame["item"]}}.dump());
    } else if (type == "parameter" && frame.contains("index") && frame["index"].is_number_integer() && frame.contains("value") &&
               frame["value"].is_string()) {
        if (!ConsoleSetParameter(m_Object.Manager(), FrameNumber(frame["index"]), frame["value"].get<std::string>(), error))
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
    tab.server->send(handle, text, websocketpp::frame::opcode::text, problem);
    if (problem) return;
    // A tab that takes nothing cannot make the host hold its answers without bound.
    WsServer::connection_ptr connection = tab.server->get_con_from_hdl(handle, problem);
    if (!problem && connection->get_buffered_amount() > kMaxWaiting) {
        tab.closing = true;
        tab.server->close(handle, websocketpp::close::status::policy_violation, "answers not read", problem);
    }
}

void CConsoleService::Refuse(Handle handle, Tab& tab, const std::string& why) {
    tab.ending = "refused: " + why;
    Send(handle, tab, json{{"type", "error"}, {"text", why}}.dump(-1, ' ', false, json::error_handler_t::replace));
    tab.closing = true;
    std::error_code ignored;
    tab.server->close(handle, websocketpp::close::status::policy_violation, why.substr(0, 120), ignored);
}

std::string CConsoleService::Tree() {
    m_TreeChanges = m_Workspace.log.changes;
    return ConsoleTree(m_Workspace, &m_TreeBusy);
}

// Sends the tree and the pages to every tab when they changed. The tree, which grows with the
// workspace, is made again only when a call may have changed an object, or while it shows a busy
// collection; the pages (the object's few settings and parameters) are cheap to ask every time.
void CConsoleService::Refresh() {
    std::string pages = ConsolePages(m_Object.Manager());
    bool treeChanged = false;
    if (m_TreeBusy || m_TreeChanges != m_Workspace.log.changes) {
        std::string tree = Tree();
        treeChanged = tree != m_Tree;
        if (treeChanged) m_Tree = std::move(tree);
    }
    const bool pagesChanged = pages != m_Pages;
    if (!treeChanged && !pagesChanged) return;
    m_Pages = std::move(pages);
    for (auto& [handle, tab] : m_Tabs) {
        if (!tab.ready) continue;
        if (treeChanged) Send(handle, tab, m_Tree);
        if (pagesChanged) Send(handle, tab, m_Pages);
    }
}

// What a tab changes reaches every tab at once, but a burst of lines costs one refresh.
void CConsoleService::RefreshSoon() {
    if (m_SoonArmed || m_Stopped) return;
    m_SoonArmed = true;
    m_Soon.expires_after(std::chrono::milliseconds(20));
    m_Soon.async_wait([this](const asio::error_code& error) {
        m_SoonArmed = false;
        if (!error) Refresh();
    });
}

// Changes made by others (TCP clients, standard input, time: a busy collection) show up within
// a refresh period.
void CConsoleService::Tick() {
    if (m_Stopped) return;
    if (!m_Tabs.empty()) Refresh();
    m_Timer.expires_after(kRefresh);
    m_Timer.async_wait([this](const asio::error_code& error) {
        if (!error) Tick();
    });
}

void CConsoleService::Stop() {
    m_Stopped = true;
    m_Timer.cancel();
    m_Soon.cancel();
    std::error_code ignored;
    for (auto& server : m_Servers) server->stop_listening(ignored);
    for (auto& [handle, tab] : m_Tabs)
        if (!tab.closing) tab.server->close(handle, websocketpp::close::status::going_away, "stopping", ignored);
}

}  // namespace

std::unique_ptr<CConsole> ConsoleStart(asio::io_context& io, const std::vector<std::string>& endpoints,
                                       CProtocolSession& object, const Workspace& workspace,
                                       const ConversationOptions& conversation, size_t maxTabs,
                                       std::function<void()> afterChange, std::string& error) {
    auto console = std::make_unique<CConsoleService>(io, object, workspace, conversation, maxTabs, std::move(afterChange));
    if (!console->Listen(endpoints, error)) return nullptr;
    return console;
}
