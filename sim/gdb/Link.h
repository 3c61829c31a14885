// A byte stream to a GDB server: a TCP connection, or any socket the tests hand in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace sim::gdb {

class Link {
public:
    explicit Link(int fd); // takes ownership of the descriptor
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Connects to host:port, waiting at most timeoutMs. Null with the reason in `error`.
    static std::unique_ptr<Link> connectTcp(const std::string& host, uint16_t port, int timeoutMs, std::string& error);

    bool send(std::string_view bytes);
    // Bytes received (> 0), 0 when nothing came within timeoutMs, -1 when the peer closed or the link failed.
    long receive(char* dst, size_t size, int timeoutMs);

private:
    int m_fd = -1;
};

} // namespace sim::gdb
