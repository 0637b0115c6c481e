// The benchmarks and the table of their results.
//
// Usage. A file of benchmarks has one function, declared below, which adds rows to the table and
// registers what they compare with benchmark::RegisterBenchmark. main runs them all and prints the
// table. All benchmarks are run several times, their repetitions in a random order, so that what
// else the machine does meets both sides of a comparison. A figure is their lower quartile: on a
// virtual machine a neighbour can make a whole stretch of a run slower by half.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

// What a row is about: a benchmark's time, CPU time unless it measures real or manual time, or one
// of its counters.
struct Figure {
    std::string benchmark;
    std::string counter;  // empty: the time
    std::string unit;     // of the counter
};

struct Aim {
    enum class Kind {
        Shown,       // none
        Ratio,       // at most `limit` times the yardstick
        Difference,  // at most `limit` nanoseconds more than it
        Figure,      // at most `limit`
    };
    Kind kind = Kind::Shown;
    double limit = 0;
};

class Table : public benchmark::BenchmarkReporter {
 public:
    // `yardstick` says in words what `against` is; without a benchmark there is none.
    void add(const std::string& what, const Figure& ours, const std::string& yardstick,
             const Figure& against, Aim aim);

    // Prints all rows whose benchmarks were run. False when one of these failed.
    bool print() const;

    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;

 private:
    struct Row {
        std::string what;
        Figure ours;
        std::string yardstick;
        Figure against;
        Aim aim;
    };

    // The lower quartile; negative when it was not measured.
    double value(const Figure& figure) const;

    std::vector<Row> mRows;
    std::map<std::string, std::vector<Run>> mRuns;  // by the benchmark's name
    bool mFailed = false;
};

// The log lines that `action` writes on any thread.
std::vector<std::string> logOf(const std::function<void()>& action);

void addCommandBenchmarks(Table& table);
void addChannelBenchmarks(Table& table);
void addTriggerBenchmarks(Table& table);
void addSessionBenchmarks(Table& table);
void addLoadBenchmarks(Table& table);
