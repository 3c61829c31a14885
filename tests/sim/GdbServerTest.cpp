// The simulated target's GDB server against the two clients it is for:
// Plotvik's own GDB back end (which must find background reads) and
// gdb-multiarch debugging the demo firmware.
#include "SimTestSupport.h"
#include "sim/target/GdbServer.h"
#include "sim/gdb/Remote.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

using namespace sim;
using simtest::kTick;

namespace {

// A bound for a loaded machine, never a measure.
template <class F> bool waitFor(F done) { return simtest::waitFor(done, 60000); }

class SimGdbServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_elf = std::string(PLOTVIK_BIN_DIR) + "/demo.elf";
        if (!std::filesystem::exists(m_elf))
            GTEST_SKIP() << "the demo firmware is not built";
        ElfImage image;
        ASSERT_EQ(loadElf(m_elf, image), "");
        TargetConfig cfg;
        cfg.fast = true;
        m_target = std::make_unique<Target>(cfg, std::move(image));
        ASSERT_EQ(m_target->start(), "");
        std::string error;
        m_server = GdbServer::start(*m_target, 0, error);
        ASSERT_NE(m_server, nullptr) << error;
    }
    uint32_t tick() const
    {
        uint32_t t = 0;
        m_target->read(kTick, &t, 4);
        return t;
    }

    std::string m_elf;
    std::unique_ptr<Target> m_target;
    std::unique_ptr<GdbServer> m_server; // goes first
};

} // namespace

TEST_F(SimGdbServer, PlotviksGdbBackEndFindsBackgroundReadsAndSamplesTheRunningCore)
{
    std::string error;
    auto remote = gdb::Remote::open("127.0.0.1", m_server->port(), error);
    ASSERT_NE(remote, nullptr) << error;
    ASSERT_EQ(remote->connect(false), "");
    EXPECT_EQ(remote->mode(), gdb::Remote::Mode::Background);
    EXPECT_EQ(remote->isHalted(), 1); // attaching halted the core
    EXPECT_TRUE(m_target->isHalted());
    ASSERT_EQ(remote->go(), 0); // without acks "continue" is not waited for
    EXPECT_TRUE(waitFor([&] { return !m_target->isHalted(); }));
    const TARVO_BSQ_BLOCK blocks[] = {{kTick, 4, 0, 0}};
    ASSERT_EQ(remote->bsqStart(blocks, 1, 1000), 0);
    std::vector<uint32_t> ticks;
    ASSERT_TRUE(waitFor([&] {
        uint8_t buf[8 * 64];
        const int n = remote->bsqRead(buf, sizeof buf);
        for (int i = 0; i + 8 <= n; i += 8)
            ticks.push_back(simtest::get<uint32_t>(buf + i + 4));
        return ticks.size() >= 2 && ticks.back() > ticks.front();
    })) << remote->lastError();
    EXPECT_TRUE(std::is_sorted(ticks.begin(), ticks.end()));
    EXPECT_FALSE(m_target->isHalted()) << "a background read stopped the core";
    EXPECT_EQ(remote->bsqStop(), 0);
    ASSERT_EQ(remote->halt(), 0);
    EXPECT_TRUE(m_target->isHalted());
    ASSERT_EQ(remote->reset(), 0); // "monitor reset halt"
    EXPECT_TRUE(m_target->isHalted());
    EXPECT_EQ(tick(), 0u);
}

TEST_F(SimGdbServer, GdbMultiarchAttachesAndReadsADemoVariable)
{
    const std::string gdb = "/usr/bin/gdb-multiarch";
    if (!std::filesystem::exists(gdb))
        GTEST_SKIP() << "gdb-multiarch is not installed";
    ASSERT_TRUE(waitFor([&] { return tick() >= 5; })) << "the firmware never ticked";

    const std::string command = gdb + " -batch -nx -q -ex \"set confirm off\" -ex \"target remote 127.0.0.1:"
                                + std::to_string(m_server->port()) + "\" -ex \"print g_tick_ms\" -ex \"print/x &g_tick_ms\" -ex \"detach\" "
                                + m_elf + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buf[512];
    while (std::fgets(buf, sizeof buf, pipe) != nullptr)
        out += buf;
    EXPECT_EQ(::pclose(pipe), 0) << out;

    // The value gdb read is the one the halted core holds.
    const auto at = out.find("$1 = ");
    ASSERT_NE(at, std::string::npos) << out;
    const unsigned long seen = std::strtoul(out.c_str() + at + 5, nullptr, 10);
    EXPECT_GE(seen, 5u) << out;
    EXPECT_NE(out.find("$2 = 0x20000000"), std::string::npos) << out;
    // Detaching let the core run on.
    EXPECT_TRUE(waitFor([&] { return tick() > seen; }));
}
