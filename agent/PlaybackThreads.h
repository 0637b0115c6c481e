// The threads that dev_exec_action leaves behind for whoever wants their resources back.
#pragma once

#include <pthread.h>

#include <vector>

namespace agent {

// Used on the command thread only, or once that has ended.
class PlaybackThreads {
 public:
    PlaybackThreads() = default;
    PlaybackThreads(const PlaybackThreads&) = delete;
    PlaybackThreads& operator=(const PlaybackThreads&) = delete;

    ~PlaybackThreads() { joinAll(); }

    // Takes the handle out of `word`, which may be null, if one is there.
    void collect(pthread_t* word);

    // Gives back the resources of those that have ended; does not wait.
    void joinEnded();

    // Waits for those that still run; each lasts a few seconds of device time.
    void joinAll();

 private:
    std::vector<pthread_t> mThreads;
};

}  // namespace agent
