// wks-host: loads WKSProtocol.so as a host does, binds it to a workspace and runs a session on
// standard input. Each line read is one message; each reply is written on a line of its own;
// "?" answers a failed command; a message beginning with "Break" ends the session.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host/app/Conversation.h"
#include "host/app/Endpoint.h"
#include "host/app/LogOutput.h"
#include "host/kit/Files.h"
#include "host/app/ObjectFiles.h"
#include "host/app/Server.h"
#include "host/app/Transcript.h"
#include "host/app/UnwaitingOutput.h"
#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

constexpr size_t kDefaultMaxLine = 1 << 20;
// A message is held as wide text of at most about 2^30 characters; a line of 256 MiB stays well
// inside that, and inside memory, whatever it holds.
constexpr size_t kLargestMaxLine = 256u << 20;

struct Options {
    std::string workspace;
    bool verbose = false;
    bool prompt = false;
    bool noPrompt = false;
    size_t maxLine = kDefaultMaxLine;
    int returnStyle = -1;  // -1: the object's own; 0 comma-separated, 1 INI
    int usePrompt = -1;    // -1: the object's own; 0 off, 1 on
    std::string state;
    std::string exportXml;
    std::string importXml;
    // The network service.
    std::vector<std::string> listen;
    std::vector<std::string> http;
    std::string framing;  // empty: text on the network, raw on standard input alone
    std::string authFile;
    size_t maxClients = 256;
    unsigned idleSeconds = 0;
    size_t maxOutput = 16u << 20;
    unsigned stallSeconds = 30;
    std::string logLevel = "info";
    std::string recordFolder;
    std::string replay;
    bool maxLineGiven = false;
};

// Checks an --listen or --http value as the service will read it, so that a wrong one stops the
// host before anything is done (CLI11 names the option in the message).
CLI::Validator EndpointCheck() {
    return CLI::Validator(
        [](std::string& text) {
            asio::ip::tcp::endpoint endpoint;
            std::string error;
            return ServerEndpoint(text, endpoint, error) ? std::string() : error;
        },
        "");
}

// An option that names a file: an empty value (an unset shell variable, say) is refused rather
// than taken for the option's absence, which for --auth-file would mean no token at all.
CLI::Validator NamesAFile(const char* what = "file") {
    return CLI::Validator(
        [what](std::string& text) { return text.empty() ? std::string("an empty value names no ") + what : std::string(); }, "");
}

// A count is decimal digits, checked before its range so that a word is not called out of range.
CLI::Validator WholeNumber() {
    return CLI::Validator(
        [](std::string& text) {
            return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos
                       ? std::string()
                       : "'" + text + "' is not a whole number";
        },
        "");
}

// One of two words, in any case, or the number it stands for: becomes that number.
CLI::Validator Choice(const char* zero, const char* one) {
    return CLI::Validator(
        [zero, one](std::string& text) {
            if (text == "0" || strcasecmp(text.c_str(), zero) == 0) return text = "0", std::string();
            if (text == "1" || strcasecmp(text.c_str(), one) == 0) return text = "1", std::string();
            return "'" + text + "' is neither " + zero + " nor " + one;
        },
        "");
}

// A word of a fixed set, in any case, as the other options' words are: becomes the small-letter one.
CLI::Validator OneOf(std::vector<std::string> words) {
    return CLI::Validator(
        [words](std::string& text) {
            for (const std::string& word : words)
                if (strcasecmp(text.c_str(), word.c_str()) == 0) return text = word, std::string();
            std::string known;
            for (const std::string& word : words) known += (known.empty() ? "" : ", ") + word;
            return "'" + text + "' is not one of " + known;
        },
        "");
}

// CLI11's message, as every other message of the host begins; an option given twice says so.
std::string FailureMessage(const CLI::App* app, const CLI::Error& error) {
    const std::string message = CLI::FailureMessage::simple(app, error);
    const size_t colon = message.find(": At Most 1 required but received");
    if (colon != std::string::npos && message.rfind("--", 0) == 0)
        return "wks-host: " + message.substr(0, colon) + ": given more than once\n" + message.substr(message.find('\n') + 1);
    return "wks-host: " + message;
}

