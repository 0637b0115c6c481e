#include "Arrivals.h"

#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

#include "TextFormat.h"

void Arrivals::arrived() {
    if (mHold.exchange(false)) {
        mHeld.post();
        mReleased.wait();
        return;
    }
    if (mLeft.fetch_sub(1) != 1) return;
    mLast = Clock::now();
    mThread = gettid();
    mAll.post();
}

Arrivals::Clock::time_point Arrivals::wait() {
    mAll.wait();
    return mLast;
}

void Arrivals::waitAsleep() const {
    const std::string path = hostplatform::format("/proc/self/task/%d/stat", mThread);
    while (true) {
        std::ifstream file(path);
        std::string stat;
        std::getline(file, stat);
        const size_t name = stat.rfind(") ");
        if (name == std::string::npos || stat[name + 2] == 'S') return;
        std::this_thread::yield();
    }
}
