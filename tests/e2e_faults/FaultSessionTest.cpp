// A scripted session run once for every host object creation it makes, with that one creation
// failing as an exhausted memory would: load the module, load the workspace, open a protocol
// object, exchange every command form, destroy everything. Every run must stay within the
// contract: a failed creation gives a failure code and no object, the exchange never crashes and
// answers a command it could not carry out with "?", and nothing is left alive afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "host/collections/HostObject.h"
#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

// Every command form of the sample workspace, each query before any assignment to the same
// object, so that a reply never depends on whether an earlier command was carried out; a reply
// longer than the response buffer ("Big?"), a message of several lines, and a break.
const char* const kScript[] = {
    "?", "? Var1", "Var1=100", "Lamp?", "Lamp=1", "Lamp=0", "Valve?", "Valve=0", "Station.ResultsView?",
    "Station::ResultsView?", "\"Station\".ResultsView?", "Station.IOQuen?", "Station.Feeder?", "Oven?",
    "Toolbar.Start=0", "Panel.Stop=1", "Tabs.Second.Value?", "UI.Field=x", "UI+", "UI-", "Valve+",
    "Managers:pick", "Managers", "Links:via moniker", "KQBible.first second", "Station:Feeder", "Nobody?",
    "Lamp=", "Lamp=\"\"", "Big?", "Var1?\r\nVar2?\r\nNope?", "", "Break",
};

std::string BigWorkspace() {
    std::string toml = WorkspaceSample();
    toml += "\n[[object]]\nname = \"Big\"\n";
    for (int i = 0; i < 100; ++i)
        toml += "[[object.children]]\nname = \"Result" + std::to_string(i) + "\"\nkind = \"result\"\nvalue = " +
                std::to_string(i) + ".5\n";
    return toml;
}

// One message as the host sees it: RecievedMessage's result, and what each GetResponse call
// handed out (nothing, or one reply).
struct Exchange {
    HRESULT received = S_OK;
    std::vector<std::optional<std::string>> lines;
};

// What one run did; `problems` lists every step that left the contract.
struct Outcome {
    std::vector<Exchange> exchanges;
    std::vector<std::string> problems;
    void Problem(const std::string& step, const std::string& what) { problems.push_back(step + ": " + what); }
};

Exchange Send(IProtocolManager* manager, const std::string& message, Outcome& run) {
    Exchange done;
    done.received = manager->RecievedMessage(reinterpret_cast<unsigned char*>(const_cast<char*>(message.data())),
                                             static_cast<int32_t>(message.size()));
    if (done.received != S_OK && done.received != E_BREAK)
        run.Problem(message, "RecievedMessage answered " + std::to_string(done.received));
    for (int call = 0; call < 64; ++call) {
        unsigned char* reply = reinterpret_cast<unsigned char*>(0x1);  // poisoned: written only with a reply
        int32_t length = -7;
        const HRESULT more = manager->GetResponse(&reply, &length);
        const bool replied = reply != reinterpret_cast<unsigned char*>(0x1);
        if (replied && (reply == nullptr || length <= 0)) run.Problem(message, "GetResponse handed out an empty reply");
        if (replied && reply != nullptr && length > 0) done.lines.emplace_back(std::string(reinterpret_cast<char*>(reply), length));
        else done.lines.emplace_back();
        if (more != S_OK && more != S_FALSE) run.Problem(message, "GetResponse answered " + std::to_string(more));
        if (more != S_OK) break;
    }
    return done;
}

Outcome Session(const std::string& toml) {
    Outcome run;
    Workspace workspace;
    std::string error;
    if (!WorkspaceLoad(toml, "faults", workspace, error)) {
        const std::string ending = ": out of memory";
        if (error.size() < ending.size() || error.compare(error.size() - ending.size(), ending.size(), ending) != 0)
            run.Problem("WorkspaceLoad", error);
        return run;
    }
    CModuleHost host;
    if (!host.Load("./WKSProtocol.so", error)) {
        if (error.find("could not be made") == std::string::npos && error.find("failed") == std::string::npos)
            run.Problem("Load", error);
        return run;
    }
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
    if (!names) run.Problem("Open", "the running object table answers no INamedCollection");
    CProtocolSession session;
    const HRESULT opened = session.Open(host, names.get());
    if (opened != S_OK) {
        if (opened >= 0 || session.IsOpen()) run.Problem("Open", "answered " + std::to_string(opened));
        return run;
    }
    for (const char* message : kScript) run.exchanges.push_back(Send(session.Manager(), message, run));
    return run;
}

std::vector<std::string> Entries(const std::string& reply) {
    std::vector<std::string> entries;
    std::istringstream lines(reply);
    for (std::string entry; std::getline(lines, entry, '\n');) entries.push_back(entry);
    return entries;
}

