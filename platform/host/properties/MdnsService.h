// The simulated device's init service "mdnsd": an Avahi daemon on the current system bus
// (DBUS_SYSTEM_BUS_ADDRESS).
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <string>
#include <vector>

#include "host/DeviceCore.h"
#include "host/Mutex.h"

namespace hostplatform {

// Any thread may call.
class MdnsService {
 public:
    explicit MdnsService(DeviceCore& core) : mCore(core) {}

    enum class Answer { Running, NoDaemon, NoBus };
    // Asks the bus whether a daemon answers.
    Answer ask() const;

    void start();
    void stop();

 private:
    void runDaemon();

    DeviceCore& mCore;
    Mutex mMutex;
    std::condition_variable mChanged;
    // Keep root: a daemon that changes its user would outlive this process when that is killed.
    std::vector<std::string> mCommand GUARDED_BY(mMutex) = {"/usr/sbin/avahi-daemon",
                                                            "--no-drop-root"};
    pid_t mDaemon GUARDED_BY(mMutex) = 0;  // process id of our own; 0: none, -1: being started
};

}  // namespace hostplatform
