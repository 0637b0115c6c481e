#include "PlaybackThreads.h"

#include <algorithm>
#include <utility>

namespace agent {

void PlaybackThreads::collect(pthread_t* word) {
    // Zeroed, so that a handle is never seen, and joined, twice.
    if (word != nullptr && *word != 0) mThreads.push_back(std::exchange(*word, 0));
}

void PlaybackThreads::joinEnded() {
    const auto ended = [](pthread_t thread) { return pthread_tryjoin_np(thread, nullptr) == 0; };
    mThreads.erase(std::remove_if(mThreads.begin(), mThreads.end(), ended), mThreads.end());
}

void PlaybackThreads::joinAll() {
    for (const pthread_t thread : std::exchange(mThreads, {})) pthread_join(thread, nullptr);
}

}  // namespace agent
