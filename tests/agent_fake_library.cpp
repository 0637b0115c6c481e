// A library as the agent wants one, whose results the test chooses.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

namespace {

int startResult(const char* name, const char* text, const char* address, int port, int type,
                char** response) {
    const std::string heard = std::string(name) + '|' + (address == nullptr ? "null" : address) +
                              '|' + std::to_string(port) + '|' + std::to_string(type) + '|' + text;
    *response = strdup(heard.c_str());
    const char* const result = std::strstr(text, "Result,");
    return result == nullptr ? 0 : std::atoi(result + std::strlen("Result,"));
}

}  // namespace

extern "C" {

pthread_t rtsp_playback_thread;

// The result is the command text as a number.
int sta_reset_default(const char* command) { return std::atoi(command); }
int dev_send_frame(const char* command) { return std::atoi(command); }

// Leaves a thread behind that lasts for as many milliseconds as the command text says.
int dev_exec_action(const char* command) {
    return pthread_create(
        &rtsp_playback_thread, nullptr,
        [](void* duration) -> void* {
            const std::unique_ptr<int> milliseconds(static_cast<int*>(duration));
            std::this_thread::sleep_for(std::chrono::milliseconds(*milliseconds));
            return nullptr;
        },
        new int(std::atoi(command)));
}

#ifndef WITHOUT_GENERATE_EVENT
// Takes as many milliseconds as the command text says. 0, or 2 when it is called while it runs.
int sta_generate_event(const char* command) {
    static std::atomic<int> running{0};
    const bool alone = ++running == 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(command)));
    --running;
    return alone ? 0 : 2;
}
#endif

// They answer what they were called with; the result is that of a parameter "Result", or 0.
int start_wfd_connection(const char* text, const char* address, int port, int type,
                         char** response) {
    return startResult("start", text, address, port, type, response);
}
int connect_go_start_wfd(const char* text, const char* address, int port, int type,
                         char** response) {
    return startResult("go", text, address, port, type, response);
}

std::atomic<std::int32_t> wfd_device_type;

// Answers the command text and the role, with a line end between them, or nothing without a command
// text.
int sta_preset_testparameters(const char* command, char** response) {
    if (*command == '\0') return 0;
    const std::string role = wfd_device_type == 0 ? "source" : "sink";
    *response = strdup((command + ("\r\n" + role)).c_str());
    return 0;
}
}
