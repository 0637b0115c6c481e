#include "host/small_thread.h"

#include <pthread.h>

#include <memory>

namespace hostplatform {

int startSmallThread(std::function<void()> body) {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    const auto run = [](void* argument) -> void* {
        const std::unique_ptr<std::function<void()>> own(
            static_cast<std::function<void()>*>(argument));
        (*own)();
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{2} << 20);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, run, owned.get());
    pthread_attr_destroy(&attributes);
    if (error == 0) (void)owned.release();
    return error;
}

}  // namespace hostplatform
