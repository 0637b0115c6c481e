#include "SigmaLibrary.h"

#include <dlfcn.h>

#include <filesystem>

#include "StartError.h"

namespace agent {

namespace {

constexpr char kFileName[] = "libmiracastSigma.so";

void* load(const std::string& path) {
    // With a slash dlopen takes the text as a path; without one it would search the system.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* const reason = dlerror();
        throw StartError("cannot load the library: " + std::string(reason ? reason : path));
    }
    return handle;
}

// A function or a variable.
template <typename Type>
Type* required(void* handle, const char* name, const std::string& path) {
    void* const symbol = dlsym(handle, name);
    if (symbol == nullptr) throw StartError("the library " + path + " does not export " + name);
    return reinterpret_cast<Type*>(symbol);
}

}  // namespace

SigmaLibrary::SigmaLibrary(const std::string& path) : SigmaLibrary(load(path), path) {}

SigmaLibrary::SigmaLibrary(void* handle, const std::string& path)
    : staResetDefault(required<Command>(handle, "sta_reset_default", path)),
      startWfdConnection(required<StartCommand>(handle, "start_wfd_connection", path)),
      connectGoStartWfd(required<StartCommand>(handle, "connect_go_start_wfd", path)),
      devSendFrame(required<Command>(handle, "dev_send_frame", path)),
      devExecAction(required<Command>(handle, "dev_exec_action", path)),
      staGenerateEvent(required<Command>(handle, "sta_generate_event", path)),
      staPresetTestparameters(
          required<AnsweringCommand>(handle, "sta_preset_testparameters", path)),
      deviceType(required<std::atomic<std::int32_t>>(handle, "wfd_device_type", path)),
      playbackThread(static_cast<pthread_t*>(dlsym(handle, "rtsp_playback_thread"))) {}

std::string SigmaLibrary::defaultPath() {
    namespace fs = std::filesystem;
    const fs::path directory = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& candidate :
         {directory / kFileName, directory.parent_path() / "lib" / kFileName}) {
        if (fs::exists(candidate)) return candidate.string();
    }
    throw StartError(std::string(kFileName) + " is neither beside the program nor in ../lib from " +
                     "there (" + directory.string() + "); name it with --library");
}

}  // namespace agent
