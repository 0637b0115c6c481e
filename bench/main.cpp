// Runs the benchmarks and prints the table.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Benchmarks.h"
#include "FakeDnsSd.h"
#include "Journal.h"
#include "LogSwitch.h"

int main(int argc, char** argv) {
    // Before the given ones, which come to bear where they differ.
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=25";
    char minTime[] = "--benchmark_min_time=0.02";
    std::vector<char*> arguments{argv[0], interleaving, repetitions, minTime};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    // Two descriptors for each of a thousand requests.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        if (setrlimit(RLIMIT_NOFILE, &files) != 0) perror("open files");
    }
    // Also where the log is kept, to be compared.
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    hostplatform::setLogDropped(true);
    hostplatform::Journal::instance().setCapacity(0);
    FakeDnsSd::instance().setJournalled(false);

    Table table;
    addCommandBenchmarks(table);
    addChannelBenchmarks(table);
    addTriggerBenchmarks(table);
    addSessionBenchmarks(table);
    addLoadBenchmarks(table);
    benchmark::RunSpecifiedBenchmarks(&table);
    return table.print() ? 0 : 1;
}
