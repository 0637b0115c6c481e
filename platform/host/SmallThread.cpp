#include "SmallThread.h"

#include <pthread.h>

#include <memory>

namespace hostplatform {

namespace {

constexpr size_t kStackBytes = size_t{2} << 20;

void* run(void* argument) {
    const std::unique_ptr<std::function<void()>> body(
        static_cast<std::function<void()>*>(argument));
    (*body)();
    return nullptr;
}

}  // namespace

int startSmallThread(std::function<void()> body) {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, run, owned.get());
    pthread_attr_destroy(&attributes);
    if (error == 0) (void)owned.release();
    return error;
}

}  // namespace hostplatform
