// plotvik-cli record --trigger: the real program samples the demo project on
// the simulated target (fast mode) and starts the recording at the edge.
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

const fs::path kBin = PLOTVIK_BIN_DIR;

struct RecordTrigger : ::testing::Test {
    QTemporaryDir dir;
    fs::path work;

    void SetUp() override
    {
        const fs::path demo = kBin / "examples" / "demo";
        if (!fs::exists(demo / "demo_bsq.plotvik") || !fs::exists(kBin / "libTarvo_x64.so"))
            GTEST_SKIP() << "demo project or probe library not built";
        ASSERT_TRUE(dir.isValid());
        work = dir.path().toStdString();
        fs::copy_file(demo / "demo_bsq.plotvik", work / "demo_bsq.plotvik");
        fs::copy_file(demo / "demo.elf", work / "demo.elf");
        std::ofstream(work / "demo.TarvoScript") << "Firmware = demo.elf\nClockHz = 64000000\nFast = 1\n";
    }

    // Runs record with `extra` arguments; the exit code and everything printed.
    std::pair<int, std::string> record(const QStringList& extra)
    {
        QProcess cli;
        cli.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", dir.path());
        env.insert("XDG_CONFIG_HOME", dir.path());
        cli.setProcessEnvironment(env);
        cli.setWorkingDirectory(dir.path());
        QStringList args = {"record", QString::fromStdString((work / "demo_bsq.plotvik").string()), "--seconds", "1"};
        args += extra;
        cli.start(QString::fromStdString((kBin / "plotvik-cli").string()), args);
        EXPECT_TRUE(cli.waitForFinished(60000));
        return {cli.exitCode(), QString::fromLocal8Bit(cli.readAll()).toStdString()};
    }

    // The CSV's rows split at ';'.
    std::vector<std::vector<std::string>> rows(const fs::path& csv)
    {
        std::vector<std::vector<std::string>> out;
        std::ifstream in(csv);
        for (std::string line; std::getline(in, line);) {
            std::vector<std::string> fields;
            std::stringstream ss(line);
            for (std::string f; std::getline(ss, f, ';');)
                fields.push_back(f);
            out.push_back(fields);
        }
        return out;
    }
};

}  // namespace

// The sawtooth climbs by one each millisecond: the rising edge through 0 is
// the step from -1 to 0, the falling one the jump from 99 to -100.
TEST_F(RecordTrigger, TheCsvStartsAtTheEdge)
{
    struct Case {
        const char* trigger;
        std::vector<std::pair<std::string, std::string>> edges;  // the value before and at the edge
    };
    const std::pair<std::string, std::string> rise{"-1", "0"}, fall{"99", "-100"};
    for (const Case& c : {Case{"g_sawtooth:rise:0", {rise}}, Case{"g_sawtooth:fall:0", {fall}},
                          Case{"g_sawtooth:both:-0.5", {rise, fall}}}) {
        SCOPED_TRACE(c.trigger);
        const fs::path csv = work / "out.csv";
        const auto [code, output] = record({"--trigger", c.trigger, "--csv", QString::fromStdString(csv.string())});
        ASSERT_EQ(code, 0) << output;
        EXPECT_NE(output.find("trigger: waiting for"), std::string::npos) << output;
        const QRegularExpressionMatch fired =
            QRegularExpression(R"(trigger: fired at (\d+) us)").match(QString::fromStdString(output));
        ASSERT_TRUE(fired.hasMatch()) << output;
        EXPECT_LT(output.find("waiting"), output.find("fired"));

        const auto table = rows(csv);
        ASSERT_GE(table.size(), 4u) << output;
        const auto& header = table[0];
        const auto column = std::find(header.begin(), header.end(), "g_sawtooth") - header.begin();
        ASSERT_LT(static_cast<std::size_t>(column), header.size());
        const std::pair<std::string, std::string> seen{table[1][column], table[2][column]};
        // Sampling may begin before the firmware's start-up ran: memory still
        // reads 0 there, and the firmware's first value (-100) is a true
        // falling edge through a level just below 0.
        const bool startUp = std::string(c.trigger).ends_with("both:-0.5")
                             && seen == std::pair<std::string, std::string>{"0", "-100"};
        EXPECT_TRUE(startUp || std::find(c.edges.begin(), c.edges.end(), seen) != c.edges.end())
            << seen.first << " " << seen.second << " at " << table[1][0];
        // The second row is the record in which the edge was seen.
        EXPECT_EQ(table[2][0], fired.captured(1).toStdString());
        EXPECT_EQ(std::stoul(table[3][0]) - std::stoul(table[2][0]), 1000u) << "recording goes on from the edge";
    }
}

TEST_F(RecordTrigger, OffAndWrongNames)
{
    // The project's trigger is off already; "off" keeps it so and says nothing of it.
    auto [code, output] = record({"--trigger", "off"});
    EXPECT_EQ(code, 0) << output;
    EXPECT_EQ(output.find("trigger:"), std::string::npos) << output;

    std::tie(code, output) = record({"--trigger", "g_nosuch:rise:1"});
    EXPECT_EQ(code, 2);
    EXPECT_NE(output.find("g_nosuch is not a selected symbol"), std::string::npos) << output;
    EXPECT_NE(output.find("g_motor.speed_rpm"), std::string::npos) << "the names to choose from: " << output;

    for (const char* bad : {"g_sawtooth:up:1", "g_sawtooth:rise:", "g_sawtooth:rise:x", "g_sawtooth"}) {
        std::tie(code, output) = record({"--trigger", bad});
        EXPECT_EQ(code, 2) << bad;
        EXPECT_NE(output.find("--trigger"), std::string::npos) << output;
    }

    // A bool is never compared: the run says so and that it never fired.
    std::tie(code, output) = record({"--trigger", "g_square:rise:1"});
    EXPECT_EQ(code, 0) << output;
    EXPECT_NE(output.find("never fires"), std::string::npos) << output;
    EXPECT_NE(output.find("trigger: did not fire"), std::string::npos) << output;
}
