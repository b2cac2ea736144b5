// Lines per second through RecievedMessage + GetResponse, with the module loaded by dlopen and
// driven in-process against the reference host, as wks-host drives it. Every benchmark builds
// its own workspace and protocol object, checks a sample of replies whole before timing, checks
// every reply by its length and end bytes while timing, and counts the lines the exchange
// reports it handled.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/Rig.h"

namespace {

const std::string kNothing, kZero = "0";

// "Obj<i>.Sub?\r\n" for every object, in a shuffled order: the table's size, not one cache-hot
// key, decides what a lookup costs.
std::vector<std::string> PathQueries(int objects) {
    std::vector<std::string> queries;
    queries.reserve(static_cast<size_t>(objects));
    for (int i : Shuffled(objects)) queries.push_back("Obj" + std::to_string(i) + ".Sub?\r\n");
    return queries;
}

// Items are lines, as the exchange counted them, so that every benchmark reads in lines per second.
void Report(benchmark::State& state, const Tally& tally) { state.SetItemsProcessed(tally.lines); }

// An assignment of Var1, its value changing from line to line.
void BM_Assignment(benchmark::State& state) {
    Rig rig(100);
    if (!Ready(state, rig) || !ExpectReplies(state, rig, "Var1=4711\r\n", {}) ||
        !ExpectReplies(state, rig, "Var1?\r\n", {"Var1=4711"}))
        return;
    std::vector<std::string> assignments;
    for (int n = 0; n < 1000; ++n) assignments.push_back("Var1=" + std::to_string(n) + "\r\n");
    Tally tally;
    size_t k = assignments.size() - 1;
    for (auto _ : state) {
        if (++k == assignments.size()) k = 0;
        rig.Send(assignments[k], kNothing, tally);
    }
    if (Expect(state, tally, state.iterations(), 0, kNothing) &&
        ExpectReplies(state, rig, "Var1?\r\n", {"Var1=" + std::to_string(k)}))
        Report(state, tally);
}

// A query of the object's own parameters.
void BM_OwnQuery(benchmark::State& state) {
    Rig rig(100);
    const std::string reply = "Var1=5\nVar2=Hello";
    if (!Ready(state, rig) || !ExpectReplies(state, rig, "Var1=5\r\n", {}) || !ExpectReplies(state, rig, "?\r\n", {reply}))
        return;
    const std::string query = "?\r\n";
    Tally tally;
    for (auto _ : state) rig.Send(query, reply, tally);
    if (Expect(state, tally, state.iterations(), state.iterations(), reply)) Report(state, tally);
}

// "Var1?": one own parameter, the line the network load test sends.
void BM_ValueQuery(benchmark::State& state) {
    Rig rig(100);
    const std::string reply = "Var1=5";
    if (!Ready(state, rig) || !ExpectReplies(state, rig, "Var1=5\r\n", {}) ||
        !ExpectReplies(state, rig, "Var1?\r\n", {reply}))
        return;
    const std::string query = "Var1?\r\n";
    Tally tally;
    for (auto _ : state) rig.Send(query, reply, tally);
    if (Expect(state, tally, state.iterations(), state.iterations(), reply)) Report(state, tally);
}

// "Obj<i>.Sub?" over every object of a table of n, in a shuffled order.
void BM_PathQuery(benchmark::State& state) {
    struct Table {
        Rig rig;
        std::vector<std::string> queries;
        explicit Table(int objects) : rig(objects), queries(PathQueries(objects)) {}
    };
    const int objects = static_cast<int>(state.range(0));
    // A million objects take seconds to build: that table is kept for this benchmark's own later
    // runs (it only reads it); smaller ones are built afresh every time.
    static std::map<int, std::unique_ptr<Table>> kept;
    std::unique_ptr<Table> fresh;
    std::unique_ptr<Table>& slot = objects >= 1000000 ? kept[objects] : fresh;
    if (!slot) slot.reset(new Table(objects));
    Rig& rig = slot->rig;
    const std::vector<std::string>& queries = slot->queries;
    if (!Ready(state, rig) || !ExpectReplies(state, rig, queries[0], {kZero}) ||
        !ExpectReplies(state, rig, "Obj" + std::to_string(objects) + ".Sub?\r\n", {"?"}))
        return;
    Tally tally;
    size_t k = 0;
    for (auto _ : state) {
        rig.Send(queries[k], kZero, tally);
        if (++k == queries.size()) k = 0;
    }
    if (Expect(state, tally, state.iterations(), state.iterations(), kZero)) Report(state, tally);
}

// One message of 11 lines: path queries over 10,000 objects (shuffled, as above) and assignments
// of Var1, taking turns: query, assignment, query, ..., query.
void BM_MixedMessage(benchmark::State& state) {
    constexpr int kObjects = 10000;
    Rig rig(kObjects);
    if (!Ready(state, rig)) return;
    // Six keys a message: kObjects / 2 messages visit every object three times. Message m assigns
    // 5m, 5m + 1, ..., 5m + 4.
    const std::vector<int> order = Shuffled(kObjects);
    std::vector<std::string> messages(kObjects / 2);
    for (size_t m = 0; m < messages.size(); ++m)
        for (size_t j = 0; j < 11; ++j)
            messages[m] += j % 2 == 0 ? "Obj" + std::to_string(order[(6 * m + j / 2) % kObjects]) + ".Sub?\r\n"
                                      : "Var1=" + std::to_string(5 * m + j / 2) + "\r\n";
    int64_t lines = 0;
    if (rig.Replies(messages[0], &lines) != std::vector<std::string>(6, kZero) || lines != 11) {
        state.SkipWithError("the mixed message was not answered by 11 lines and six replies \"0\"");
        return;
    }
    Tally tally;
    size_t k = messages.size() - 1;
    for (auto _ : state) {
        if (++k == messages.size()) k = 0;
        rig.Send(messages[k], kZero, tally);
    }
    if (Expect(state, tally, 11 * state.iterations(), 6 * state.iterations(), kZero) &&
        ExpectReplies(state, rig, "Var1?\r\n", {"Var1=" + std::to_string(5 * k + 4)}))
        Report(state, tally);
}

// One message of 11 assignments of Var1.
void BM_ElevenAssignments(benchmark::State& state) {
    Rig rig(100);
    if (!Ready(state, rig) || !ExpectReplies(state, rig, "Var1=4711\r\n", {})) return;
    std::string message;
    for (int n = 0; n < 11; ++n) message += "Var1=" + std::to_string(n) + "\r\n";
    Tally tally;
    for (auto _ : state) rig.Send(message, kNothing, tally);
    if (Expect(state, tally, 11 * state.iterations(), 0, kNothing) &&
        ExpectReplies(state, rig, "Var1?\r\n", {"Var1=10"}))
        Report(state, tally);
}

// A query of one object with n results: the cost per result (results_per_second) stays flat as
// n grows.
void BM_ContainerQuery(benchmark::State& state) {
    const int children = static_cast<int>(state.range(0));
    Rig rig(0, children);
    std::string reply;
    for (int i = 0; i < children; ++i) reply += (i ? "\nR" : "R") + std::to_string(i) + "=" + std::to_string(i) + ".5";
    const std::string query = "Big?\r\n";
    if (!Ready(state, rig) || !ExpectReplies(state, rig, query, {reply})) return;
    Tally tally;
    for (auto _ : state) rig.Send(query, reply, tally);
    if (!Expect(state, tally, state.iterations(), state.iterations(), reply)) return;
    Report(state, tally);
    state.counters["results_per_second"] = benchmark::Counter(children, benchmark::Counter::kIsIterationInvariantRate);
}

// A reply of n characters of three bytes each under C.UTF-8: converting it to bytes costs time
// linear in n, so chars_per_second stays flat from 100,000 to 4,000,000 characters.
void BM_MultibyteReply(benchmark::State& state) {
    LocaleScope utf8("C.UTF-8");
    if (!utf8.Set()) {
        state.SkipWithError("no C.UTF-8 locale");
        return;
    }
    const int64_t characters = state.range(0);
    std::string value;
    for (int64_t i = 0; i < characters; ++i) value += "\xe4\xb8\xad";  // U+4E2D
    Rig rig(0);
    const std::string query = "Var2?\r\n", reply = "Var2=" + value;
    if (!Ready(state, rig) || !ExpectReplies(state, rig, "Var2=" + value + "\r\n", {}) ||
        !ExpectReplies(state, rig, query, {reply}))
        return;
    Tally tally;
    for (auto _ : state) rig.Send(query, reply, tally);
    if (!Expect(state, tally, state.iterations(), state.iterations(), reply)) return;
    Report(state, tally);
    state.counters["chars_per_second"] =
        benchmark::Counter(static_cast<double>(characters), benchmark::Counter::kIsIterationInvariantRate);
}

// Resident-memory growth over ten million lines, path queries (over 10,000 objects, shuffled) and
// assignments taking turns, one line a message: after the first million and after all of them.
void BM_MemoryTenMillionLines(benchmark::State& state) {
    constexpr int kObjects = 10000;
    constexpr int64_t kLines = 10000000, kFirst = 1000000;
    Rig rig(kObjects);
    const std::vector<std::string> queries = PathQueries(kObjects);
    std::vector<std::string> assignments;
    for (int n = 0; n < kObjects; ++n) assignments.push_back("Var1=" + std::to_string(n) + "\r\n");
    if (!Ready(state, rig)) return;
    Tally tally;
    long start = 0, first = 0, last = 0;
    for (auto _ : state) {
        start = ResidentKiB();
        for (int64_t line = 0; line < kLines; ++line) {
            if (line == kFirst) first = ResidentKiB();
            if (line % 2 == 0) rig.Send(queries[static_cast<size_t>(line / 2 % kObjects)], kZero, tally);
            else rig.Send(assignments[static_cast<size_t>(line / 2 % kObjects)], kNothing, tally);
        }
        last = ResidentKiB();
    }
    if (!Expect(state, tally, kLines, kLines / 2, kZero)) return;
    Report(state, tally);
    state.counters["rss_growth_1M_kib"] = static_cast<double>(first - start);
    state.counters["rss_growth_10M_kib"] = static_cast<double>(last - start);
}

}  // namespace

BENCHMARK(BM_Assignment);
BENCHMARK(BM_OwnQuery);
BENCHMARK(BM_ValueQuery);
BENCHMARK(BM_PathQuery)->Arg(100)->Arg(10000)->Arg(1000000);
BENCHMARK(BM_MixedMessage);
BENCHMARK(BM_ElevenAssignments);
BENCHMARK(BM_MultibyteReply)->Arg(100000)->Arg(1000000)->Arg(4000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ContainerQuery)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
// A measurement of memory, not of time: one pass, whatever the repetitions asked for.
BENCHMARK(BM_MemoryTenMillionLines)->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
