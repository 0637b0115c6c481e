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

Apart::Apart(pid_t thread) : mThread(thread) {
    sched_getaffinity(0, sizeof mAll, &mAll);
    if (CPU_COUNT(&mAll) < 2) return;
    pid_t next = 0;  // this one
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &mAll)) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(next, sizeof one, &one);
        if (next == mThread) return;
        next = mThread;
    }
}

Apart::~Apart() {
    sched_setaffinity(0, sizeof mAll, &mAll);
    sched_setaffinity(mThread, sizeof mAll, &mAll);
}
