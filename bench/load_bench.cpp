// Loading the library into a process of its own.
#include <cstdio>
#include <memory>
#include <string>

#include "Benchmarks.h"

namespace {

using benchmark::State;

struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

void load(State& state, const char* library) {
    const std::string command = std::string("'" LOAD_PROBE "' '") + library + "'";
    double kib = 0;
    while (state.KeepRunning()) {
        // NOLINTNEXTLINE(cert-env33-c)
        const std::unique_ptr<FILE, ClosePipe> pipe(popen(command.c_str(), "r"));
        long long nanoseconds = 0;
        long resident = 0;
        if (pipe == nullptr || fscanf(pipe.get(), "%lld %ld", &nanoseconds, &resident) != 2) {
            state.SkipWithError("the library was not loaded");
            break;
        }
        state.SetIterationTime(static_cast<double>(nanoseconds) / 1e9);
        kib += static_cast<double>(resident);
    }
    state.counters["resident"] = benchmark::Counter(kib, benchmark::Counter::kAvgIterations);
}

}  // namespace

void addLoadBenchmarks(Table& table) {
    constexpr int kLoads = 10;
    benchmark::RegisterBenchmark("load/ours", load, LIBRARY)->UseManualTime()->Iterations(kLoads);
    benchmark::RegisterBenchmark("load/yardstick", load, EMPTY_LIBRARY)
        ->UseManualTime()
        ->Iterations(kLoads);
    const char* const yardstick = "empty library, same dependencies";
    table.add("load time", {"load/ours", "", ""}, yardstick, {"load/yardstick", "", ""}, {});
    table.add("resident memory", {"load/ours", "resident", "KiB"}, yardstick,
              {"load/yardstick", "resident", "KiB"}, {});
}