// Parses the command line; returns the exit status to stop with, or -1 to go on.
int ParseOptions(int argc, char** argv, Options& options) {
    CLI::App app{
        "Loads WKSProtocol.so from the program's folder, binds a WKSProtocol object to a workspace and runs a "
        "session on standard input (and, with --listen, for TCP clients): every line is one message, its replies "
        "are written as one block (--framing), \"?\" answers a failed command, and a line beginning with "
        "\"Break\" or a beginning of it (\"b\", \"Br\", ..., any case) ends the session.",
        "wks-host"};
    app.set_version_flag("--version", "wks-host " WKS_VERSION);
    app.add_option("--workspace", options.workspace,
                   "the workspace to serve, in TOML (default: the built-in sample; see host/workspace/sample.toml)")
        ->type_name("FILE")
        ->check(NamesAFile());
    app.add_flag("--verbose", options.verbose,
                 "print every action a workspace object is asked for (not the reads of its values) on standard error");
    CLI::Option* prompt = app.add_flag(
        "--prompt", options.prompt,
        "show the prompt \"> \" when a message is done while the object's UsePrompt setting is on "
        "(default: only on a terminal)");
    app.add_flag("--no-prompt", options.noPrompt, "never show the prompt")->excludes(prompt);
    CLI::Option* maxLine = app.add_option("--max-line", options.maxLine,
                   "the longest line accepted, in bytes; a longer line is refused whole (default 1048576 on standard input, "
                   "65536 on the network; at most 268435456)")
        ->type_name("BYTES")
        ->check(WholeNumber())->check(CLI::Range(static_cast<size_t>(1), kLargestMaxLine));
    CLI::Option* returnStyle = app.add_option("--return-style", options.returnStyle,
                   "the form of replies: csv (one record, fields separated by \",\") or ini (one line per "
                   "entry, the object's default); set through the object's property table")
        ->type_name("STYLE")
        ->transform(Choice("csv", "ini"));
    CLI::Option* usePrompt = app.add_option("--use-prompt", options.usePrompt,
                   "the object's UsePrompt setting: on or off (the object's default); set through its property table")
        ->type_name("on|off")
        ->transform(Choice("off", "on"));
    app.add_option("--state", options.state,
                   "keep the object's settings, parameters and inputs in FILE: loaded at start when it exists, "
                   "replaced safely after messages that changed them (serving the network, at most ten times a "
                   "second); a FILE that cannot be loaded stops the host and is left as it is")
        ->type_name("FILE")
        ->check(NamesAFile());
    CLI::Option* importXml = app.add_option("--import-xml", options.importXml,
                   "at start, after --state, set the parameters that the XML FILE names (as --export-xml writes it)")
        ->type_name("FILE")
        ->check(NamesAFile());
    CLI::Option* exportXml = app.add_option("--export-xml", options.exportXml,
                   "write the object's parameters to the XML FILE, after --state, --import-xml and the settings "
                   "options, and stop without serving")
        ->type_name("FILE")
        ->check(NamesAFile());
    CLI::Option* listen = app.add_option("--listen", options.listen,
                   "serve TCP clients on [ADDRESS:]PORT (repeatable; a bare port means 127.0.0.1, [::1]:PORT is IPv6, "
                   "0.0.0.0:PORT every IPv4 interface, [::]:PORT every interface); standard input is served too")
        ->type_name("[ADDR:]PORT")
        ->allow_extra_args(false)  // one value per --listen, taken as it is ("[::1]:5025" is no list)
        ->check(EndpointCheck());
    CLI::Option* http = app.add_option("--http", options.http,
                   "serve the browser console on [ADDRESS:]PORT (repeatable; a bare port means 127.0.0.1): the "
                   "workspace, a command console and the object's property pages, with --auth-file's token")
        ->type_name("[ADDR:]PORT")
        ->allow_extra_args(false)
        ->check(EndpointCheck());
    CLI::Option* framing = app.add_option("--framing", options.framing,
                   "how the replies to one message are sent: text (the replies, then an empty line; the default on the "
                   "network), counted (\"+N\", then each reply as \"LENGTH:bytes\"; for programs) or raw (the replies "
                   "alone, as instrument libraries expect; the default on standard input alone)")
        ->type_name("FORM")
        ->transform(OneOf({"text", "counted", "raw"}));
    CLI::Option* authFile = app.add_option("--auth-file", options.authFile,
                   "network clients must first send \"AUTH <token>\", the token being the first line of FILE")
        ->type_name("FILE")
        ->check(NamesAFile());
    CLI::Option* maxClients =
        app.add_option("--max-clients", options.maxClients, "network clients served at once; the next is refused (default 256)")
        ->check(WholeNumber())->check(CLI::Range(static_cast<size_t>(1), static_cast<size_t>(65536)));
    CLI::Option* idleTimeout = app.add_option("--idle-timeout", options.idleSeconds,
                   "close a network client silent for this many seconds (default 0: never; at most a year)")
        ->type_name("SECONDS")
        ->check(WholeNumber())->check(CLI::Range(0u, 365u * 86400u));
    CLI::Option* maxOutput = app.add_option("--max-output", options.maxOutput,
                   "bytes of answers waiting for a network client before its further input is held back (default "
                   "16777216)")
        ->type_name("BYTES")
        ->check(WholeNumber())->check(CLI::Range(static_cast<size_t>(1024), static_cast<size_t>(1) << 32));
    CLI::Option* stallTimeout = app.add_option("--stall-timeout", options.stallSeconds,
                   "drop a network client whose input is held back and that takes none of its answers for this many "
                   "seconds (default 30)")
        ->type_name("SECONDS")
        ->check(WholeNumber())->check(CLI::Range(1u, 86400u));
    CLI::Option* logLevel = app.add_option("--log-level", options.logLevel,
                                           "what the network service logs on standard error: debug, info (connections; "
                                           "the default), warning or error")
        ->transform(OneOf({"debug", "info", "warning", "error"}));
    CLI::Option* record = app.add_option("--record", options.recordFolder,
                   "write a transcript of every session (standard input included) into FOLDER, which must exist, "
                   "as it goes")
        ->type_name("FOLDER")
        ->check(NamesAFile("folder"))
        ->check(CLI::ExistingDirectory);
    CLI::Option* replay = app.add_option("--replay", options.replay,
                   "run the messages of a recorded session against a fresh object and print where its answers differ "
                   "from the recorded ones (status 1 when they do)")
        ->type_name("FILE")
        ->check(NamesAFile());
    // A replay runs the transcript's messages in its framing and under its line limit against the
    // object (and --state, when given) and does nothing else.
    // (--prompt and --no-prompt are let be: a replay shows no prompt either way.)
    for (CLI::Option* ignored : {returnStyle, usePrompt, importXml, exportXml, listen, http, framing, authFile, record,
                                 maxLine, maxClients, idleTimeout, maxOutput, stallTimeout, logLevel})
        replay->excludes(ignored);
    // An export writes the file and stops: it serves nothing, so options of serving would go unheeded.
    for (CLI::Option* serving : {listen, http, framing, authFile, record, maxLine, maxClients, idleTimeout, maxOutput,
                                 stallTimeout, logLevel})
        exportXml->excludes(serving);
    app.failure_message(FailureMessage);
    try {
        app.parse(argc, argv);
        options.maxLineGiven = app.count("--max-line") > 0;
        // The same address twice, or a port a wildcard address holds already, would fail to bind as
        // "in use", by this very host.
        std::map<asio::ip::tcp::endpoint, std::string> served;
        for (const auto& [name, list] : {std::pair{"--listen", &options.listen}, std::pair{"--http", &options.http}})
            for (const std::string& text : *list) {
                asio::ip::tcp::endpoint endpoint;
                std::string ignored;
                if (!ServerEndpoint(text, endpoint, ignored) || endpoint.port() == 0) continue;
                // A wildcard address takes its port on every interface: of its own family, and for
                // [::] (which serves IPv4 too) of both.
                const auto covers = [](const asio::ip::address& wide, const asio::ip::address& other) {
                    return wide.is_unspecified() && (wide.is_v6() || other.is_v4());
                };
                for (const auto& [other, named] : served)
                    if (other.port() == endpoint.port() &&
                        (covers(other.address(), endpoint.address()) || covers(endpoint.address(), other.address())) &&
                        other != endpoint)
                        throw CLI::ValidationError(
                            name, text + ": overlaps " + named + " (a wildcard address holds its port on every interface)");
                const auto [first, added] = served.emplace(endpoint, std::string(name) + " " + text);
                if (!added) throw CLI::ValidationError(name, text + ": the same address as " + first->second);
            }
        // A client of the counted framing reads blocks and nothing between them.
        if (prompt->count() > 0 && options.framing == "counted")
            throw CLI::ValidationError("--prompt", "the counted framing leaves no room for a prompt");
        // Standard input alone asks for no token: one given would guard nothing, and that must
        // not pass unnoticed. The network's limits are merely without effect.
        if (options.listen.empty() && options.http.empty()) {
            if (authFile->count() > 0) throw CLI::ValidationError("--auth-file", "guards the network: it needs --listen or --http");
            for (CLI::Option* limit : {maxClients, idleTimeout, maxOutput, stallTimeout, logLevel})
                if (limit->count() > 0)
                    std::fprintf(stderr, "wks-host: warning: %s has no effect without --listen or --http\n",
                                 limit->get_name().c_str());
        }
    } catch (const CLI::ParseError& e) {
        const int status = app.exit(e);  // prints the help, or the error and a hint
        return status == 0 ? 0 : 2;
    }
    return -1;
}

