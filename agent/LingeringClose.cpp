#include "LingeringClose.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <utility>

namespace agent {

namespace {

class LingeringClose : public std::enable_shared_from_this<LingeringClose> {
 public:
    explicit LingeringClose(asio::ip::tcp::socket socket)
        : mSocket(std::move(socket)), mTimer(mSocket.get_executor()) {}

    void start() {
        std::error_code error;
        mSocket.shutdown(asio::ip::tcp::socket::shutdown_send, error);
        if (error) return;
        mTimer.expires_after(std::chrono::seconds(2));
        mTimer.async_wait([self = shared_from_this()](std::error_code waited) {
            std::error_code ignored;
            if (!waited) self->mSocket.close(ignored);
        });
        drain();
    }

 private:
    void drain() {
        mSocket.async_read_some(asio::buffer(mBytes),
                                [self = shared_from_this()](std::error_code error, std::size_t) {
                                    if (error) {
                                        self->mTimer.cancel();
                                    } else {
                                        self->drain();
                                    }
                                });
    }

    asio::ip::tcp::socket mSocket;
    asio::steady_timer mTimer;
    std::array<char, 4096> mBytes{};
};

}  // namespace

void closeLingering(asio::ip::tcp::socket socket) {
    std::make_shared<LingeringClose>(std::move(socket))->start();
}

}  // namespace agent
