#include "MDnsSdChannel.h"

#include <new>

#include "MDnsSdChannelHandler.h"
#include "MDnsSdChannelMonitor.h"
#include "mdns_log.h"

MDnsSdChannel::MDnsSdChannel(MDnsResultListener* listener) noexcept
    : mListener(listener), mHandler(nullptr) {
    auto* monitor = new (std::nothrow) Monitor;
    if (monitor != nullptr && !monitor->isRunning()) {
        delete monitor;
        monitor = nullptr;
    }
    mHandler = new (std::nothrow) Handler(monitor, this);
    if (monitor == nullptr || mHandler == nullptr) MDNS_LOGE("The channel refuses every command");
}

MDnsSdChannel::~MDnsSdChannel() {
    delete mHandler;
    mHandler = nullptr;
}

int MDnsSdChannel::runCommand(int argc, char** argv) noexcept {
    if (mHandler != nullptr) return mHandler->runCommand(mListener, argc, argv);
    mListener->sendMsg(kMDnsRefused, kMonitorNotRunning, false);
    return argc < 2 ? -1 : 0;
}
