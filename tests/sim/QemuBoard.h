// The demo firmware on QEMU's mps2-an386 machine with its gdbstub on a free
// loopback port: started halted, stopped (or killed) when the object goes.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

// A loopback TCP port nobody listens on right now: bound and released again.
uint16_t freeLoopbackPort();

class QemuBoard {
public:
    // Empty when qemu-system-arm is not installed.
    static std::string qemuPath();

    explicit QemuBoard(const std::string& elf);
    ~QemuBoard() { kill(); }
    QemuBoard(const QemuBoard&) = delete;
    QemuBoard& operator=(const QemuBoard&) = delete;

    // True once the gdbstub answers (bounded wait).
    bool ready() const { return m_ready; }
    unsigned port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
    void kill(); // as a crash would: no goodbye to the client

private:
    pid_t m_pid = -1;
    unsigned m_port = 0;
    bool m_ready = false;
};