// SIGINT, SIGTERM and SIGHUP (the terminal closed) end a session on standard input after the
// line being handled: no further line is handled (an unfinished last one neither), the answers
// due are written, the state is saved and the host exits with status 0. The handler only notes the signal, at any moment (the
// conversation asks after every line); around the test before a wait for input the signals are
// blocked, and the wait unblocks them, so that one is never lost between the test and the wait.
// A SIGHUP that came ignored (nohup) stays ignored.
volatile sig_atomic_t gStopSignal = 0;  // the stop signal that came, 0 while none did

void NoteStopSignal(int signal) { gStopSignal = signal; }

// True when the object's input 0 (its running object table) holds an object.
bool BoundToWorkspace(IProtocolManager* object) {
    SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(object, IID_IInputParameters);
    SmartPtr<IUnknown> table;
    return inputs && inputs->get_InputObject(0, table.Out()) >= 0 && table;
}

bool HangupIgnored() {
    struct sigaction current {};
    return sigaction(SIGHUP, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

// The signals that stop the session: SIGINT, SIGTERM, and SIGHUP unless it came ignored.
sigset_t StopSignals() { return ServerStopSignals(!HangupIgnored()); }

// Notes the stop signals in gStopSignal. With `restart`, calls they interrupt go on.
sigset_t NoteStopSignals(bool restart) {
    struct sigaction action {};
    action.sa_handler = NoteStopSignal;
    action.sa_flags = restart ? SA_RESTART : 0;
    sigemptyset(&action.sa_mask);
    const sigset_t stops = StopSignals();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (sigismember(&stops, signal)) sigaction(signal, &action, nullptr);
    sigprocmask(SIG_UNBLOCK, &stops, nullptr);  // even when they came blocked
    return stops;
}

// Catches the stop signals for a session on standard input: reading and writing go on; only the
// wait for input ends.
sigset_t CatchStopSignals() { return NoteStopSignals(true); }

// A one-shot run (replay, export) stops as any program does, also for a signal noted while it
// started.
void StopAsAnyProgram() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (signal != SIGHUP || !HangupIgnored()) std::signal(signal, SIG_DFL);
    if (gStopSignal != 0) raise(gStopSignal);
}

constexpr size_t kStdinRead = 65536;

struct StdinRead {
    size_t bytes = 0;  // 0: the input's end
    bool stop = false;  // a stop signal came
    int error = 0;      // the input could not be read (it is a directory, say): an end, and a failure
};

StdinRead ReadStdin(char* buffer, const sigset_t& stops) {
    for (;;) {
        sigset_t running;  // the stop signals are not blocked in it
        sigprocmask(SIG_BLOCK, &stops, &running);
        const bool stop = gStopSignal != 0;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int polled = stop ? 0 : ppoll(&input, 1, nullptr, &running);  // a stop signal ends the wait
        sigprocmask(SIG_SETMASK, &running, nullptr);
        if (stop || gStopSignal) return StdinRead{0, true};
        if (polled < 0 && errno == EINTR) continue;
        const ssize_t got = read(STDIN_FILENO, buffer, kStdinRead);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        return StdinRead{got > 0 ? static_cast<size_t>(got) : 0, false, got < 0 ? errno : 0};
    }
}

// Writes the answers of a session on standard input, waiting for room as long as the reader
// takes, but once a stop signal has come, at most 2 s more, as the network service does: the
// answers not taken by then are dropped (ETIMEDOUT). The wait for room is where a stop signal
// ends it: writes themselves never wait, where the output's kind allows.
int WriteAnswers(const std::string& out, const sigset_t& stops) {
    static const UnwaitingOutput output = OutputWithoutWaiting(STDOUT_FILENO, true);
    if (output.waits) return ServerWriteStdout(out);
    std::chrono::steady_clock::time_point deadline{};
    for (size_t done = 0; done < out.size();) {
        const ssize_t n = WriteWithoutWaiting(output, out.data() + done, out.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) return n < 0 ? errno : EIO;
        sigset_t running;  // the stop signals are not blocked in it
        sigprocmask(SIG_BLOCK, &stops, &running);
        timespec wait{};
        const timespec* limit = nullptr;
        if (gStopSignal != 0) {
            const auto now = std::chrono::steady_clock::now();
            if (deadline == std::chrono::steady_clock::time_point{}) deadline = now + std::chrono::seconds(2);
            const int64_t left = std::max<int64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - now).count(), 0);
            wait = timespec{static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
            limit = &wait;
        }
        pollfd room{output.fd, POLLOUT, 0};
        const int polled = ppoll(&room, 1, limit, &running);  // a stop signal ends the wait
        sigprocmask(SIG_SETMASK, &running, nullptr);
        if (polled == 0) return ETIMEDOUT;
    }
    return 0;
}

