// The DNS-SD command channel: text commands in, result lines and structured results out.
//
// Usage. The owner implements MDnsResultListener, makes a channel with it and gives commands as
// argument vectors {sequence, word, request id, ...}. The channel answers each with one sendMsg.
// The caller chooses the id of each request and stops the request by the same id; results carry the
// id. The owner stops its requests before it is destroyed: until then their results go to the
// listener.
//
// Lifetime. The channel owns its handler. The monitor and its thread are made with the channel and
// live until the process ends.
//
// Threads. Commands may come from any thread, also from inside a result. All results run on the
// monitor thread. A stop waits until the request's running result has returned: do not stop a
// request while holding a lock that its result takes, and do not let the results of two channels
// stop each other's requests.
#pragma once

#include "MDnsResultListener.h"

class MIRACAST_SIGMA_EXPORT MDnsSdChannel {
 public:
    class Handler;  // MDnsSdChannelHandler.h
    class Monitor;  // MDnsSdChannelMonitor.h

    // The context of a request's DNS-SD callback.
    class Context {
     public:
        Context(MDnsResultListener* listener, MDnsSdChannel* channel, int requestId)
            : mListener(listener), mChannel(channel), mRequestId(requestId) {}

        MDnsResultListener* const mListener;
        MDnsSdChannel* const mChannel;
        const int mRequestId;
    };

    // Starts the monitor thread. `listener` is not owned and must outlive the channel's requests.
    // If memory or a thread is missing, the constructor logs it and the channel refuses every
    // command.
    explicit MDnsSdChannel(MDnsResultListener* listener) noexcept;
    MDnsSdChannel(const MDnsSdChannel&) = delete;
    MDnsSdChannel& operator=(const MDnsSdChannel&) = delete;
    virtual ~MDnsSdChannel();

    // Carries out one command, whose answer goes to the listener. The caller keeps the vector.
    // Returns -1 for a vector of less than two entries, else 0.
    int runCommand(int argc, char** argv) noexcept;

 private:
    MDnsResultListener* mListener;
    Handler* mHandler;
};
