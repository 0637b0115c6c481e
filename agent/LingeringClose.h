// Closing a connection in a way that lets the peer read what was sent last.
#pragma once

#include <asio/ip/tcp.hpp>

namespace agent {

// Takes the socket over and ends its sending side; closes it when the peer has ended its own, or
// after two seconds. A socket that is closed with bytes left unread resets the connection, and the
// peer may then lose the last answer before it has read it.
void closeLingering(asio::ip::tcp::socket socket);

}  // namespace agent