// Whether `got` is the reply `want` with at most one entry (`name=value`, INI style) degraded by a
// value or a name that could not be made. The contract lets a query go on when a host operation
// fails: an entry whose value could not be made is added without one ("name=", or dropped when
// the collection cannot hold even an empty value), one whose name could not be made is written as
// its value alone.
bool OneEntryDegraded(const std::string& want, const std::string& got) {
    const std::vector<std::string> wanted = Entries(want), gotten = Entries(got);
    // The entries that differ lie between the longest common beginning and end.
    size_t front = 0, back = 0;
    while (front < wanted.size() && front < gotten.size() && wanted[front] == gotten[front]) ++front;
    while (front + back < wanted.size() && front + back < gotten.size() &&
           wanted[wanted.size() - 1 - back] == gotten[gotten.size() - 1 - back])
        ++back;
    if (front + back + 1 != wanted.size()) return false;  // exactly one wanted entry differs
    if (gotten.size() + 1 == wanted.size()) return true;   // and it was dropped
    const size_t equals = wanted[front].find('=');
    return gotten.size() == wanted.size() && equals != std::string::npos && equals > 0 &&
           (gotten[front] == wanted[front].substr(0, equals + 1) || gotten[front] == wanted[front].substr(equals + 1));
}

// A run under a failing creation against the run without one, line by line: the same reply, "?"
// (a command that could not be carried out), no reply (a query whose stream or collection could not
// be made), or the reply with one entry degraded. A message whose text could not be made is one
// call without a reply, and a break that could not be read is such a message.
void Compare(const Outcome& expected, Outcome& run) {
    for (size_t i = 0; i < run.exchanges.size() && i < expected.exchanges.size(); ++i) {
        const Exchange& want = expected.exchanges[i];
        const Exchange& got = run.exchanges[i];
        const std::string step = std::string("\"") + kScript[i] + "\"";
        if (got.received == S_OK && got.lines.size() == 1 && !got.lines[0]) continue;
        if (got.received != want.received) run.Problem(step, "RecievedMessage answered " + std::to_string(got.received));
        if (got.lines.size() != want.lines.size()) {
            run.Problem(step, std::to_string(got.lines.size()) + " lines instead of " + std::to_string(want.lines.size()));
            continue;
        }
        for (size_t k = 0; k < got.lines.size(); ++k) {
            if (!got.lines[k] || *got.lines[k] == "?" || got.lines[k] == want.lines[k]) continue;
            if (want.lines[k] && OneEntryDegraded(*want.lines[k], *got.lines[k])) continue;
            run.Problem(step, "line " + std::to_string(k + 1) + " replied \"" + *got.lines[k] + "\" instead of \"" +
                                  want.lines[k].value_or("<nothing>") + "\"");
        }
    }
}

TEST(FaultInjection, EveryFailingCreationKeepsTheSessionWithinTheContract) {
    const std::string toml = BigWorkspace();
    // The module makes its process-wide factory objects on first use and keeps them: a complete
    // session first, then the count of what stays alive.
    HOSTFailCreation(0);
    const Outcome expected = Session(toml);
    ASSERT_TRUE(expected.problems.empty()) << expected.problems.front();
    ASSERT_EQ(expected.exchanges.size(), std::size(kScript));
    const size_t big = std::find(std::begin(kScript), std::end(kScript), std::string("Big?")) - std::begin(kScript);
    ASSERT_GT(expected.exchanges[big].lines.at(0).value_or("").size(), 1000u) << "the long reply";
    ASSERT_EQ(expected.exchanges.back().received, E_BREAK);
    const int32_t live = HOSTLiveObjects();
    HOSTFailCreation(0);
    const Outcome again = Session(toml);
    const int64_t creations = HOSTCreationCount();
    ASSERT_TRUE(again.problems.empty()) << again.problems.front();
    ASSERT_EQ(HOSTLiveObjects(), live);

    int64_t points = 0;
    for (int64_t n = 1;; ++n) {
        HOSTFailCreation(n);
        Outcome run = Session(toml);
        const int64_t made = HOSTCreationCount();
        HOSTFailCreation(0);
        if (made < n) break;  // the session completed without reaching creation n
        ++points;
        Compare(expected, run);
        if (HOSTLiveObjects() != live)
            run.Problem("end", std::to_string(HOSTLiveObjects() - live) + " host objects left alive");
        std::ostringstream all;
        for (const std::string& problem : run.problems) all << "\n  " << problem;
        EXPECT_TRUE(run.problems.empty()) << "creation " << n << " failing:" << all.str();
        ASSERT_LT(n, 100000) << "the session never completes";
    }
    EXPECT_GT(points, 0);
    EXPECT_EQ(points, creations) << "every creation of the complete session was made to fail once";
    std::printf("[ faults   ] %lld failure points\n", static_cast<long long>(points));
}

}  // namespace
