// The library under the agent: its exported C functions, found when the agent starts.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace agent {

// Loads the library once for the life of the process: threads of the library outlive its commands,
// so it is never unloaded. See miracast_sigma.h for the functions; they are called one at a time.
class SigmaLibrary {
 public:
    using Command = int(const char* command);
    using AnsweringCommand = int(const char* command, char** response);
    using StartCommand = int(const char* text, const char* peerAddress, int port,
                             int peerDeviceType, char** response);

    // Throws StartError when the file cannot be loaded or lacks something that is used here.
    explicit SigmaLibrary(const std::string& path);

    // The library beside the program's own file, or else in ../lib from there. Throws StartError
    // when it is in neither place.
    static std::string defaultPath();

    Command* const staResetDefault;
    StartCommand* const startWfdConnection;
    StartCommand* const connectGoStartWfd;
    Command* const devSendFrame;
    Command* const devExecAction;
    Command* const staGenerateEvent;
    AnsweringCommand* const staPresetTestparameters;

    // This device's role in a session that a peer asks for: 0 source, 1 primary sink.
    std::atomic<std::int32_t>* const deviceType;

    // Where dev_exec_action leaves the handle of a joinable thread; null when there is no such
    // word.
    pthread_t* const playbackThread;

 private:
    SigmaLibrary(void* handle, const std::string& path);
};

}  // namespace agent
