// The GDB remote-protocol back end against a scripted server over a socket
// pair: framing, acks, the servers' ways while the core runs, run control,
// BSQ and QTX over memory packets, a lost connection.
#include "FakeGdbServer.h"
#include "SimTestSupport.h"

#include "sim/gdb/Client.h"
#include "sim/gdb/Packet.h"
#include "sim/gdb/Remote.h"

#include <gtest/gtest.h>

using namespace sim::gdb;
using simtest::get;
using simtest::waitFor;
using Style = FakeGdbServer::Style;

namespace {

std::vector<Event> parseAll(const std::string& bytes, bool bytewise)
{
    PacketParser p;
    if (bytewise) {
        for (const char c : bytes)
            p.feed(&c, 1);
    } else {
        p.feed(bytes.data(), bytes.size());
    }
    std::vector<Event> out;
    while (p.hasEvent())
        out.push_back(p.takeEvent());
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

} // namespace

TEST(GdbPacket, FramesWithChecksumAndEscapes)
{
    const struct {
        std::string payload;
        std::string framed;
    } cases[] = {
        {"OK", "$OK#9a"},
        {"", "$#00"},
        {"m0,4", "$m0,4#fd"},
        {std::string("a#b$c}d*e"), "$a}\x03" "b}\x04" "c}]d}\x0a" "e#" },
    };
    for (const auto& c : cases) {
        const std::string framed = framePacket(c.payload);
        if (c.payload.find_first_of("#$}*") == std::string::npos)
            EXPECT_EQ(framed, c.framed) << c.payload;
        else
            EXPECT_EQ(framed.substr(0, framed.size() - 2), c.framed) << c.payload;
        // Whatever is framed parses back to itself, in one piece or byte by byte.
        for (const bool bytewise : {false, true}) {
            const auto events = parseAll(framed, bytewise);
            ASSERT_EQ(events.size(), 1u);
            EXPECT_EQ(events[0].kind, Event::Kind::Packet);
            EXPECT_EQ(events[0].payload, c.payload);
        }
    }
}

TEST(GdbPacket, ParsesAcksJunkRunLengthNotificationsAndBadChecksums)
{
    const auto events = parseAll(std::string("+-junk$OK#9a$OK#00%Stop:T05#99$0* #7a") + "$1*\"#7d", true);
    ASSERT_EQ(events.size(), 7u);
    EXPECT_EQ(events[0].kind, Event::Kind::Ack);
    EXPECT_EQ(events[1].kind, Event::Kind::Nak);
    EXPECT_EQ(events[2].kind, Event::Kind::Packet);
    EXPECT_EQ(events[2].payload, "OK");
    EXPECT_EQ(events[3].kind, Event::Kind::BadPacket);
    EXPECT_EQ(events[4].kind, Event::Kind::Notification);
    EXPECT_EQ(events[4].payload, "Stop:T05");
    EXPECT_EQ(events[5].payload, "0000"); // "*" + ' ' (32 - 29 = 3 more)
    EXPECT_EQ(events[6].payload, "111111"); // '"' is 34: 5 more
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
        bool ok;
        const char* host;
        uint16_t port;
    } cases[] = {
        {"127.0.0.1", true, "127.0.0.1", 3333}, {"localhost:1234", true, "localhost", 1234},
        {"[::1]:2331", true, "::1", 2331},      {"::1", true, "::1", 3333},
        {"host:", false, "", 0},                {"host:0", false, "", 0},
        {"host:70000", false, "", 0},           {"host:12a", false, "", 0},
        {"", false, "", 0},                     {"a b", false, "", 0},
    };
    for (const auto& c : cases) {
        std::string host;
        uint16_t port = 0;
        EXPECT_EQ(parseAddress(c.text, host, port), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(host, c.host) << c.text;
            EXPECT_EQ(port, c.port) << c.text;
        }
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
    EXPECT_EQ(client.maxReadBytes(), (0x1000u - 4) / 2);
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
        server.runLength = true;
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
        uint8_t zeros[16];
        ASSERT_TRUE(remote->read(FakeGdbServer::kRamBase + 0x100, zeros, sizeof zeros)); // run-length reply
        EXPECT_EQ(zeros[15], 0);
        EXPECT_TRUE(waitFor([&] { return server.running(); })); // still running after the read
        EXPECT_EQ(remote->halt(), 0);
        EXPECT_TRUE(waitFor([&] { return !server.running(); }));
        EXPECT_FALSE(remote->read(0x10000000, &got, 4));
        EXPECT_NE(remote->lastError().find("refused to read 4 bytes at 0x10000000"), std::string::npos) << remote->lastError();
    }
}