// A standard descriptor that came closed is held by /dev/null, opened for reading only: the
// files the host opens never take its number (answers written into a transcript, a log line into
// a state file), and it still behaves as closed: reading it finds the end, writing it fails.
void HoldClosedStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0 || errno != EBADF) continue;
        const int held = open("/dev/null", O_RDONLY);
        if (held >= 0 && held != fd) {
            dup2(held, fd);
            close(held);
        }
    }
}

int Run(int argc, char** argv);

}  // namespace

int main(int argc, char** argv) {
    HoldClosedStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "wks-host: out of memory\n");
        return 1;
    }
}

namespace {

int Run(int argc, char** argv) {
    // A reader that goes away (a closed pipe on standard output) must not end the service.
    signal(SIGPIPE, SIG_IGN);
    Options options;
    if (const int status = ParseOptions(argc, argv, options); status >= 0) return status;
    // A stop signal that comes while the host starts (loading its workspace, the module, the
    // state) is noted, and the session ends at once when it begins, as a session does (state
    // saved, status 0), instead of the host dying half-started. A start that waits on a pipe is
    // interrupted instead: the read fails and says so.
    NoteStopSignals(false);
    // A replay that cannot start (its workspace or state unreadable) is no difference in answers.
    const int cannotStart = options.replay.empty() ? 1 : 2;
    // Files named on the command line are relative to where the user started the program, which
    // the program leaves below.
    // Messages name them as the user wrote them.
    const Options shown = options;
    for (std::string* path :
         {&options.state, &options.importXml, &options.exportXml, &options.authFile, &options.recordFolder, &options.replay}) {
        *path = AbsolutePath(*path);
        // Left relative when the folder the host was started in is gone: it would be taken as
        // relative to the program's own folder once the host moves there.
        if (path->empty() || path->front() == '/') continue;
        std::fprintf(stderr, "wks-host: %s: the current folder cannot be found (%s): name the file from /\n", path->c_str(),
                     std::strerror(errno));
        return 2;
    }
    // The export is written over whatever its file held: never over a file the host reads.
    for (const auto& [read, option] :
         {std::pair{&options.state, "--state"}, {&options.workspace, "--workspace"}, {&options.authFile, "--auth-file"}}) {
        if (!SameFile(options.exportXml, *read)) continue;
        std::fprintf(stderr, "wks-host: --export-xml: %s is the file of %s, which the export would overwrite\n",
                     shown.exportXml.c_str(), option);
        return 2;
    }
    // The host owns the locale; the module decodes and encodes text under it. An environment that
    // names none, or plain C/POSIX (a service manager, cron, env -i), would leave characters at
    // ASCII and every other character of a client's text lost: such a host reads and writes UTF-8.
    std::setlocale(LC_ALL, "");
    const char* ctype = std::setlocale(LC_CTYPE, nullptr);
    if (ctype == nullptr || std::strcmp(ctype, "C") == 0 || std::strcmp(ctype, "POSIX") == 0) {
        if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr)
            std::fprintf(stderr, "wks-host: warning: no locale is set and C.UTF-8 is missing: characters beyond ASCII "
                                 "are lost\n");
    }

