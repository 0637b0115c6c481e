// The library under the agent: its exported C functions and words, found when the agent starts.
#pragma once

#include <string>

namespace agent {

// Loads the library once for the life of the process.
class SigmaLibrary {
 public:
    // `path` empty: the library beside the program's own file, or else in ../lib from there. Throws
    // std::runtime_error when there is none or it cannot be loaded.
    explicit SigmaLibrary(std::string path);

    // A function or a word of miracast_sigma.h. Throws std::runtime_error when it is not exported.
    template <typename Type>
    Type* symbol(const char* name) const {
        return reinterpret_cast<Type*>(find(name));
    }

 private:
    void* find(const char* name) const;

    std::string mPath;
    void* mHandle;
};

}  // namespace agent
