// What the in-process benchmarks share: a protocol object hosted through the module-host kit and
// bound to a workspace of its own, and the checks that a benchmark did the work it claims.
#pragma once

#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdint>
#include <string>
#include <vector>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

// What a run of messages produced, tallied cheaply enough to stay inside a timed loop.
struct Tally {
    int64_t lines = 0;     // lines handled, as the exchange reports them
    int64_t matches = 0;   // replies of the expected length, first and last byte
    int64_t others = 0;    // every other reply
    int64_t failures = 0;  // messages the object did not take
};

// A workspace of `objects` top-level objects Obj<i>, each with one input/output child "Sub" in
// state 0 (with `children`, one more object "Big" holding the results R<i> of value i + 0.5), and
// a protocol object of ./WKSProtocol.so bound to it. Every benchmark builds its own.
class Rig {
public:
    explicit Rig(int objects, int children = 0);
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    // Why the rig cannot run; empty when it can.
    const std::string& Error() const { return m_Error; }

    // Hands one message over and tallies what came back against `expected`.
    void Send(const std::string& message, const std::string& expected, Tally& tally) {
        int32_t more = 0;
        const HRESULT received = m_Session.Exchange(
            message.data(), message.size(),
            [&](const unsigned char* reply, int32_t length) {
                const size_t n = static_cast<size_t>(length);
                if (n == expected.size() && n > 0 && reply[0] == static_cast<unsigned char>(expected[0]) &&
                    reply[n - 1] == static_cast<unsigned char>(expected[n - 1]))
                    ++tally.matches;
                else
                    ++tally.others;
            },
            &more);
        // The exchange counts the calls that asked for more: the last line is the one after them.
        tally.lines += more + 1;
        tally.failures += received != S_OK;
    }

    // Every reply to `message`, whole, and the number of lines handled in `lines`.
    std::vector<std::string> Replies(const std::string& message, int64_t* lines = nullptr);

private:
    Workspace m_Workspace;
    CModuleHost m_Host;
    CProtocolSession m_Session;
    std::string m_Error;
};

// Ends the benchmark with an error, and returns false, unless `rig` can run.
bool Ready(benchmark::State& state, const Rig& rig);

// Ends the benchmark with an error, and returns false, unless the tally holds exactly `lines`
// lines, `matches` replies like `expected` and nothing else.
bool Expect(benchmark::State& state, const Tally& tally, int64_t lines, int64_t matches, const std::string& expected);

// Ends the benchmark with an error, and returns false, unless `message` gets exactly `replies`.
bool ExpectReplies(benchmark::State& state, Rig& rig, const std::string& message,
                   const std::vector<std::string>& replies);

// The objects 0 .. objects-1 in a shuffled order, the same in every run.
std::vector<int> Shuffled(int objects);

// Sets LC_ALL to a locale for its lifetime, and puts back the one it found.
class LocaleScope {
public:
    explicit LocaleScope(const char* name) {
        const char* current = std::setlocale(LC_ALL, nullptr);
        m_Previous = current != nullptr ? current : "C";
        m_Set = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~LocaleScope() { std::setlocale(LC_ALL, m_Previous.c_str()); }
    bool Set() const { return m_Set; }

private:
    std::string m_Previous;
    bool m_Set;
};

// Resident memory of the process in KiB, after handing free heap memory back to the system so
// that memory freed earlier cannot hide growth.
long ResidentKiB();