    // Files named on the command line are read from where the user started the program.
    Workspace workspace;
    workspace.log.keep = false;  // --verbose shows the calls; nothing reads them afterwards
    workspace.log.echo = options.verbose;
    std::string error;
    std::vector<std::string> warnings;
    const bool loaded = options.workspace.empty()
                            ? WorkspaceLoad(WorkspaceSample(), "built-in workspace", workspace, error, &warnings)
                            : WorkspaceLoadFile(options.workspace, workspace, error, &warnings);
    if (!loaded) {
        std::fprintf(stderr, "wks-host: %s\n", error.c_str());
        return cannotStart;
    }
    for (const std::string& warning : warnings) std::fprintf(stderr, "wks-host: warning: %s\n", warning.c_str());
    HOSTSetRegistry(workspace.registry);

    // The module finds ./CollectionsEx.so relative to the current directory: move beside it.
    const std::string folder = HOSTProgramFolder();
    if (folder.empty() || !HOSTChangeToFolderOf(folder)) {
        std::fprintf(stderr, "wks-host: cannot find the program's folder\n");
        return cannotStart;
    }
    CModuleHost host;
    if (!host.Load("./WKSProtocol.so", error)) {
        std::fprintf(stderr, "wks-host: %s\n", error.c_str());
        return cannotStart;
    }
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
    CProtocolSession session;
    std::unique_ptr<CStateFile> state;
    if (!options.state.empty()) state = std::make_unique<CStateFile>(options.state);
    // A saved object is loaded before it is bound, as it was saved unbound.
    std::string problem;
    const HRESULT opened = session.Open(host, names.get(), [&](IProtocolManager* object) {
        return state && !state->Load(object, problem) ? E_FAIL : S_OK;
    });
    if (!problem.empty()) {
        std::fprintf(stderr, "wks-host: %s: %s\n", shown.state.c_str(), problem.c_str());
        return cannotStart;
    }
    for (const std::string& entry : state ? state->Unread() : std::vector<std::string>())
        std::fprintf(stderr, "wks-host: warning: %s: entry %s was left unread (a name the object does not know, a value "
                     "of another kind or size, an object of an unknown component): what it holds is not kept\n",
                     shown.state.c_str(), entry.c_str());
    if (opened != S_OK) {
        std::fprintf(stderr, "wks-host: the WKSProtocol object could not be created and bound (0x%08X)\n",
                     static_cast<unsigned>(opened));
        return cannotStart;
    }
    // A state edited by hand may describe an object that no longer binds (its input's identifier
    // changed): every command naming an object would fail, and the next save would keep it so.
    if (state && !BoundToWorkspace(session.Manager())) {
        std::fprintf(stderr, "wks-host: %s: the object it holds cannot be bound to the workspace (its input "
                     "RunningObjectTable takes no object): refused, and the file is left as it is\n",
                     shown.state.c_str());
        return cannotStart;
    }
    if (!options.replay.empty()) {
        StopAsAnyProgram();
        std::string report;
        const int status = ReplayTranscript(options.replay, shown.replay, session, report);
        if (status == 2) std::fprintf(stderr, "wks-host: %s\n", report.c_str());
        else std::fputs(report.c_str(), stdout);
        if (status == 0) std::printf("%s: every answer as recorded\n", shown.replay.c_str());
        return status;
    }
    std::vector<std::string> skipped;
    if (!options.importXml.empty() && !ImportParametersXml(session.Manager(), options.importXml, problem, skipped)) {
        std::fprintf(stderr, "wks-host: %s: %s\n", shown.importXml.c_str(), problem.c_str());
        return 1;
    }
    for (const std::string& name : skipped)
        std::fprintf(stderr, "wks-host: warning: %s: element %s names no parameter of the object: skipped\n",
                     shown.importXml.c_str(), name.c_str());
    SmartPtr<IUIPropInterrogate> settings = QueryAs<IUIPropInterrogate>(session.Manager(), IID_IUIPropInterrogate);
    const struct { int value; int32_t item; const char* name; } chosen[] = {
        {options.returnStyle, kReturnStyleItem, "ReturnStyle"}, {options.usePrompt, kUsePromptItem, "UsePrompt"}};
    for (const auto& setting : chosen) {
        if (setting.value >= 0 && (!settings || settings->Control(setting.item, setting.value) < 0)) {
            std::fprintf(stderr, "wks-host: the object's %s setting could not be set\n", setting.name);
            return 1;
        }
    }
    // Saves (after the messages of a read of standard input; on the network at most ten times a
    // second); a failure is reported once until saving works again.
    bool saveFailed = false;
    auto saveState = [&]() {
        if (!state) return true;
        std::string why;
        const bool saved = state->Save(session.Manager(), why);
        if (!saved && !saveFailed) std::fprintf(stderr, "wks-host: %s: cannot save: %s\n", shown.state.c_str(), why.c_str());
        saveFailed = !saved;
        return saved;
    };
    // A state that could not be saved stops the host before it serves anything, rather than after
    // a session whose changes would be lost. Nothing is written here: a hand-edited file stays as
    // it is until there is something to save, and a pipe is not opened before anyone reads it.
    if (state && !state->CanSave(problem)) {
        std::fprintf(stderr, "wks-host: %s: cannot save: %s\n", shown.state.c_str(), problem.c_str());
        return 1;
    }
    // The last save, at the end: when it fails the changes since the last good one are lost, which
    // the status says (1), so that a service manager sees it.
    auto finalSave = [&]() {
        if (saveState()) return true;
        std::fprintf(stderr, "wks-host: %s: the last changes are not saved\n", shown.state.c_str());
        return false;
    };
    if (!options.exportXml.empty()) {
        StopAsAnyProgram();
        if (!saveState()) return 1;  // what the options set at start is kept, as a session keeps it
        std::string warning;
        if (ExportParametersXml(session.Manager(), options.exportXml, problem, warning)) {
            if (!warning.empty())
                std::fprintf(stderr, "wks-host: warning: %s: %s\n", shown.exportXml.c_str(), warning.c_str());
            return 0;
        }
        std::fprintf(stderr, "wks-host: %s: %s\n", shown.exportXml.c_str(), problem.c_str());
        return 1;
    }

