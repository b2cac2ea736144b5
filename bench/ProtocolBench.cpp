// Lines per second through RecievedMessage + GetResponse, with the module loaded by dlopen and
// driven in-process against the reference host, as wks-host drives it.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "host/collections/ComponentList.h"
#include "host/workspace/Workspace.h"

namespace {

struct Bench {
    Workspace workspace;
    SmartPtr<IProtocolManager> manager;

    explicit Bench(int objects) {
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
        void* module = dlopen("./WKSProtocol.so", RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) return;
        auto initialize = reinterpret_cast<HRESULT (*)(void*, IComponentCollection*)>(
            dlsym(module, "_Z16InitializeModulePvP20IComponentCollection"));
        auto entry = reinterpret_cast<HRESULT (*)(tagREFString, void**)>(dlsym(module, "CreateFunction"));
        SmartPtr<IComponentCollection> components;
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, components.OutVoid());
        initialize(nullptr, components.get());
        void* creator = nullptr;
        entry(tagREFString{11, L"WKSProtocol"}, &creator);
        IID wanted = IID_IProtocolManager;
        reinterpret_cast<CREATORFUNCTION>(creator)(nullptr, &wanted, manager.OutVoid());
        SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
        QueryAs<IBindableObject>(manager.get(), IID_IBindableObject)->Bind(names.get(), nullptr);
    }

    // One message; returns the number of lines processed.
    int Run(std::string& message) {
        manager->RecievedMessage(reinterpret_cast<unsigned char*>(message.data()), static_cast<int32_t>(message.size()));
        int lines = 0;
        for (;;) {
            unsigned char* reply = nullptr;
            int32_t length = 0;
            ++lines;
            if (manager->GetResponse(&reply, &length) != S_OK) break;
            benchmark::DoNotOptimize(reply);
        }
        return lines;
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
    if (!bench.manager) {
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
BENCHMARK(BM_MillionLinesMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
