// wks-load: a load client for a line-oriented TCP server. It opens C connections, keeps P lines in
// flight on each (P lines first, then one more for every answer), checks every answer, and after a
// warm-up measures answers per second and the latency of each line: from the moment its bytes are
// handed to the socket to the moment the last byte of its answer is read.
//
// It speaks wks-host's counted framing (the server started with --framing counted) and the inline
// commands of redis, so that the same client measures both in one run.
#include <asio.hpp>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/ReplyParser.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string connect;
    int connections = 50;
    int inFlight = 1;
    double duration = 5;
    double warmup = 1;
    std::string line;
    std::vector<std::string> expect;
    std::string protocol = "wks";
    int threads = 1;
    bool json = false;
};

// What every connection shares, fixed before the first line is sent.
struct Plan {
    Dialect dialect;
    std::string lines;  // inFlight copies of the line with its end, so any count is one prefix
    size_t lineSize;
    size_t inFlight;
    bool check;  // the answers are compared with `expect`
    std::vector<std::string> expect;
    Clock::time_point measureFrom, measureTo;
};

// What one event loop saw. Each loop has its own; they are merged once every loop has stopped.
struct Tally {
    std::vector<uint64_t> latencies;  // nanoseconds, for the answers completed in the window
    uint64_t answers = 0;             // every answer, warm-up included
    uint64_t mismatches = 0;
    uint64_t failures = 0;
    uint64_t lost = 0;  // connections that ended before the run did
    std::string firstProblem;

    void Problem(const std::string& what) {
        if (firstProblem.empty()) firstProblem = what;
    }
    void Merge(Tally& other) {
        latencies.insert(latencies.end(), other.latencies.begin(), other.latencies.end());
        answers += other.answers;
        mismatches += other.mismatches;
        failures += other.failures;
        lost += other.lost;
        if (firstProblem.empty()) firstProblem = other.firstProblem;
    }
};

std::string Quoted(std::string_view text) {
    std::string out = "'";
    for (const char c : text.substr(0, 60)) {
        if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else out += c;
    }
    return out + (text.size() > 60 ? "...'" : "'");
}

// One connection: the lines it has written and not yet seen answered, in order, and the lines due
// that wait for the write in progress. Their sum never passes the plan's inFlight.
class CConnection {
public:
    CConnection(asio::io_context& io, const Plan& plan, Tally& tally)
        : m_Socket(io), m_Plan(plan), m_Tally(tally), m_Parser(plan.dialect), m_Sent(plan.inFlight) {}

    asio::ip::tcp::socket& Socket() { return m_Socket; }

    void Start() {
        m_Due = m_Plan.inFlight;
        Write();
        Read();
    }

    void Stop() {
        m_Stopped = true;
        asio::error_code ignored;
        m_Socket.close(ignored);
    }

private:
    void Write() {
        if (m_Writing || m_Due == 0 || m_Stopped) return;
        const Clock::time_point now = Clock::now();
        for (size_t i = 0; i < m_Due; ++i) m_Sent[(m_First + m_Waiting++) % m_Sent.size()] = now;
        const size_t bytes = m_Due * m_Plan.lineSize;
        m_Due = 0;
        m_Writing = true;
        asio::async_write(m_Socket, asio::buffer(m_Plan.lines.data(), bytes),
                          [this](const asio::error_code& error, size_t) {
                              m_Writing = false;
                              if (error) return Lost("cannot write: " + error.message());
                              Write();
                          });
    }

    void Read() {
        m_Socket.async_read_some(asio::buffer(m_Buffer), [this](const asio::error_code& error, size_t size) {
            if (error == asio::error::eof) return Lost("the server closed the connection");
            if (error) return Lost("cannot read: " + error.message());
            if (Received(std::string_view(m_Buffer.data(), size))) {
                Write();
                Read();
            }
        });
    }

