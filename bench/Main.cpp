// wks-bench's main: Google Benchmark's own reporting (--benchmark_format, --benchmark_out), then
// a table of ratios of CPU time per line, from the medians when the runs were repeated.
//
// Without a --benchmark_repetitions option every benchmark runs five times, interleaved with the
// others in a random order, and only the aggregates are reported.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

// CPU nanoseconds per line of every benchmark, taken from the runs as they are reported.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(benchmark::BenchmarkReporter* display) : m_Display(display) {}

    bool ReportContext(const Context& context) override { return m_Display->ReportContext(context); }
    void Finalize() override { m_Display->Finalize(); }

    void ReportRuns(const std::vector<Run>& runs) override {
        m_Display->ReportRuns(runs);
        for (const Run& run : runs) {
            m_Failed |= run.error_occurred;
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const auto items = run.counters.find("items_per_second");
            if (run.error_occurred || !(single || median) || items == run.counters.end() || items->second.value <= 0)
                continue;
            const std::string& args = run.run_name.args;
            m_PerLine[run.run_name.function_name + (args.empty() ? "" : "/" + args)] = 1e9 / items->second.value;
            if (median) m_Repetitions = run.repetitions;
        }
    }

    bool Failed() const { return m_Failed; }

    // The ratios a reader quotes, each against its target.
    void PrintRatios(std::ostream& out) const {
        if (m_PerLine.empty()) return;
        struct Row {
            const char* what;
            const char* measured;
            const char* base;  // null: the measured time itself, in ns, is held to the target
            double target;  // 0: a figure for reference, with no target
        };
        static const Row rows[] = {
            {"path query, 10,000 objects / floor", "BM_PathQuery/10000", "BM_Floor/10000", 2.0},
            {"path query, 1,000,000 / 10,000 objects", "BM_PathQuery/1000000", "BM_PathQuery/10000", 1.3},
            {"floor, 1,000,000 / 10,000 names", "BM_Floor/1000000", "BM_Floor/10000", 0},
            {"mixed 11-line message / floor", "BM_MixedMessage", "BM_Floor/10000", 1.5},
            {"assignment / floor", "BM_Assignment", "BM_Floor/10000", 1.0},
            {"assignment, CPU ns per line", "BM_Assignment", nullptr, 290},
        };
        char line[160];
        std::snprintf(line, sizeof line, "\nCPU time per line, %s\n%-40s %16s %8s %8s\n",
                      m_Repetitions > 1 ? ("medians of " + std::to_string(m_Repetitions) + " repetitions").c_str()
                                        : "single runs",
                      "", "ns per line", "value", "target");
        out << line;
        for (const Row& row : rows) {
            const auto measured = m_PerLine.find(row.measured);
            const auto base = m_PerLine.find(row.base ? row.base : row.measured);
            char times[40] = "-", value[16] = "-", target[16];
            const char* verdict = "not measured";
            std::snprintf(target, sizeof target, row.target == 0 ? "-" : row.base ? "<= %.1f" : "<= %.0f", row.target);
            if (measured != m_PerLine.end() && base != m_PerLine.end()) {
                const double v = row.base ? measured->second / base->second : measured->second;
                if (row.base) std::snprintf(times, sizeof times, "%.0f / %.0f", measured->second, base->second);
                else std::snprintf(times, sizeof times, "%.0f", measured->second);
                std::snprintf(value, sizeof value, row.base ? "%.2f" : "%.0f", v);
                verdict = row.target == 0 ? "(reference)" : v <= row.target ? "met" : "not met";
            }
            std::snprintf(line, sizeof line, "%-40s %16s %8s %8s  %s\n", row.what, times, value, target, verdict);
            out << line;
        }
        out.flush();
    }

private:
    benchmark::BenchmarkReporter* m_Display;
    std::map<std::string, double> m_PerLine;
    int64_t m_Repetitions = 1;
    bool m_Failed = false;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    bool repetitions = false;
    for (int i = 1; i < argc; ++i) repetitions |= std::strncmp(argv[i], "--benchmark_repetitions", 23) == 0;
    static char defaults[][48] = {"--benchmark_repetitions=5", "--benchmark_enable_random_interleaving=true",
                                  "--benchmark_report_aggregates_only=true"};
    // Ahead of the user's own options, which therefore win.
    if (!repetitions)
        for (int i = 2; i >= 0; --i) args.insert(args.begin() + 1, defaults[i]);
    int count = static_cast<int>(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

    // The library keeps the reporter that --benchmark_format asks for.
    benchmark::BenchmarkReporter* display = benchmark::CreateDefaultDisplayReporter();
    RatioReporter reporter(display);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // The table goes with the console output; beside JSON or CSV it goes to standard error.
    reporter.PrintRatios(dynamic_cast<benchmark::ConsoleReporter*>(display) ? std::cout : std::cerr);
    benchmark::Shutdown();
    return reporter.Failed() ? 1 : 0;
}
