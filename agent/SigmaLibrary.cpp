#include "agent/SigmaLibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace agent {

namespace {

namespace fs = std::filesystem;

std::string defaultPath() {
    const std::string name = "libmiracastSigma.so";
    const fs::path directory = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& candidate : {directory / name, directory.parent_path() / "lib" / name}) {
        if (fs::exists(candidate)) return candidate.string();
    }
    throw std::runtime_error(name + " is neither beside the program nor in ../lib from there (" +
                             directory.string() + "); name it with --library");
}

}  // namespace

SigmaLibrary::SigmaLibrary(std::string path)
    : mPath(path.empty() ? defaultPath() : std::move(path)) {
    // dlopen takes a text with a slash as a path and looks for any other in the system.
    mHandle = dlopen(fs::absolute(mPath).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr)
        throw std::runtime_error(std::string("cannot load the library: ") + dlerror());
}

void* SigmaLibrary::find(const char* name) const {
    void* const symbol = dlsym(mHandle, name);
    if (symbol == nullptr)
        throw std::runtime_error("the library " + mPath + " does not export " + name);
    return symbol;
}

}  // namespace agent
