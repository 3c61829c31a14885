// A loopback TCP port nobody listens on right now: bound and released again.
#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

inline uint16_t freeLoopbackPort()
{
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (s < 0 || ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0
        || ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        if (s >= 0)
            ::close(s);
        return 0;
    }
    ::close(s);
    return ntohs(a.sin_port);
}
