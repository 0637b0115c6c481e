// The simulated device's init service "mdnsd".
#pragma once

#include <sys/types.h>

#include <mutex>
#include <string>
#include <vector>

#include "UniqueFd.h"

namespace hostplatform {

// All functions are callable on any thread.
class MdnsService {
 public:
    // The one service; never destroyed.
    static MdnsService& instance();

    enum class Answer { Running, NoDaemon, NoBus };
    // Asks the system bus in force for a daemon.
    Answer ask() const;

    void start();
    void stop();
    void setCommand(std::vector<std::string> command);

 private:
    MdnsService() = default;
    void spawn(const std::string& program);  // with mMutex held
    bool ownEnded();                         // likewise: whether no daemon of ours exists any more

    std::mutex mMutex;  // guards everything below
    std::vector<std::string> mCommand{"avahi-daemon"};
    pid_t mKeeper = -1;  // the shell that keeps our daemon, -1 for none
    UniqueFd mLifeline;  // the keeper ends the daemon when this is closed
};

}  // namespace hostplatform
