// std::mutex and its scoped lock, annotated for Clang's thread-safety analysis.
#pragma once

#include <mutex>

#include "host/thread_annotations.h"

namespace hostplatform {

class THREAD_ANNOTATION(capability("mutex")) Mutex : public std::mutex {
 public:
    // Tells the analysis that the caller holds the mutex, where it cannot see that.
    void assertHeld() const THREAD_ANNOTATION(assert_capability(this)) {}
};

// A std::unique_lock, so that std::condition_variable can wait with it.
class THREAD_ANNOTATION(scoped_lockable) Lock : public std::unique_lock<std::mutex> {
 public:
    explicit Lock(Mutex& mutex) THREAD_ANNOTATION(acquire_capability(mutex)) : unique_lock(mutex) {}
    ~Lock() THREAD_ANNOTATION(release_capability()) {}
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() THREAD_ANNOTATION(acquire_capability()) { unique_lock::lock(); }
    void unlock() THREAD_ANNOTATION(release_capability()) { unique_lock::unlock(); }
};

}  // namespace hostplatform
