// The GDB remote-protocol back end against a scripted server over a socket
// pair: framing, acks, the servers' ways while the core runs, run control,
// BSQ and QTX over memory packets, a lost connection.
#include "FakeGdbServer.h"
#include "SimTestSupport.h"

#include "sim/gdb/Client.h"
#include "sim/gdb/Packet.h"
#include "sim/gdb/Remote.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

using namespace sim::gdb;
using simtest::get;
using simtest::waitFor;
using Style = FakeGdbServer::Style;

namespace {

// The events of a byte stream, fed whole or byte by byte: each as its kind's
// sign ("+-PBNI") and payload, separated by "|".
std::string parseAll(const std::string& bytes, bool bytewise)
{
    PacketParser p;
    for (size_t at = 0; at < bytes.size(); at += bytewise ? 1 : bytes.size())
        p.feed(bytes.data() + at, bytewise ? 1 : bytes.size());
    std::string out;
    while (p.hasEvent()) {
        const Event e = p.takeEvent();
        out += (out.empty() ? "" : "|") + std::string(1, "+-PBNI"[static_cast<int>(e.kind)]) + e.payload;
    }
    return out;
}

// The back end on the server's end, greeted, connected and, when `go`, running.
std::unique_ptr<Remote> connected(FakeGdbServer& server, bool go = true)
{
    auto remote = std::make_unique<Remote>(server.takeLink(), "fake");
    const bool ok = remote->greet().empty() && remote->connect(false).empty() && (!go || remote->go() == 0);
    EXPECT_TRUE(ok) << remote->lastError();
    return ok ? std::move(remote) : nullptr;
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

} // namespace

TEST(GdbPacket, FramesWithChecksumAndEscapesAndParsesBack)
{
    const struct {
        std::string payload, framed;
    } cases[] = {
        {"OK", "$OK#9a"},
        {"", "$#00"},
        {"m0,4", "$m0,4#fd"},
        {"a#b$c}d*e", "$a}\x03" "b}\x04" "c}]d}\x0a" "e#51"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(framePacket(c.payload), c.framed);
        for (const bool bytewise : {false, true})
            EXPECT_EQ(parseAll(c.framed, bytewise), "P" + c.payload) << bytewise;
    }
}

TEST(GdbPacket, ParsesAcksJunkRunLengthNotificationsAndBadChecksums)
{
    // "*" + ' ' repeats 32 - 29 = 3 more; '"' (34) 5 more.
    EXPECT_EQ(parseAll("+-junk$OK#9a$OK#00%Stop:T05#99$0* #7a$1*\"#7d\x03", true),
              "+|-|POK|B|NStop:T05|P0000|P111111|I");
}

TEST(GdbPacket, ClassifiesReplies)
{
    const struct {
        const char* payload;
        bool stop, error, output;
    } cases[] = {
        {"T05thread:01;", true, false, false}, {"S02", true, false, false}, {"W00", true, false, false},
        {"E14", false, true, false},           {"E.text", false, true, false}, {"OK", false, false, false},
        {"O48690a", false, false, true},       {"0a0b", false, false, false}, {"", false, false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isStopReply(c.payload), c.stop) << c.payload;
        EXPECT_EQ(isErrorReply(c.payload), c.error) << c.payload;
        EXPECT_EQ(isOutputPacket(c.payload), c.output) << c.payload;
    }
    const uint8_t bytes[] = {0x00, 0x7f, 0xa5, 0xff};
    EXPECT_EQ(toHex(bytes, 4), "007fa5ff");
    EXPECT_EQ(fromHex("007FA5ff").value(), std::vector<uint8_t>(bytes, bytes + 4));
    EXPECT_FALSE(fromHex("abc"));
    EXPECT_FALSE(fromHex("zz"));
}

TEST(GdbAddress, ParsesHostAndPort)
{
    const struct {
        const char* text;
        const char* parsed; // "" when refused
    } cases[] = {
        {"127.0.0.1", "127.0.0.1:3333"}, {"localhost:1234", "localhost:1234"}, {"[::1]:2331", "::1:2331"},
        {"::1", "::1:3333"},             {"host:", ""},                       {"host:0", ""},
        {"host:70000", ""},              {"host:12a", ""},                    {"", ""},
        {"a b", ""},
    };
    for (const auto& c : cases) {
        std::string host;
        uint16_t port = 0;
        const bool ok = parseAddress(c.text, host, port);
        EXPECT_EQ(ok ? host + ":" + std::to_string(port) : "", c.parsed) << c.text;
    }
}

TEST(GdbClient, ResendsAfterANakAndReadsThePacketSize)
{
    FakeGdbServer server(Style::Background);
    server.nakFirst = true;
    server.supported = "PacketSize=1000;qXfer:features:read+";
    Client client(server.takeLink());
    EXPECT_EQ(client.greet(), "");
    EXPECT_EQ(client.packetSize(), 0x1000u);
    EXPECT_EQ(client.request("?").value_or("none"), "T05");
}

TEST(GdbClient, AnotherProtocolIsReported)
{
    // A peer that says something else and hangs up; nothing listening at
    // all is the probe tests' case.
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    Client client(std::make_unique<Link>(fds[0]));
    const std::string banner = "SSH-2.0-other\r\n";
    ASSERT_EQ(::write(fds[1], banner.data(), banner.size()), static_cast<ssize_t>(banner.size()));
    ::close(fds[1]);
    EXPECT_NE(client.greet(), "");
    EXPECT_TRUE(client.lost());
}

TEST(GdbRemote, DetectsHowTheServerTreatsPacketsWhileRunningAndReadsEitherWay)
{
    const struct {
        Style style;
        bool slow; // answers only after the detection gave up waiting
        Remote::Mode mode;
    } cases[] = {
        {Style::Background, false, Remote::Mode::Background},
        {Style::Background, true, Remote::Mode::Background},
        {Style::StopReply, false, Remote::Mode::StopReadContinue},
        {Style::Silent, false, Remote::Mode::StopReadContinue},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.style) * 10 + c.slow);
        FakeGdbServer server(c.style);
        server.slowReads = c.slow;
        const uint32_t value = 0x12345678;
        server.poke(FakeGdbServer::kRamBase + 8, &value, 4);
        const auto remote = connected(server, false);
        ASSERT_TRUE(remote);
        server.slowReads = false; // only the detection is to meet it
        EXPECT_EQ(remote->mode(), c.mode);
        EXPECT_EQ(remote->isHalted(), 1); // as the server had it
        EXPECT_FALSE(server.running());
        ASSERT_EQ(remote->go(), 0);
        EXPECT_EQ(remote->isHalted(), 0);
        uint32_t got = 0;
        ASSERT_TRUE(remote->read(FakeGdbServer::kRamBase + 8, &got, 4)) << remote->lastError();
        EXPECT_EQ(got, value);
        EXPECT_TRUE(waitFor([&] { return server.running(); })); // still running after the read
        EXPECT_EQ(remote->halt(), 0);
        EXPECT_TRUE(waitFor([&] { return !server.running(); }));
    }
}

