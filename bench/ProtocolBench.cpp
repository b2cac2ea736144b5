// Lines per second through RecievedMessage + GetResponse, with the module loaded by dlopen and
// driven in-process against the reference host, as wks-host drives it.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

// A workspace of `objects` objects, each with one input/output child "Sub", and a protocol object
// bound to it through the module-host kit. With `children`, one more object "Big" holds that many
// results.
struct Bench {
    Workspace workspace;
    CModuleHost host;
    CProtocolSession session;

    explicit Bench(int objects, int children = 0) {
        CWorkspaceObject* root = new CWorkspaceObject(L"Workspace", WS_NAMED | WS_TABLE, &workspace.log);
        workspace.table.Attach(static_cast<IRunningObjectTableEx*>(root));
        for (int i = 0; i < objects; ++i) {
            CWorkspaceObject* object = new CWorkspaceObject(L"Obj" + std::to_wstring(i), WS_NAMED, &workspace.log);
            CWorkspaceObject* sub = new CWorkspaceObject(L"Sub", WS_IO, &workspace.log);
            object->AddChild(static_cast<IStep*>(sub), L"Sub");
            sub->HostRelease();
            root->AddChild(static_cast<IStep*>(object), object->Name());
            object->HostRelease();
        }
        if (children > 0) {
            CWorkspaceObject* big = new CWorkspaceObject(L"Big", WS_NAMED, &workspace.log);
            for (int i = 0; i < children; ++i) {
                CWorkspaceObject* result = new CWorkspaceObject(L"R" + std::to_wstring(i), WS_RESULT, &workspace.log);
                result->m_Value = i + 0.5;
                big->AddChild(static_cast<IStep*>(result), result->Name());
                result->HostRelease();
            }
            root->AddChild(static_cast<IStep*>(big), big->Name());
            big->HostRelease();
        }
        std::string error;
        if (!host.Load("./WKSProtocol.so", error)) return;
        SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
        session.Open(host, names.get());
    }

    // One message; returns the number of lines processed. The replies' bytes are summed into
    // `bytes` so that the work cannot be skipped.
    int Run(std::string& message, size_t* bytes = nullptr) {
        int32_t lines = 0;
        session.Exchange(message.data(), message.size(), [&](const unsigned char* reply, int32_t length) {
            benchmark::DoNotOptimize(reply);
            if (bytes) *bytes += static_cast<size_t>(length);
        }, &lines);
        return lines + 1;
    }
};

Bench& Shared(int objects) {
    static std::unique_ptr<Bench> small, large;
    std::unique_ptr<Bench>& slot = objects <= 100 ? small : large;
    if (!slot) slot.reset(new Bench(objects));
    return *slot;
}

void Lines(benchmark::State& state, int objects, std::string message, int linesPerMessage) {
    Bench& bench = Shared(objects);
    if (!bench.session.IsOpen()) {
        state.SkipWithError("./WKSProtocol.so could not be loaded");
        return;
    }
    for (auto _ : state) bench.Run(message);
    state.SetItemsProcessed(state.iterations() * linesPerMessage);
}

void BM_Assignment(benchmark::State& state) { Lines(state, 100, "Var1=5\r\n", 1); }
void BM_OwnQuery(benchmark::State& state) { Lines(state, 100, "?\r\n", 1); }
void BM_PathQuery(benchmark::State& state) {
    const int objects = static_cast<int>(state.range(0));
    Lines(state, objects, "Obj" + std::to_string(objects == 100 ? 47 : 4711) + ".Sub?\r\n", 1);
}
void BM_ElevenAssignments(benchmark::State& state) {
    std::string message;
    for (int i = 0; i < 11; ++i) message += "Var1=" + std::to_string(i) + "\r\n";
    Lines(state, 100, message, 11);
}

// A query of one object with n children (results): the cost per child stays flat as n grows.
void BM_ContainerQuery(benchmark::State& state) {
    const int children = static_cast<int>(state.range(0));
    Bench bench(0, children);
    if (!bench.session.IsOpen()) {
        state.SkipWithError("./WKSProtocol.so could not be loaded");
        return;
    }
    std::string query = "Big?\r\n";
    size_t bytes = 0;
    for (auto _ : state) bench.Run(query, &bytes);
    state.SetItemsProcessed(state.iterations() * children);
    state.counters["reply_bytes"] = static_cast<double>(bytes / state.iterations());
}

// A reply of n characters of three bytes each (C.UTF-8): converting it to bytes costs time linear
// in n, so the time per character stays flat from 100,000 to 4,000,000 characters.
void BM_MultibyteReply(benchmark::State& state) {
    const char* previous = std::setlocale(LC_ALL, nullptr);
    const std::string restore = previous ? previous : "C";
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) {
        state.SkipWithError("no C.UTF-8 locale");
        return;
    }
    Bench& bench = Shared(100);
    const int64_t characters = state.range(0);
    std::string assign = "Var2=";
    for (int64_t i = 0; i < characters; ++i) assign += "\xe4\xb8\xad";  // U+4E2D
    bench.Run(assign);
    std::string query = "Var2?";
    size_t bytes = 0;
    for (auto _ : state) bench.Run(query, &bytes);
    if (bytes / state.iterations() != static_cast<size_t>(characters) * 3 + 5) state.SkipWithError("wrong reply");
    state.SetItemsProcessed(state.iterations() * characters);
    std::string reset = "Var2=Hello";
    bench.Run(reset);
    std::setlocale(LC_ALL, restore.c_str());
}

long ResidentPages() {
    long size = 0, resident = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr) return -1;
    if (std::fscanf(statm, "%ld %ld", &size, &resident) != 2) resident = -1;
    std::fclose(statm);
    return resident;
}

// A million lines: resident memory before and after (the response buffer grows once and is reused).
void BM_MillionLinesMemory(benchmark::State& state) {
    Bench& bench = Shared(10000);
    std::string assign = "Var1=5\r\n", query = "Obj4711.Sub?\r\n";
    for (int i = 0; i < 1000; ++i) bench.Run(i % 2 ? assign : query);  // warm up
    const long before = ResidentPages();
    for (auto _ : state)
        for (int i = 0; i < 1000000; ++i) bench.Run(i % 2 ? assign : query);
    const long after = ResidentPages();
    state.counters["rss_growth_kib"] = static_cast<double>((after - before) * sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

BENCHMARK(BM_Assignment);
BENCHMARK(BM_OwnQuery);
BENCHMARK(BM_PathQuery)->Arg(100)->Arg(10000);
BENCHMARK(BM_ElevenAssignments);
BENCHMARK(BM_MultibyteReply)->Arg(100000)->Arg(1000000)->Arg(4000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ContainerQuery)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MillionLinesMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
