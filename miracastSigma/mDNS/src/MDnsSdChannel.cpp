#include "MDnsSdChannel.h"

MDnsSdChannel::MDnsSdChannel(MDnsResultListener* listener)
    // The monitor is never deleted: its thread goes on with it until the process ends.
    : mListener(listener), mHandler(new Handler(new Monitor, this)) {}

MDnsSdChannel::~MDnsSdChannel() {
    delete mHandler;
    mHandler = nullptr;
}

int MDnsSdChannel::runCommand(int argc, char** argv) {
    return mHandler->runCommand(mListener, argc, argv);
}
