#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

// Blocks SIGPIPE on the calling thread for a scope and discards one that was raised meanwhile. The
// DNS-SD client library writes to a socket whose daemon may have gone, and the signal would end the
// agent's process.
class SigpipeBlock {
 public:
    SigpipeBlock() {
        sigemptyset(&mSigpipe);
        sigaddset(&mSigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mSigpipe, &mBefore);
    }
    ~SigpipeBlock() {
        if (sigismember(&mBefore, SIGPIPE) == 1) return;  // the caller blocks it, too
        const timespec noTime{};
        while (sigtimedwait(&mSigpipe, nullptr, &noTime) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    }
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;

 private:
    sigset_t mSigpipe;
    sigset_t mBefore;
};
