#include "Controller.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/write.hpp>
#include <cerrno>

namespace test {

using asio::ip::tcp;

Controller::Controller(unsigned short port, const asio::ip::address& host) : mSocket(mContext) {
    mSocket.connect(tcp::endpoint(host, port));
}

bool Controller::send(const std::string& bytes) {
    std::error_code error;
    asio::write(mSocket, asio::buffer(bytes), error);
    return !error;
}

std::size_t Controller::sendUntilBlocked(const std::string& bytes, std::size_t limit) {
    std::size_t sent = 0;
    pollfd ready{mSocket.native_handle(), POLLOUT, 0};
    while (sent < limit && poll(&ready, 1, 500) > 0) {
        const ssize_t size = ::send(mSocket.native_handle(), bytes.data(), bytes.size(),
                                    MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size > 0) sent += static_cast<std::size_t>(size);
        if (size < 0 && errno != EAGAIN) break;
    }
    return sent;
}

std::string Controller::readLine() {
    while (true) {
        const auto end = mReceived.find('\n');
        if (end != std::string::npos) {
            std::string line = mReceived.substr(0, end);
            mReceived.erase(0, end + 1);
            if (line.empty() || line.back() != '\r') return "(no CRLF) " + line;
            line.pop_back();
            return line;
        }
        pollfd ready{mSocket.native_handle(), POLLIN, 0};
        if (poll(&ready, 1, 30'000) <= 0) return "(timeout)";
        std::array<char, 4096> bytes{};
        std::error_code error;
        const std::size_t size = mSocket.read_some(asio::buffer(bytes), error);
        if (error == asio::error::eof) return mReceived.empty() ? "(end)" : "(half a line)";
        if (error) return "(reset)";
        mReceived.append(bytes.data(), size);
    }
}

std::vector<std::string> Controller::readAll() {
    std::vector<std::string> lines;
    do {
        lines.push_back(readLine());
    } while (lines.back().empty() || lines.back().front() != '(');
    return lines;
}

std::string Controller::command(const std::string& line) {
    send(line + "\r\n");
    const std::string first = readLine();
    return first == "status,RUNNING" ? readLine() : first;
}

void Controller::finishSending() { mSocket.shutdown(tcp::socket::shutdown_send); }

void Controller::reset() {
    mSocket.set_option(asio::socket_base::linger(true, 0));
    mSocket.close();
}

}  // namespace test
