// plotvik-cli's project commands as a user chains them: new, select and
// record give a CSV of the chosen variables with the firmware's values.
#include "base/Product.h"
#include "tests/TempFolder.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const fs::path kBin = PLOTVIK_BIN_DIR;

struct CliRun {
    int code = -1;
    std::string output;  // standard output, and standard error unless kept apart
    std::string error;   // standard error when kept apart
};

// Each test runs plotvik-cli in a folder of its own.
struct CliCommands : ::testing::Test {
    fs::path dir;
    void SetUp() override
    {
        if (!fs::exists(kBin / "plotvik-cli") || !fs::exists(kBin / "demo.elf") || !fs::exists(kBin / "libTarvo_x64.so"))
            GTEST_SKIP() << "plotvik-cli, the probe library or the demo firmware not built";
        dir = testtemp::folder() / ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::create_directories(dir);
    }

    // Runs plotvik-cli in `dir`, with the configuration kept inside it.
    CliRun cli(const std::vector<std::string>& args, bool errorApart = false) const
    {
        QProcess p;
        const QString home = QString::fromStdString(dir.string());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home);
        env.insert("XDG_CONFIG_HOME", home);
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(home);
        p.setProcessChannelMode(errorApart ? QProcess::SeparateChannels : QProcess::MergedChannels);
        QStringList arguments;
        for (const std::string& a : args)
            arguments << QString::fromStdString(a);
        p.start(QString::fromStdString((kBin / "plotvik-cli").string()), arguments);
        p.waitForFinished(-1);
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput().toStdString(),
                errorApart ? p.readAllStandardError().toStdString() : std::string()};
    }
};

}  // namespace

TEST_F(CliCommands, NewSelectRecordGiveTheChosenVariablesWithTheFirmwaresValues)
{
    fs::copy_file(kBin / "demo.elf", dir / "my_fw.elf", fs::copy_options::overwrite_existing);
    // As fast as the host allows; the script names no firmware, so the project's ELF runs.
    std::ofstream(dir / "fast.TarvoScript") << "Fast = 1\n";

    CliRun r = cli({"new", "p.plotvik", "--elf", (dir / "my_fw.elf").string(), "--device", "PVK-SIM-M4", "--bsq",
                      "1000", "--script", (dir / "fast.TarvoScript").string()});
    ASSERT_EQ(r.code, 0) << r.output;
    // Brackets match themselves; the names come in tree order, not pattern order.
    r = cli({"select", "p.plotvik", "g_channels[1].raw", "g_motor.sensors.*", "g_tick_ms", "g_saw?ooth"});
    ASSERT_EQ(r.code, 0) << r.output;
    EXPECT_EQ(r.output, "g_tick_ms\ng_sawtooth\ng_motor.sensors.current_ma\ng_motor.sensors.temp_c\ng_channels[1].raw\n");
    r = cli({"select", "p.plotvik", "g_tick_ms"});
    EXPECT_EQ(std::tie(r.code, r.output), std::tuple(0, "")) << "an already selected symbol is not added again";
    r = cli({"select", "p.plotvik", "g_sawtooth", "g_channels[9].raw"});
    EXPECT_TRUE(r.code == 1 && r.output.find("\"g_channels[9].raw\"") != std::string::npos) << r.output;

    r = cli({"record", "p.plotvik", "--seconds", "1", "--csv", "out.csv"});
    ASSERT_EQ(r.code, 0) << r.output;
    std::ifstream csv(dir / "out.csv");
    std::string line;
    ASSERT_TRUE(std::getline(csv, line));
    EXPECT_EQ(line, "Timestamp;g_tick_ms;g_sawtooth;g_motor.sensors.current_ma;g_motor.sensors.temp_c;g_channels[1].raw");
    int checked = 0;
    unsigned long previous = ~0ul;
    while (std::getline(csv, line)) {
        const unsigned long stamp = std::stoul(line);
        ASSERT_TRUE(previous == ~0ul || stamp - previous == 1000u) << "a record lost or doubled before " << line;
        previous = stamp;
        if (line.rfind(std::to_string(stamp) + ";0;", 0) == 0)
            continue;  // the firmware may still be starting up
        // A record is taken before the firmware's update for that millisecond.
        const unsigned long t = (stamp - 1) / 1000;
        std::ostringstream want;
        want << stamp << ';' << t << ';' << long(t % 200) - 100 << ';' << t % 100 << ';' << 20 + (t / 1000) % 50 << ';'
             << (t + 100) % 4096;
        ASSERT_EQ(line, want.str());
        ++checked;
    }
    EXPECT_GE(checked, 10);
}

TEST_F(CliCommands, NewRefusesWhatTheDialogRefuses)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"new", "a.plotvik", "--bsq", "100", "--device", "PVK-SIM-M4"}, "No ELF file selected."},
        {{"new", "a.plotvik", "--qtx", "--elf", "fw.elf"}, "In QTX mode specifying the target device is mandatory."},
        {{"new", "a.plotvik", "--qtx", "--existing-session", "--device", "PVK-SIM-M4"},
         "An existing session samples with BSQ only."},
    };
    for (const auto& [args, text] : cases) {
        const CliRun r = cli(args);
        EXPECT_TRUE(r.code == 1 && r.output.find(text) != std::string::npos) << r.output;
    }
    EXPECT_FALSE(fs::exists(dir / "a.plotvik"));
}

// Help and version go to standard output with status 0; a wrong command line
// says what is wrong on standard error, as "plotvik-cli[ COMMAND]: ...", then
// the synopsis, with status 2.
TEST_F(CliCommands, HelpVersionAndUsageErrors)
{
    const CliRun help = cli({"record", "--help"}, true);
    EXPECT_EQ(std::tuple(help.code, help.output.rfind("Usage: plotvik-cli record ", 0), help.error),
              std::tuple(0, 0u, ""));
    const CliRun version = cli({"--version"}, true);
    EXPECT_EQ(std::tie(version.code, version.output),
              std::tuple(0, "plotvik-cli (Norvex Plotvik) " + product::versionText() + "\n"));

    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "plotvik-cli: missing command"},
        {{"plot"}, "plotvik-cli: unknown command 'plot'"},
        {{"symbols"}, "plotvik-cli symbols: missing FILE.elf"},
        {{"record", "p.plotvik"}, "plotvik-cli record: --seconds takes a time above 0"},
        {{"record", "p.plotvik", "--seconds"}, "plotvik-cli record: option '--seconds' needs a value"},
        {{"convert", "r.praw", "--csv", "o.csv", "--fast"}, "plotvik-cli convert: unknown option '--fast'"},
        {{"new", "a.plotvik", "--speed", "100000"}, "plotvik-cli new: --speed takes 1 to 99999 kHz, not '100000'"},
        {{"new", "a.plotvik", "--bsq", "10", "--qtx"}, "plotvik-cli new: --bsq and --qtx exclude each other"},
        {{"select", "p.plotvik"}, "plotvik-cli select: missing PATTERN"},
        {{"devices", "a", "b"}, "plotvik-cli devices: unexpected argument 'b'"},
    };
    for (const auto& [args, error] : cases) {
        const CliRun r = cli(args, true);
        EXPECT_EQ(std::tuple(r.code, r.output, r.error.rfind(std::string(error) + "\nUsage: plotvik-cli ", 0)),
                  std::tuple(2, "", 0u))
            << r.error;
    }
}