    // Every answer the bytes complete is timed at the moment they were read. False when the
    // connection has ended.
    bool Received(std::string_view bytes) {
        const Clock::time_point now = Clock::now();
        const bool measured = now >= m_Plan.measureFrom && now < m_Plan.measureTo;
        for (;;) {
            const CReplyParser::Result result = m_Parser.Parse(bytes);
            if (result == CReplyParser::Result::kNeedMore) return true;
            if (result == CReplyParser::Result::kError) return Lost("protocol error: " + m_Parser.Why()), false;
            if (m_Waiting == 0) return Lost("an answer to no line sent"), false;
            const Clock::time_point sent = m_Sent[m_First];
            m_First = (m_First + 1) % m_Sent.size();
            --m_Waiting;
            ++m_Due;
            ++m_Tally.answers;
            Check();
            if (measured) {
                m_Tally.latencies.push_back(
                    static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now - sent).count()));
            }
        }
    }

    void Check() {
        if (m_Parser.IsFailure()) {
            ++m_Tally.failures;
            m_Tally.Problem("error from the server: " + Quoted(m_Parser.Failure()));
            return;
        }
        if (!m_Plan.check) return;
        if (m_Parser.Count() != m_Plan.expect.size()) {
            ++m_Tally.mismatches;
            m_Tally.Problem("an answer of " + std::to_string(m_Parser.Count()) + " replies, where " +
                            std::to_string(m_Plan.expect.size()) + " were expected");
            return;
        }
        for (size_t i = 0; i < m_Plan.expect.size(); ++i) {
            if (m_Parser.Reply(i) == m_Plan.expect[i]) continue;
            ++m_Tally.mismatches;
            m_Tally.Problem("reply " + std::to_string(i + 1) + " of an answer was " + Quoted(m_Parser.Reply(i)) +
                            ", not " + Quoted(m_Plan.expect[i]));
            return;
        }
    }

    void Lost(const std::string& why) {
        if (m_Stopped) return;  // the run is over: closing is what ended the operation
        ++m_Tally.lost;
        m_Tally.Problem(why);
        Stop();
    }

    asio::ip::tcp::socket m_Socket;
    const Plan& m_Plan;
    Tally& m_Tally;
    CReplyParser m_Parser;
    std::vector<Clock::time_point> m_Sent;  // ring: when each line waiting for its answer was written
    size_t m_First = 0;
    size_t m_Waiting = 0;
    size_t m_Due = 0;
    bool m_Writing = false;
    bool m_Stopped = false;
    std::array<char, 64 * 1024> m_Buffer;
};

// One event loop and its connections; it stops them all when the measuring window closes.
class CLoop {
public:
    explicit CLoop(const Plan& plan) : m_Plan(plan), m_End(m_Io) {}

    CConnection& Add() {
        m_Connections.push_back(std::make_unique<CConnection>(m_Io, m_Plan, m_Tally));
        return *m_Connections.back();
    }

    void Run() {
        for (auto& connection : m_Connections) connection->Start();
        m_End.expires_at(m_Plan.measureTo);
        m_End.async_wait([this](const asio::error_code&) {
            for (auto& connection : m_Connections) connection->Stop();
            m_Io.stop();
        });
        m_Io.run();
    }

    asio::io_context& Io() { return m_Io; }
    Tally& Result() { return m_Tally; }

private:
    const Plan& m_Plan;
    asio::io_context m_Io;  // before the connections: their sockets close before it goes
    asio::steady_timer m_End;
    Tally m_Tally;
    std::vector<std::unique_ptr<CConnection>> m_Connections;
};

// Nearest rank: the smallest value with at least `percent` of the sorted values at or below it.
double PercentileMicros(const std::vector<uint64_t>& sorted, double percent) {
    if (sorted.empty()) return 0;
    size_t rank = static_cast<size_t>(std::ceil(percent / 100 * static_cast<double>(sorted.size())));
    rank = std::clamp<size_t>(rank, 1, sorted.size());
    return static_cast<double>(sorted[rank - 1]) / 1000;
}

std::string JsonText(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + '"';
}

