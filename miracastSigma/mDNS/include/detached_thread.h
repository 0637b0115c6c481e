#pragma once

#include <pthread.h>

// Runs `body` with `argument` on a new detached thread. Returns pthread_create's result.
inline int startDetachedThread(void* (*body)(void*), void* argument) {
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, body, argument);
    if (error == 0) pthread_detach(thread);
    return error;
}
