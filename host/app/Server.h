// wks-host's network service: TCP clients served in one asio event loop, each a conversation
// (host/app/Conversation.h) with the one protocol object, as an instrument has one state for all
// its connections. Every call into the module stays on the loop's thread.
#pragma once

#include <csignal>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/app/Conversation.h"

struct ServerOptions {
    const volatile sig_atomic_t* stopNoted = nullptr;  // non-zero: a stop signal came while the host started
    std::vector<std::string> listen;  // [ADDR:]PORT, [V6ADDR]:PORT; a bare port is 127.0.0.1
    ConversationOptions conversation;
    size_t maxClients = 256;
    unsigned idleSeconds = 0;           // 0: never time out
    size_t maxOutput = 16u << 20;       // answers waiting for a client before its input is held back
    unsigned stallSeconds = 30;         // a client whose waiting answers move not at all for this long is dropped
    ConversationOptions stdinConversation;  // standard input's own (no token, its line limit)
    bool serveStdin = false;            // standard input as one more conversation, answered on standard output
    std::string recordFolder;           // non-empty: a transcript per session there (host/app/Transcript.h)
    std::vector<std::string> http;      // the browser console's [ADDR:]PORT (host/app/Console.h)
    const struct Workspace* workspace = nullptr;  // what the console shows
    bool stopOnHangup = true;           // SIGHUP stops the service as SIGTERM does (not when it came ignored: nohup)

    // With a token, a client's or tab's time from its connection to give it: --idle-timeout, and
    // a minute at most, so that one that never does cannot hold a --max-clients place for ever.
    unsigned TokenSeconds() const { return idleSeconds != 0 && idleSeconds < 60 ? idleSeconds : 60; }
};

// Refusals are logged at most once a second, with a count of those left out, so that a scanner
// cannot flood the log.
class CRateLimit {
public:
    // True when a line may be logged now; `suppressed` then holds how many were held back before it.
    bool Allow(unsigned& suppressed);

private:
    std::chrono::steady_clock::time_point m_Last{};
    unsigned m_Suppressed = 0;
};
// " (N more refusals not shown)", or nothing for 0; `what` names one of them.
std::string ServerSuppressed(unsigned suppressed, const char* what = "refusal");

// The signals that stop the host: SIGINT, SIGTERM, and SIGHUP with `hangup`.
sigset_t ServerStopSignals(bool hangup);

// Log lines with a time stamp on standard error, at or above the chosen level.
enum class LogLevel { kDebug, kInfo, kWarn, kError };
void ServerLog(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void ServerSetLogLevel(LogLevel level);

// Writes `out` on standard output at once, past stdio (nothing else may write standard output
// through stdio meanwhile). 0 when it is written, else the errno of the failure:
// EPIPE when the reader went away (a closed pipe), anything else a real failure (a full disk).
int ServerWriteStdout(const std::string& out);

// Serves until SIGINT or SIGTERM (or, without listeners, until standard input ends). Returns the
// exit status; `error` says why when the service could not start (a bad address, a port in use).
// `afterMessage` runs soon after messages were handled (at most ten times a second, and once more
// when the service stops), whoever sent them: it saves the state.
int ServerRun(const ServerOptions& options, CProtocolSession& object, const std::function<void()>& afterMessage,
              std::string& error);

