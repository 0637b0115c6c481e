// Static objects that exit() does not destroy.
#pragma once

// Holds a T that is never destroyed, with the size and the layout of a T: threads of the session
// client and of the library still use these objects while exit() runs the exit handlers.
template <typename T>
class Undestroyed {
 public:
    Undestroyed() : mObject() { static_assert(sizeof(Undestroyed) == sizeof(T)); }
    ~Undestroyed() {}  // does not destroy a union's member
    Undestroyed(const Undestroyed&) = delete;
    Undestroyed& operator=(const Undestroyed&) = delete;

    T& operator*() { return mObject; }
    T* operator->() { return &mObject; }

 private:
    union {
        T mObject;
    };
};