    // The prompt follows every message's answer on standard input while the object's UsePrompt
    // setting is on: on a terminal, or always with --prompt.
    const bool showPrompts =
        options.framing != "counted" && (options.prompt || (!options.noPrompt && isatty(STDIN_FILENO) != 0));
    auto prompt = [&](std::string& out) {
        int32_t usePrompt = 0;
        if (showPrompts && settings) settings->Inquire(kUsePromptItem, &usePrompt);
        if (usePrompt) out += "> ";
    };
    const Framing framing = options.framing == "counted" ? Framing::kCounted
                            : options.framing == "raw"   ? Framing::kRaw
                            : options.framing == "text"  ? Framing::kText
                            : options.listen.empty() && options.http.empty() ? Framing::kRaw
                                                         : Framing::kText;
    // Standard input is the operator's: no token, no guard, its own line limit, and a line over
    // it is refused alone.
    ConversationOptions stdinOptions;
    stdinOptions.framing = framing;
    stdinOptions.maxLine = options.maxLine;
    stdinOptions.guard = false;
    stdinOptions.skipLongLines = true;
    stdinOptions.refused = [maxLine = options.maxLine](uint64_t line, uint64_t bytes) {
        std::fprintf(stderr, "wks-host: line %llu has %llu bytes, more than the limit of %zu (--max-line): refused\n",
                     static_cast<unsigned long long>(line), static_cast<unsigned long long>(bytes), maxLine);
    };
    stdinOptions.afterAnswer = prompt;
    if (!options.listen.empty() || !options.http.empty()) {
        ServerOptions server;
        server.listen = options.listen;
        server.http = options.http;
        server.stopOnHangup = !HangupIgnored();
        server.stopNoted = &gStopSignal;
        server.workspace = &workspace;
        server.conversation.framing = framing;
        if (options.maxLineGiven) server.conversation.maxLine = options.maxLine;
        if (!options.authFile.empty()) {
            std::string token, why;
            if (!ReadWholeFile(options.authFile, token, why)) {
                std::fprintf(stderr, "wks-host: %s: %s\n", shown.authFile.c_str(), why.c_str());
                return 1;
            }
            token.erase(0, token.size() - WithoutByteOrderMark(token).size());
            token = token.substr(0, token.find_first_of("\r\n"));
            // Blanks an editor left around the token are no part of it; a line of blanks holds none.
            token = std::string(TrimBlanks(token));
            if (token.empty()) {
                std::fprintf(stderr, "wks-host: %s: no token on its first line\n", shown.authFile.c_str());
                return 1;
            }
            // "AUTH <token>" is a line like any other: a token it cannot hold could never be sent.
            const size_t limit = server.conversation.maxLine;
            if (token.size() + 5 > limit) {
                std::fprintf(stderr, "wks-host: %s: a token of %zu bytes does not fit in a line of at most %zu (--max-line)\n",
                             shown.authFile.c_str(), token.size(), limit);
                return 1;
            }
            server.conversation.token = token;
        }
        server.maxClients = options.maxClients;
        server.idleSeconds = options.idleSeconds;
        server.maxOutput = options.maxOutput;
        server.stallSeconds = options.stallSeconds;
        server.serveStdin = true;
        server.stdinConversation = stdinOptions;
        server.recordFolder = options.recordFolder;
        // A folder that takes no transcript stops the host now, as it does a session on standard
        // input, rather than be found out at each client (the trial transcript, empty, is removed).
        if (!options.recordFolder.empty() && !CTranscript::Open(options.recordFolder, "start", stdinOptions, error)) {
            std::fprintf(stderr, "wks-host: --record: %s\n", error.c_str());
            return 1;
        }
        ServerSetLogLevel(options.logLevel == "debug"     ? LogLevel::kDebug
                          : options.logLevel == "warning" ? LogLevel::kWarn
                          : options.logLevel == "error"   ? LogLevel::kError
                                                          : LogLevel::kInfo);
        const int status = ServerRun(server, session, saveState, error);
        NoteStopSignals(true);  // one more stop signal while the state is saved is no harm
        if (status != 0) std::fprintf(stderr, "wks-host: %s\n", error.c_str());
        const bool saved = finalSave();
        return status != 0 ? status : saved ? 0 : 1;
    }

