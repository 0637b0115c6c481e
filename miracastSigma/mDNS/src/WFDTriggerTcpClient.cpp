#include "WFDTriggerTcpClient.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "osal/osal.h"
#include "trigger_protocol.h"

namespace {

constexpr long kMaxWaitMs = 10000;
constexpr uint32_t kRetryIntervalMs = 200;

bool connectTo(int socket, const sockaddr_in& target) {
    return connect(socket, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0;
}

void logFailure(long elapsed, int error) {
    TRIGGER_LOGE("client connect failed after waiting for %ld ms (MAX = %ld ms)", elapsed,
                 kMaxWaitMs);
    TRIGGER_LOGE("client failed with errno=%d", error);
}

}  // namespace

WFDTriggerTcpClient::WFDTriggerTcpClient(const std::string& address, int port) noexcept {
    const bool open = openSocket();
    mSink.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, address.c_str(), &mSink.sin_addr) > 0) {
        mSink.sin_family = AF_INET;
    } else if (open) {
        TRIGGER_LOGE("client: inet_pton error for %s", address.c_str());
    }
    if (!open || mSink.sin_family != AF_INET) return;
    mConnected = connectTo(mSocket, mSink);
    if (!mConnected) TRIGGER_LOGE("client connect failed with errno=%d", errno);
}

WFDTriggerTcpClient::~WFDTriggerTcpClient() { closeSocket(); }

bool WFDTriggerTcpClient::openSocket() {
    mSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mSocket < 0) TRIGGER_LOGE("client: socket error %d", errno);
    return mSocket >= 0;
}

void WFDTriggerTcpClient::closeSocket() {
    if (mSocket >= 0) close(mSocket);
    mSocket = -1;
}

void WFDTriggerTcpClient::retrytcpconnect(int port) noexcept {
    if (mConnected) return;
    if (mSink.sin_family != AF_INET) {
        logFailure(0, EAFNOSUPPORT);
        return;
    }
    mSink.sin_port = htons(static_cast<uint16_t>(port));
    const uint64_t start = osal_clock_ms();
    closeSocket();
    while (openSocket()) {
        const bool connected = connectTo(mSocket, mSink);
        const int error = errno;
        const long elapsed = static_cast<long>(osal_clock_ms() - start);
        if (connected) {
            TRIGGER_LOGE("client Connected");
            return;
        }
        if (elapsed > kMaxWaitMs) {
            logFailure(elapsed, error);
            return;
        }
        osal_sleep_ms(kRetryIntervalMs);
        closeSocket();
    }
}

bool WFDTriggerTcpClient::trigger(const std::string& /*address*/, int port) noexcept {
    TRIGGER_LOGV("trigger %d", port);
    const auto number = static_cast<uint16_t>(port);
    const uint8_t command[kTriggerCommandSize] = {
        0, kRequestConnection, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    // send instead of write: MSG_NOSIGNAL keeps a closed connection from raising SIGPIPE.
    const ssize_t written = send(mSocket, command, sizeof command, MSG_NOSIGNAL);
    TRIGGER_LOGV("write %d %d %d %d", command[0], command[1], command[2], command[3]);
    return written == kTriggerCommandSize;
}
