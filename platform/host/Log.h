// The device's log. Every line goes to the journal, and to a stream if the filter shows it.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "host/Journal.h"
#include "host/Mutex.h"

namespace hostplatform {

// Any thread may call.
class Log {
 public:
    explicit Log(Journal& journal) : mJournal(journal) { reset(); }

    // Writes one formatted message with an android_LogPriority and a tag (null: none). Returns its
    // length.
    int write(int priority, const char* tag, const char* pattern, va_list arguments)
        __attribute__((__format__(printf, 4, 0)));

    // From now on writes each line that `tags` shows to `stream`, in logcat's format "threadtime";
    // to none if null. The caller owns the stream and keeps it open until the next call. Initially:
    // standard error, with the ANDROID_LOG_TAGS of the time when the device is first used.
    //
    // `tags`: items "TAG:P", separated by blanks or commas. P, one of V D I W E F S in either case,
    // is the lowest priority shown for that tag. "TAG" means "TAG:V", "*:P" is the default for
    // every other tag. Other items are ignored. Null or empty shows everything.
    void writeTo(std::FILE* stream, const char* tags);

    // For measurements. While set, every message is still formatted, into 1 KiB as on a device, but
    // goes neither to the journal nor to the stream.
    void setDropped(bool drop) { mDropped = drop; }

    // Calls `hook` with the text of every further message, after it has gone to the journal, on its
    // thread. An empty function removes the hook.
    void onMessage(std::function<void(const std::string& text)> hook);

    // Reports to the user that the simulated device cannot do something: logs an error line with
    // the tag "hostplatform" and calls the handler with the text, on the calling thread. The caller
    // may hold locks of the device: the handler must not call the device. Initially there is no
    // handler.
    void complain(const std::string& text);
    void setComplaintHandler(std::function<void(const std::string& text)> handler);

    void reset();

 private:
    void writeLine(int priority, const char* tag, const std::string& text);

    Journal& mJournal;
    // Set by the measuring thread, read by every logging thread. Relaxed: it orders no other data.
    std::atomic<bool> mDropped{false};
    Mutex mMutex;
    std::FILE* mStream GUARDED_BY(mMutex) = nullptr;
    // Lowest priority shown, by tag; "*" for every other tag.
    std::map<std::string, int> mLowest GUARDED_BY(mMutex);
    std::function<void(const std::string&)> mOnMessage GUARDED_BY(mMutex);
    std::function<void(const std::string&)> mComplaintHandler GUARDED_BY(mMutex);
};

}  // namespace hostplatform
