// Reading a parameter out of a command text.
#include <cstring>
#include <string>

#include "Benchmarks.h"
#include "TextFormat.h"
#include "android/log.h"
#include "miracast_sigma.h"

namespace {

constexpr const char* kName = "PeerAddress";
constexpr const char* kValue = "192.168.49.2";

// Of `size` bytes, the parameter at its end.
std::string commandOf(size_t size) {
    const std::string parameter = std::string(kName) + "," + kValue;
    std::string command;
    while (command.size() + parameter.size() < size) command += "Framename,RTSP,MsgType,PLAY,";
    command.resize(size - parameter.size());
    return command + parameter;
}

void boundedCopy(const char* match, char* value, size_t size) {
    const char* const text = match + strlen(kName) + 1;
    const size_t length = strcspn(text, ",");
    if (length >= size) return;
    memcpy(value, text, length);
    value[length] = '\0';
}

void yardstick(const char* command, char* value, size_t size) {
    const char* const match = strcasestr(command, kName);
    boundedCopy(match, value, size);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "vestor: DBG: strstr output %s", match);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Output calculated = %s", value);
}

}  // namespace

void addCommandBenchmarks(Table& table) {
    for (const size_t size : {64, 1024, 16384}) {
        const std::string command = commandOf(size);
        const std::string name = hostplatform::format("get_param %zu B", size);
        benchmark::RegisterBenchmark((name + "/ours").c_str(), [=](benchmark::State& state) {
            char value[64] = "";
            char expected[64] = "";
            const bool sameLog =
                logOf([&] { get_param(command.c_str(), kName, value, sizeof value); }) ==
                logOf([&] { yardstick(command.c_str(), expected, sizeof expected); });
            if (!sameLog || strcmp(value, kValue) != 0 || strcmp(expected, kValue) != 0) {
                state.SkipWithError("not the same as the yardstick");
            }
            while (state.KeepRunning()) {
                benchmark::DoNotOptimize(get_param(command.c_str(), kName, value, sizeof value));
                benchmark::ClobberMemory();
            }
        });
        benchmark::RegisterBenchmark((name + "/yardstick").c_str(), [=](benchmark::State& state) {
            char value[64] = "";
            while (state.KeepRunning()) {
                yardstick(command.c_str(), value, sizeof value);
                benchmark::DoNotOptimize(value);
                benchmark::ClobberMemory();
            }
        });
        table.add(name, {name + "/ours", "", ""}, "strcasestr, one copy, the same 2 log lines",
                  {name + "/yardstick", "", ""}, {Aim::Kind::Ratio, 1.5});
    }
}
