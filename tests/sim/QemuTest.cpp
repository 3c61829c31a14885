// The probe library's GDB back end against a real GDB server: QEMU's gdbstub
// running the demo firmware on mps2-an386 (stop-read-continue sampling).
#include "QemuBoard.h"
#include "SimTestSupport.h"


using namespace simtest;

namespace {

// QEMU on a loaded machine is slow to start: a generous bound, never a measure.
constexpr int kPatienceMs = 60000;
// Records of the blocks below: time stamp, tick, sine, cosine, sawtooth, state, counter64, channels[1].raw.
constexpr uint32_t kRecord = 4 + 4 + 4 + 4 + 2 + 1 + 8 + 2;

class QemuDemo : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (QemuBoard::qemuPath().empty())
            GTEST_SKIP() << "qemu-system-arm is not installed";
        m_board = std::make_unique<QemuBoard>(std::string(PLOTVIK_BIN_DIR) + "/demo_mps2_an386.elf");
        ASSERT_TRUE(m_board->ready());
        ASSERT_EQ(TARVOARM_SelectIP(m_board->address().c_str(), 0) & 0xFF, 0);
        const char* error = TARVOARM_OpenEx(nullptr, nullptr);
        ASSERT_EQ(error, nullptr) << error;
        char err[1024] = "";
        ASSERT_EQ(TARVOARM_ExecCommand("device = MPS2-AN386", err, sizeof err), 0) << err;
        ASSERT_EQ(TARVOARM_Connect(), 0);
    }
    void TearDown() override
    {
        TARVO_BSQ_Stop();
        TARVOARM_Close();
        m_board.reset();
    }

    // Appends whatever BSQ has; returns the records read so far.
    size_t pull()
    {
        uint8_t buf[kRecord * 2048];
        const int n = TARVO_BSQ_Read(buf, sizeof buf);
        m_recs.insert(m_recs.end(), buf, buf + std::max(n, 0));
        m_readFailed = n < 0;
        return m_recs.size() / kRecord;
    }
    uint32_t tickAt(size_t i) const { return get<uint32_t>(&m_recs[i * kRecord + 4]); }
    uint32_t lastTick() { return pull() > 0 ? tickAt(m_recs.size() / kRecord - 1) : 0; }

    std::vector<uint8_t> m_recs;
    bool m_readFailed = false;
    std::unique_ptr<QemuBoard> m_board;
};

} // namespace

TEST_F(QemuDemo, BsqFollowsTheFirmwareAndHaltGoResetAndAKilledServerStopIt)
{
    char status[256] = "";
    ASSERT_EQ(TARVOARM_ExecCommand("GetBsqStatus", status, sizeof status), 0);
    EXPECT_NE(std::string(status).find("mode=stop-read-continue"), std::string::npos) << status;
    EXPECT_NE(TARVOARM_EMU_HasCapEx(TARVO_EMU_CAP_EX_BSQ), 0);
    TARVO_BSQ_CAPS caps{};
    ASSERT_EQ(TARVO_BSQ_GetCaps(&caps), 0);
    EXPECT_GT(caps.MaxFreq, 0u);
    EXPECT_EQ(TARVOARM_IsHalted(), 1); // QEMU started halted and stays so

    const TARVO_BSQ_BLOCK blocks[] = {
        {kTick, 4, 0, 0},     {kSine, 4, 0, 0},      {kCosine, 4, 0, 0},         {kSawtooth, 2, 0, 0},
        {kState, 1, 0, 0},    {kCounter64, 8, 0, 0}, {kChannels + 8, 2, 0, 0},
    };
    ASSERT_EQ(TARVO_BSQ_Start(blocks, 7, 1000, TARVO_BSQ_FLAG_TIMESTAMP), 0);
    TARVOARM_Go();
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    // Two seconds at one kilohertz.
    ASSERT_TRUE(waitFor([&] {
        const size_t n = pull();
        return n > 1 && get<uint32_t>(&m_recs[(n - 1) * kRecord]) - get<uint32_t>(&m_recs[0]) >= 2'000'000;
    }, kPatienceMs)) << m_recs.size() / kRecord << " records";
    size_t checked = 0;
    for (size_t i = 0; i < m_recs.size() / kRecord; ++i) {
        const uint8_t* r = &m_recs[i * kRecord];
        const uint32_t t = tickAt(i);
        if (i > 0) {
            EXPECT_GE(get<uint32_t>(r), get<uint32_t>(r - kRecord));
            EXPECT_GE(t, tickAt(i - 1));
        }
        if (t == 0)
            continue; // before the firmware's first update
        // The core stops wherever it is, also inside an update, which writes
        // the tick last: each value belongs to the record's tick or the next.
        const auto either = [t](auto value, auto at) { return value == at(t) || value == at(t + 1); };
        const auto near = [t](float value, float (*at)(uint32_t)) {
            return std::abs(value - at(t)) < 1e-3f || std::abs(value - at(t + 1)) < 1e-3f;
        };
        EXPECT_TRUE(near(get<float>(r + 8), sineAt)) << t;
        EXPECT_TRUE(either(get<uint64_t>(r + 19), [](uint32_t x) { return uint64_t(x) * 0x100000001ull; })) << t;
        ++checked;
    }
    EXPECT_GT(checked, 0u);

    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    // Whatever was queued before the halt goes; of the rest only the first
    // may have been sampled before it (stored just after the halt returned).
    do
        m_recs.clear();
    while (pull() == 2048); // a full buffer: there may be more
    m_recs.clear();
    ASSERT_TRUE(waitFor([&] { return pull() >= 20; }, kPatienceMs));
    const uint32_t halted = tickAt(19);
    for (size_t i = 1; i < 20; ++i)
        EXPECT_EQ(tickAt(i), halted) << "the core moved while halted";

    TARVOARM_Go();
    ASSERT_TRUE(waitFor([&] { return lastTick() > halted; }, kPatienceMs));
    const uint32_t before = lastTick();
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    TARVOARM_Go();
    // The firmware starts again from tick 0.
    ASSERT_TRUE(waitFor([&] { return lastTick() < before; }, kPatienceMs));

    // A server gone without a goodbye stops sampling and the connection.
    m_board->kill();
    ASSERT_TRUE(waitFor([&] { return pull(), m_readFailed; }, kPatienceMs));
    EXPECT_EQ(TARVOARM_IsConnected(), 0);
}
