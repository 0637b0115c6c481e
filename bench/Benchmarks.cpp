#include "Benchmarks.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "Journal.h"
#include "LogSwitch.h"
#include "TextFormat.h"

using hostplatform::format;
using hostplatform::Journal;

namespace {

constexpr const char* kHeads[] = {"what", "ours", "yardstick", "", "ratio", "aim", "met"};
constexpr size_t kColumns = std::size(kHeads);

std::string timeText(double nanoseconds) {
    if (nanoseconds < 1e3) return format("%.0f ns", nanoseconds);
    if (nanoseconds < 1e6) return format("%.2f us", nanoseconds / 1e3);
    return format("%.2f ms", nanoseconds / 1e6);
}

std::string text(const Figure& figure, double value) {
    if (figure.counter.empty() || figure.unit == "ns") return timeText(value);
    return format("%.0f %s", value, figure.unit.c_str());
}

double lowerQuartile(std::vector<double> values) {
    const auto quarter = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 4);
    std::nth_element(values.begin(), quarter, values.end());
    return *quarter;
}

}  // namespace

void Table::add(const std::string& what, const Figure& ours, const std::string& yardstick,
                const Figure& against, Aim aim) {
    mRows.push_back({what, ours, yardstick, against, aim});
}

void Table::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            std::cerr << run.benchmark_name() << ": " << run.error_message << '\n';
            mFailed = true;
        } else if (run.run_type == Run::RT_Iteration) {
            mRuns[run.run_name.function_name].push_back(run);
        }
    }
}

double Table::value(const Figure& figure) const {
    const auto runs = mRuns.find(figure.benchmark);
    if (runs == mRuns.end()) return -1;
    std::vector<double> values;
    for (const Run& run : runs->second) {
        if (!figure.counter.empty()) {
            values.push_back(run.counters.at(figure.counter));
        } else {
            const double all = run.run_name.time_type.empty() ? run.cpu_accumulated_time
                                                              : run.real_accumulated_time;
            values.push_back(all * 1e9 / static_cast<double>(run.iterations));
        }
    }
    return lowerQuartile(std::move(values));
}

bool Table::print() const {
    std::vector<std::vector<std::string>> lines{{std::begin(kHeads), std::end(kHeads)}};
    for (const Row& row : mRows) {
        const double ours = value(row.ours);
        const bool compared = !row.against.benchmark.empty();
        const double against = compared ? value(row.against) : 0;
        if (ours < 0 || against < 0) continue;
        std::string aim = "shown";
        bool met = true;
        switch (row.aim.kind) {
            case Aim::Kind::Shown:
                break;
            case Aim::Kind::Ratio:
                aim = format("<= %.1f x", row.aim.limit);
                met = ours <= row.aim.limit * against;
                break;
            case Aim::Kind::Difference:
                aim = "<= " + timeText(row.aim.limit) + " more";
                met = ours - against <= row.aim.limit;
                break;
            case Aim::Kind::Figure:
                aim = format("<= %.0f", row.aim.limit);
                met = ours <= row.aim.limit;
                break;
        }
        lines.push_back({row.what, text(row.ours, ours), row.yardstick,
                         compared ? text(row.against, against) : "",
                         compared && against > 0 ? format("%.2f", ours / against) : "", aim,
                         row.aim.kind == Aim::Kind::Shown ? ""
                         : met                            ? "yes"
                                                          : "NO"});
    }
    size_t widths[kColumns] = {};
    for (const auto& line : lines) {
        for (size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], line[i].size());
    }
    for (size_t number = 0; number < lines.size(); ++number) {
        std::cout << '|';
        for (size_t i = 0; i < kColumns; ++i) {
            std::cout << ' ' << lines[number][i]
                      << std::string(widths[i] - lines[number][i].size(), ' ') << " |";
        }
        std::cout << '\n';
        if (number != 0) continue;
        std::cout << '|';
        for (const size_t width : widths) std::cout << std::string(width + 2, '-') << '|';
        std::cout << '\n';
    }
    return !mFailed;
}

std::vector<std::string> logOf(const std::function<void()>& action) {
    Journal& journal = Journal::instance();
    journal.setCapacity(100'000);
    hostplatform::setLogDropped(false);
    const uint64_t start = journal.mark();
    action();
    std::vector<std::string> lines = journal.texts("log", start);
    hostplatform::setLogDropped(true);
    journal.setCapacity(0);
    return lines;
}
