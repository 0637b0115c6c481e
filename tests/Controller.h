// A controller's end of the connection to the agent, for tests.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/address.hpp>
#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <string>
#include <vector>

namespace test {

class Controller {
 public:
    explicit Controller(unsigned short port,
                        const asio::ip::address& host = asio::ip::address_v4::loopback());

    // Sends `bytes`, blocking; false when the connection is gone.
    bool send(const std::string& bytes);

    // Sends `bytes` again and again until the agent has taken nothing for half a second, or until
    // it has taken `limit` bytes. Returns how many it took.
    std::size_t sendUntilBlocked(const std::string& bytes, std::size_t limit);

    // The next line without its CRLF; "(end)" at the connection's end, "(timeout)" when nothing
    // comes,
    // "(reset)" when the connection broke, and "(no CRLF)" before a line that ends otherwise.
    std::string readLine();

    // All lines up to and including one of those in parentheses.
    std::vector<std::string> readAll();

    // Sends one command and returns the final line of its answer.
    std::string command(const std::string& line);

    // Ends the sending side only.
    void finishSending();

    // Goes away as a machine does that crashed: the agent's answers are refused.
    void reset();

 private:
    asio::io_context mContext;
    asio::ip::tcp::socket mSocket;
    std::string mReceived;
};

}  // namespace test