    std::unique_ptr<CTranscript> transcript;
    if (!options.recordFolder.empty() && !(transcript = CTranscript::Open(options.recordFolder, "stdin", stdinOptions, error))) {
        std::fprintf(stderr, "wks-host: --record: %s\n", error.c_str());
        return 1;
    }
    stdinOptions.holdInput = [] { return gStopSignal != 0; };
    // The messages of one read are saved together, once: a line typed is a read of its own, and a
    // piped script's lines cost one save per block read, not a flushed file per line.
    bool handled = false;
    CConversation conversation(session, stdinOptions, [&] { handled = true; });
    if (transcript) conversation.Record(std::move(transcript));
    const sigset_t stops = CatchStopSignals();
    std::vector<char> buffer(kStdinRead);
    std::string out;
    prompt(out);
    int written = WriteAnswers(out, stops);
    bool unreadable = false;
    for (bool goOn = written == 0; goOn;) {
        out.clear();
        const StdinRead read = ReadStdin(buffer.data(), stops);
        if (read.stop || gStopSignal) break;
        if (read.bytes == 0) {
            if (read.error != 0) {
                std::fprintf(stderr, "wks-host: cannot read standard input: %s\n", std::strerror(read.error));
                unreadable = true;
            }
            conversation.End(out);
            written = WriteAnswers(out, stops);
            break;
        }
        goOn = conversation.Feed(std::string_view(buffer.data(), read.bytes), out);
        if (handled) saveState();
        handled = false;
        written = WriteAnswers(out, stops);
        goOn = goOn && written == 0;
    }
    // Nobody reads the answers any more (a closed pipe): the session ends as at the input's end.
    // Answers that cannot be written otherwise (a full disk) are an error.
    if (written == ETIMEDOUT) {  // standard error may be the same full pipe: the note never waits
        static const char kDropped[] = "wks-host: standard output took no answers for 2 s after the stop: the rest are dropped\n";
        LogOutputWrite(kDropped, sizeof kDropped - 1);
    }
    const bool answered = written == 0 || written == EPIPE || written == ETIMEDOUT;
    if (!answered) std::fprintf(stderr, "wks-host: cannot write standard output: %s; the session ends here\n", std::strerror(written));
    const bool saved = finalSave();  // the session, the workspace and then the module's hold on the collection are let go
    return answered && saved && !unreadable ? 0 : 1;
}

}  // namespace