bool SplitAddress(const std::string& text, std::string& host, std::string& port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Load client: keeps lines in flight on many connections to a server, checks every answer, "
                 "and measures answers per second and per-line latency."};
    app.add_option("--connect", options.connect, "the server, HOST:PORT ([ADDRESS]:PORT for IPv6)")->required();
    app.add_option("--connections", options.connections, "connections (default 50)")->check(CLI::Range(1, 10000));
    app.add_option("--in-flight", options.inFlight, "lines in flight on each connection (default 1)")
        ->check(CLI::Range(1, 100000));
    app.add_option("--duration", options.duration, "seconds measured (default 5)")->check(CLI::Range(0.001, 3600.0));
    app.add_option("--warmup", options.warmup, "seconds before measuring (default 1)")->check(CLI::Range(0.0, 3600.0));
    app.add_option("--line", options.line, "the line sent (default Var1? for wks, PING for redis)");
    app.add_option("--expect", options.expect,
                   "the reply every answer must be; repeat it for an answer of several replies, in order "
                   "(without it, only errors are counted)");
    app.add_option("--protocol", options.protocol, "wks (wks-host --framing counted) or redis (default wks)")
        ->check(CLI::IsMember({"wks", "redis"}));
    app.add_option("--threads", options.threads, "event loops, each on its own thread (default 1)")
        ->check(CLI::Range(1, 256));
    app.add_flag("--json", options.json, "print the figures as one line of JSON");
    CLI11_PARSE(app, argc, argv);

    const bool redis = options.protocol == "redis";
    if (options.line.empty()) options.line = redis ? "PING" : "Var1?";
    if (options.line.find_first_of("\r\n") != std::string::npos) {
        std::fprintf(stderr, "wks-load: --line is one line: no CR or LF in it\n");
        return 2;
    }
    std::string host, port;
    if (!SplitAddress(options.connect, host, port)) {
        std::fprintf(stderr, "wks-load: --connect takes HOST:PORT, not '%s'\n", options.connect.c_str());
        return 2;
    }
    const int threads = std::min(options.threads, options.connections);

    Plan plan;
    plan.dialect = redis ? Dialect::kRedis : Dialect::kCounted;
    const std::string line = options.line + (redis ? "\r\n" : "\n");
    plan.lineSize = line.size();
    plan.inFlight = static_cast<size_t>(options.inFlight);
    for (size_t i = 0; i < plan.inFlight; ++i) plan.lines += line;
    plan.check = app.count("--expect") > 0;
    plan.expect = options.expect;

    std::vector<std::unique_ptr<CLoop>> loops;
    for (int i = 0; i < threads; ++i) loops.push_back(std::make_unique<CLoop>(plan));
    try {
        asio::ip::tcp::resolver resolver(loops[0]->Io());
        const auto endpoints = resolver.resolve(host, port);
        for (int i = 0; i < options.connections; ++i) {
            CConnection& connection = loops[static_cast<size_t>(i % threads)]->Add();
            asio::connect(connection.Socket(), endpoints);
            connection.Socket().set_option(asio::ip::tcp::no_delay(true));
        }
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "wks-load: cannot connect to %s: %s\n", options.connect.c_str(), error.what());
        return 1;
    }

    // The clock starts once every connection is open, so that connecting is never measured.
    const auto seconds = [](double s) { return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s)); };
    plan.measureFrom = Clock::now() + seconds(options.warmup);
    plan.measureTo = plan.measureFrom + seconds(options.duration);
    std::vector<std::thread> workers;
    for (size_t i = 1; i < loops.size(); ++i) workers.emplace_back([&loop = *loops[i]] { loop.Run(); });
    loops[0]->Run();
    for (auto& worker : workers) worker.join();

    Tally total;
    for (auto& loop : loops) total.Merge(loop->Result());
    std::sort(total.latencies.begin(), total.latencies.end());
    const uint64_t measured = total.latencies.size();
    const double perSecond = static_cast<double>(measured) / options.duration;
    const double p50 = PercentileMicros(total.latencies, 50), p90 = PercentileMicros(total.latencies, 90),
                 p99 = PercentileMicros(total.latencies, 99), p999 = PercentileMicros(total.latencies, 99.9);

    if (options.json) {
        std::printf("{\"protocol\":%s,\"connect\":%s,\"connections\":%d,\"in_flight\":%d,\"threads\":%d,"
                    "\"warmup_s\":%g,\"duration_s\":%g,\"replies\":%" PRIu64 ",\"replies_per_s\":%.1f,"
                    "\"p50_us\":%.1f,\"p90_us\":%.1f,\"p99_us\":%.1f,\"p999_us\":%.1f,"
                    "\"mismatches\":%" PRIu64 ",\"failures\":%" PRIu64 ",\"lost\":%" PRIu64 "}\n",
                    JsonText(options.protocol).c_str(), JsonText(options.connect).c_str(), options.connections,
                    options.inFlight, threads, options.warmup, options.duration, measured, perSecond, p50, p90, p99,
                    p999, total.mismatches, total.failures, total.lost);
    } else {
        std::printf("%s %s: %d connections x %d in flight, %d thread%s, %g s measured after %g s of warm-up\n",
                    options.protocol.c_str(), options.connect.c_str(), options.connections, options.inFlight, threads,
                    threads == 1 ? "" : "s", options.duration, options.warmup);
        std::printf("  replies/s   %.0f (%" PRIu64 " answers measured)\n", perSecond, measured);
        std::printf("  latency us  p50 %.1f  p90 %.1f  p99 %.1f  p99.9 %.1f\n", p50, p90, p99, p999);
        std::printf("  checked %" PRIu64 " answers%s: %" PRIu64 " mismatches, %" PRIu64 " errors, %" PRIu64
                    " connections lost\n",
                    total.answers, plan.check ? "" : " (errors only: no --expect)", total.mismatches, total.failures,
                    total.lost);
    }
    if (!total.firstProblem.empty()) std::fprintf(stderr, "wks-load: first problem: %s\n", total.firstProblem.c_str());
    if (measured == 0) std::fprintf(stderr, "wks-load: no answer arrived while measuring\n");
    return total.mismatches || total.failures || total.lost || measured == 0 ? 1 : 0;
}