TEST(GdbRemote, ResetUsesTheServersMonitorCommandOrSaysThereIsNone)
{
    const std::map<std::string, std::string> monitors[] = {
        {{"reset halt", "target halted due to debug-request"}}, // OpenOCD
        {{"system_reset", ""}},                                  // QEMU
        {},
    };
    for (const auto& monitor : monitors) {
        FakeGdbServer server(Style::Background);
        server.monitor = monitor;
        const auto remote = connected(server);
        ASSERT_TRUE(remote);
        EXPECT_EQ(remote->reset(), monitor.empty() ? -1 : 0);
        // Without a reset command the target is left running, as it was.
        EXPECT_EQ(remote->isHalted(), monitor.empty() ? 0 : 1);
        if (monitor.empty()) {
            EXPECT_TRUE(has(remote->lastError(), "has no reset command"));
            EXPECT_TRUE(waitFor([&] { return server.running(); }));
        }
    }
}

TEST(GdbRemote, AttachedBesideADebuggerLeavesTheRunStateAlone)
{
    FakeGdbServer server(Style::Background);
    Remote remote(server.takeLink(), "fake");
    ASSERT_EQ(remote.greet(), "");
    ASSERT_EQ(remote.connect(true), "");
    EXPECT_EQ(remote.halt(), -1);
    EXPECT_TRUE(has(remote.lastError(), "left to the debugger"));
    EXPECT_EQ(remote.go(), -1);
    EXPECT_EQ(remote.reset(), -1);
    EXPECT_EQ(server.count("c") + server.count("?") + server.count("qRcmd"), 0);
}

