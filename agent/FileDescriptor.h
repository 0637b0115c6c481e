// An open file of the operating system.
#pragma once

#include <unistd.h>

#include <utility>

namespace agent {

// Owns a descriptor and closes it; -1 stands for none.
class FileDescriptor {
 public:
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : mDescriptor(std::exchange(other.mDescriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    ~FileDescriptor() {
        if (mDescriptor >= 0) close(mDescriptor);
    }

    int get() const { return mDescriptor; }

 private:
    int mDescriptor;
};

}  // namespace agent