TEST(GdbRemote, ResetUsesTheServersMonitorCommandOrSaysThereIsNone)
{
    const struct {
        std::map<std::string, std::string> monitor;
        int result;
    } cases[] = {
        {{{"reset halt", "target halted due to debug-request"}}, 0}, // OpenOCD
        {{{"system_reset", ""}}, 0},                                  // QEMU
        {{}, -1},
    };
    for (const auto& c : cases) {
        FakeGdbServer server(Style::Background);
        server.monitor = c.monitor;
        const auto remote = connected(server);
        ASSERT_TRUE(remote);
        EXPECT_EQ(remote->reset(), c.result);
        if (c.result == 0) {
            EXPECT_EQ(remote->isHalted(), 1);
        } else {
            EXPECT_NE(remote->lastError().find("has no reset command"), std::string::npos);
            EXPECT_EQ(remote->isHalted(), 0); // left as it was
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
    EXPECT_EQ(server.count("c"), 0);
    EXPECT_EQ(server.count("?"), 0);
    EXPECT_EQ(remote.halt(), -1);
    EXPECT_NE(remote.lastError().find("left to the debugger"), std::string::npos);
    EXPECT_EQ(remote.go(), -1);
    EXPECT_EQ(remote.reset(), -1);
    EXPECT_EQ(server.count("c"), 0);
    EXPECT_EQ(server.count("qRcmd"), 0);
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
            const int n = remote->bsqRead(rec + got, sizeof rec - got);
            got += n > 0 ? n : 0;
            return got == static_cast<int>(sizeof rec);
        }));
        EXPECT_EQ(remote->bsqStop(), 0);
        for (int r = 0; r < 5; ++r) {
            const uint8_t* p = rec + r * 14;
            EXPECT_EQ(get<uint32_t>(p + 4), c);
            EXPECT_EQ(get<uint16_t>(p + 8), b);
            EXPECT_EQ(get<uint32_t>(p + 10), a);
            if (r > 0) {
                EXPECT_GE(get<uint32_t>(p), get<uint32_t>(p - 14)); // host microseconds, never backwards
            }
        }
        // Two spans a sample (0x10..0x16 merged, 0x300 apart), plus the trial read.
        const int reads = server.count("m") - readsBefore;
        const int samples = reads / 2;
        EXPECT_EQ(reads % 2, 0);
        EXPECT_GE(samples, 6);
        EXPECT_TRUE(waitFor([&] { return server.running(); }));
        // A block the server refuses fails the start with the reason.
        const TARVO_BSQ_BLOCK refused[] = {{0x30000000, 4, 0, 0}};
        EXPECT_EQ(remote->bsqStart(refused, 1, 1000), TARVO_BSQ_ERR_GENERIC);
        EXPECT_NE(remote->lastError().find("refused to read 4 bytes at 0x30000000"), std::string::npos);
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
    int rc = 0;
    ASSERT_TRUE(waitFor([&] {
        rc = remote->bsqRead(buf, sizeof buf);
        total += rc > 0 ? rc : 0;
        return rc < 0;
    }));
    EXPECT_EQ(total, 9 * 8);
    EXPECT_NE(remote->lastError().find("closed the connection; the target's state is unknown"), std::string::npos);
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
        const uint32_t header[2] = {1, 0};
        server.poke(base + 0x50, header, 8);
        const uint32_t ch[7] = {base + 0x100, base + 0x200, 16, 3, 13, 0, 0}; // wraps: 13..15, 0..2
        server.poke(base + 0x58, ch, sizeof ch);
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
        desc.BufferIndex = 0;
        ASSERT_EQ(remote->qtxControl(TARVO_QTX_CMD_GETDESC, &desc, ranges), 0);
        EXPECT_STREQ(desc.acName, "Plotvik_u1");
        EXPECT_EQ(desc.SizeOfBuffer, 16u);
        char out[32] = {};
        int n = 0;
        ASSERT_TRUE(waitFor([&] { return (n = remote->qtxRead(0, out, sizeof out)) != 0; }));
        ASSERT_EQ(n, 6);
        EXPECT_EQ(std::vector<char>(out, out + 6), (std::vector<char>{0xD, 0xE, 0xF, 0, 1, 2}));
        uint32_t rd = 0;
        server.peek(base + 0x58 + 16, &rd, 4);
        EXPECT_EQ(rd, 3u);
        EXPECT_TRUE(waitFor([&] { return server.running(); }));
    }
}