TEST(GdbRemote, BsqMergesNeighbouringBlocksKeepsListOrderAndReportsRefusals)
{
    for (const Style style : {Style::Background, Style::StopReply}) {
        FakeGdbServer server(style);
        const uint32_t a = 0x11111111, b = 0x2222, c = 0x33333333;
        server.poke(FakeGdbServer::kRamBase + 0x10, &a, 4);
        server.poke(FakeGdbServer::kRamBase + 0x14, &b, 2);
        server.poke(FakeGdbServer::kRamBase + 0x300, &c, 4);
        const auto remote = connected(server);
        ASSERT_TRUE(remote);
        // Listed out of address order: records follow the list.
        const TARVO_BSQ_BLOCK blocks[] = {
            {FakeGdbServer::kRamBase + 0x300, 4, 0, 0},
            {FakeGdbServer::kRamBase + 0x14, 2, 0, 0},
            {FakeGdbServer::kRamBase + 0x10, 4, 0, 0},
        };
        const int readsBefore = server.count("m");
        ASSERT_EQ(remote->bsqStart(blocks, 3, 1000), 0);
        uint8_t rec[5 * 14];
        int got = 0;
        ASSERT_TRUE(waitFor([&] {
            got += std::max(0, remote->bsqRead(rec + got, sizeof rec - got));
            return got == static_cast<int>(sizeof rec);
        }));
        EXPECT_EQ(remote->bsqStop(), 0);
        for (const uint8_t* p = rec; p < rec + sizeof rec; p += 14) {
            EXPECT_EQ(std::tuple(get<uint32_t>(p + 4), get<uint16_t>(p + 8), get<uint32_t>(p + 10)), std::tuple(c, b, a));
            EXPECT_GE(get<uint32_t>(p), get<uint32_t>(p == rec ? p : p - 14)); // host microseconds, never backwards
        }
        // Two spans a sample (0x10..0x16 merged, 0x300 apart), plus the trial read.
        const int reads = server.count("m") - readsBefore;
        EXPECT_EQ(reads % 2, 0);
        EXPECT_GE(reads, 12);
        EXPECT_TRUE(waitFor([&] { return server.running(); }));
        // A block the server refuses fails the start with the reason.
        const TARVO_BSQ_BLOCK refused[] = {{0x30000000, 4, 0, 0}};
        EXPECT_EQ(remote->bsqStart(refused, 1, 1000), TARVO_BSQ_ERR_GENERIC);
        EXPECT_TRUE(has(remote->lastError(), "refused to read 4 bytes at 0x30000000"));
    }
}

TEST(GdbRemote, LostConnectionStopsSamplingAndKeepsTheData)
{
    FakeGdbServer server(Style::StopReply);
    const auto remote = connected(server);
    ASSERT_TRUE(remote);
    const TARVO_BSQ_BLOCK blocks[] = {{FakeGdbServer::kRamBase, 4, 0, 0}};
    server.closeAfterReads = 10; // the trial read and nine samples
    ASSERT_EQ(remote->bsqStart(blocks, 1, 100), 0);
    uint8_t buf[8 * 100];
    int total = 0;
    ASSERT_TRUE(waitFor([&] {
        const int rc = remote->bsqRead(buf, sizeof buf);
        total += std::max(rc, 0);
        return rc < 0;
    }));
    EXPECT_EQ(total, 9 * 8);
    EXPECT_TRUE(has(remote->lastError(), "closed the connection; the target's state is unknown"));
    EXPECT_EQ(remote->isHalted(), -1);
    EXPECT_EQ(remote->bsqStop(), 0);
}

TEST(GdbRemote, QtxFindsTheBlockDrainsTheRingAndWritesTheReadOffsetBack)
{
    for (const Style style : {Style::Background, Style::StopReply}) {
        FakeGdbServer server(style);
        // Control block at +0x40, one up-channel, its name at +0x100, ring of 16 at +0x200.
        const uint32_t base = FakeGdbServer::kRamBase;
        server.poke(base + 0x40, sim::qtx::kId, 16);
        const uint32_t counts[9] = {1, 0, base + 0x100, base + 0x200, 16, 3, 13, 0, 0}; // then the channel: 13..15, 0..2
        server.poke(base + 0x50, counts, sizeof counts);
        server.poke(base + 0x100, "Plotvik_u1", 11);
        const uint8_t ring[16] = {0, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xD, 0xE, 0xF};
        server.poke(base + 0x200, ring, 16);
        const auto remote = connected(server);
        ASSERT_TRUE(remote);
        const sim::qtx::Ranges ranges = {{base, 0x400}};
        ASSERT_EQ(remote->qtxControl(TARVO_QTX_CMD_START, nullptr, ranges), 0);
        uint32_t up = TARVO_QTX_DIR_UP;
        EXPECT_EQ(remote->qtxControl(TARVO_QTX_CMD_GETNUMBUF, &up, ranges), 1);
        TARVO_QTX_CHANNEL_DESC desc{};
        ASSERT_EQ(remote->qtxControl(TARVO_QTX_CMD_GETDESC, &desc, ranges), 0);
        EXPECT_EQ(std::tuple(std::string(desc.acName), desc.SizeOfBuffer), std::tuple("Plotvik_u1", 16u));
        char out[32] = {};
        int n = 0;
        ASSERT_TRUE(waitFor([&] { return (n = remote->qtxRead(0, out, sizeof out)) != 0; }));
        EXPECT_EQ(std::vector<char>(out, out + std::max(n, 0)), (std::vector<char>{0xD, 0xE, 0xF, 0, 1, 2}));
        EXPECT_EQ(server.peek32(base + 0x58 + 16), 3u);
        EXPECT_TRUE(waitFor([&] { return server.running(); }));
    }
}
