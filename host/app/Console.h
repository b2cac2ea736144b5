// The browser console (wks-host --http): one page and its assets, built into the program, and a
// WebSocket endpoint "/ws" for the page, served on the network service's event loop. Each browser
// tab is a session of its own with the one protocol object, through the same conversation as a
// TCP client in the counted framing (its token, guard-free first line, line cap); the workspace
// tree and the property pages are pushed to every tab whenever they change, whoever changed them.
//
// The socket speaks JSON text frames. From the page:
//   {"type":"auth","token":T}                 first, when the hello asks for it
//   {"type":"line","id":N,"text":L}           one message: one command line, no line end in it
//   {"type":"control","item":ID,"value":V}    a property item's new value (Control, ControlEx): a number or a text
//   {"type":"parameter","index":I,"value":S}  a parameter's new value as text (put_Item)
// To the page:
//   {"type":"hello","auth":B,"version":V}     first; B: a token is needed
//   {"type":"ready"}                          lines are taken from now on
//   {"type":"reply","id":N,"replies":[...],"failed":[...],"ended":B}   B: a break, the socket closes
//   {"type":"tree",...} {"type":"pages",...}  host/app/ConsoleModel.h
//   {"type":"error","text":T}                 a refusal; after a bad token or a bad frame the socket closes;
//                                             a refused value names its "item" or "index" and closes nothing
//
// Safety: the socket takes only the page's own origin (the Origin header must name the Host the
// request was sent to, and on a loopback address that Host must be an address or localhost, so
// that a rebound name cannot reach it), responses carry a content security policy, nothing but
// the page, its two assets and the socket is served, and a bad frame closes that socket only.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace asio {
class io_context;
}
class CProtocolSession;
struct ConversationOptions;
struct Workspace;

class CConsole {
public:
    virtual ~CConsole() = default;
    // Closes the listeners and every tab.
    virtual void Stop() = 0;
};

// Listens on every `endpoints` ([ADDR:]PORT, as --listen) and serves there from `io`. Null with
// `error` set when an endpoint is no address or cannot be bound. `afterChange` runs after every
// change a tab made (it saves the state).
std::unique_ptr<CConsole> ConsoleStart(asio::io_context& io, const std::vector<std::string>& endpoints,
                                       CProtocolSession& object, const Workspace& workspace,
                                       const ConversationOptions& conversation, size_t maxTabs,
                                       std::function<void()> afterChange, std::string& error);
