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
//   {"type":"tree",...}                       the whole workspace: when the tab is ready
//   {"type":"values",...}                     then only the objects whose value changed (host/app/ConsoleModel.h)
//   {"type":"pages",...}                      host/app/ConsoleModel.h, whenever they change
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
struct ServerOptions;

class CConsole {
public:
    virtual ~CConsole() = default;
    // Closes the listeners and every tab ("going away"), each logged with the reason "the service
    // stops". `stopped` runs once every tab is closed, or after a second with the tabs left still
    // open logged as closed: the event loop may stop then.
    virtual void Stop(std::function<void()> stopped) = 0;
};

// Listens on every endpoint of `options.http` ([ADDR:]PORT, as --listen) and serves there from
// `io`, showing `*options.workspace`. Null with `error` set when an endpoint is no address or
// cannot be bound. `afterChange` runs after every change a tab made (it saves the state).
//
// The tabs keep the service's limits: `options.conversation` (the token, the line limit: a frame
// may hold a line of that many bytes however it is escaped), at most `options.maxClients` tabs; a
// tab silent for `options.idleSeconds` is closed (and one that has not authenticated within that
// time, or within a minute at most); one for which more than `options.maxOutput` bytes of frames
// wait behind those being written is dropped, and so is one that reads none of the frames sent to
// it for `options.stallSeconds` (it answers no ping).
std::unique_ptr<CConsole> ConsoleStart(asio::io_context& io, const ServerOptions& options, CProtocolSession& object,
                                       std::function<void()> afterChange, std::string& error);
