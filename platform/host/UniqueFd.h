// Owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace hostplatform {

class UniqueFd {
 public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(std::exchange(other.mFd, -1));
        return *this;
    }

    int get() const { return mFd; }
    explicit operator bool() const { return mFd >= 0; }
    int release() { return std::exchange(mFd, -1); }
    void reset(int fd = -1) {
        if (mFd >= 0) close(mFd);
        mFd = fd;
    }

 private:
    int mFd = -1;
};

}  // namespace hostplatform
