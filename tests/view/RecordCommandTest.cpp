// plotvik-cli record on the demo project and the simulated target (fast mode):
// the recording starts at a trigger's edge and is drawn with the graph.
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

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
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(name);  // the picture needs no display
        env.insert("HOME", dir.path());
        env.insert("XDG_CONFIG_HOME", dir.path());
        cli.setProcessEnvironment(env);
        cli.setWorkingDirectory(dir.path());  // the probe finds the fast script here first
        QStringList args = {"record", QString::fromStdString((work / "demo_bsq.plotvik").string()), "--seconds", "1"};
        args += extra;
        cli.start(QString::fromStdString((kBin / "plotvik-cli").string()), args);
        EXPECT_TRUE(cli.waitForFinished(60000));
        return {cli.exitCode(), QString::fromLocal8Bit(cli.readAll()).toStdString()};
    }

    // The CSV's rows split at ';'.
    static std::vector<QStringList> rows(const fs::path& csv)
    {
        QFile file(QString::fromStdString(csv.string()));
        std::vector<QStringList> out;
        if (file.open(QIODevice::ReadOnly))
            for (const QByteArray& line : file.readAll().split('\n'))
                out.push_back(QString::fromUtf8(line).split(';'));
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
        const auto column = header.indexOf("g_sawtooth");
        ASSERT_GE(column, 0);
        const std::pair<std::string, std::string> seen{table[1][column].toStdString(), table[2][column].toStdString()};
        // Sampling may begin before the firmware's start-up ran: memory still
        // reads 0 there, and the firmware's first value (-100) is a true
        // falling edge through a level just below 0.
        const bool startUp = std::string(c.trigger).ends_with("both:-0.5")
                             && seen == std::pair<std::string, std::string>{"0", "-100"};
        EXPECT_TRUE(startUp || std::find(c.edges.begin(), c.edges.end(), seen) != c.edges.end())
            << seen.first << " " << seen.second << " at " << table[1][0].toStdString();
        // The second row is the record in which the edge was seen.
        EXPECT_EQ(table[2][0], fired.captured(1));
        EXPECT_EQ(table[3][0].toULong() - table[2][0].toULong(), 1000u) << "recording goes on from the edge";
    }
}

TEST_F(RecordTrigger, OffWrongNamesAndABool)
{
    const struct {
        const char* trigger;
        int code;
        std::vector<std::string> said;  // empty: nothing of the trigger is said
    } cases[] = {
        {"off", 0, {}},  // the project's trigger is off already; "off" keeps it so
        {"g_nosuch:rise:1", 2, {"g_nosuch is not a selected symbol", "g_motor.speed_rpm"}},  // and the names to choose from
        {"g_sawtooth:up:1", 2, {"--trigger"}},
        {"g_square:rise:1", 0, {"never fires", "trigger: did not fire"}},  // a bool is never compared
    };
    for (const auto& c : cases) {
        const auto [code, output] = record({"--trigger", c.trigger});
        EXPECT_EQ(code, c.code) << c.trigger << ": " << output;
        if (c.said.empty()) {
            EXPECT_EQ(output.find("trigger:"), std::string::npos) << output;
        }
        for (const std::string& text : c.said)
            EXPECT_NE(output.find(text), std::string::npos) << c.trigger << ": " << output;
    }
}

using RecordPicture = RecordTrigger;

TEST_F(RecordPicture, PngOfTheDemoRecordingShowsTheProjectsCurveColours)
{
    // The curve colours the project file gives its symbols.
    QFile xml(QString::fromStdString((work / "demo_bsq.plotvik").string()));
    ASSERT_TRUE(xml.open(QIODevice::ReadOnly));
    const QRegularExpression rgb(R"re(GraphColorRed="(\d+)" GraphColorGreen="(\d+)" GraphColorBlue="(\d+)")re");
    std::vector<QRgb> colours;
    for (auto it = rgb.globalMatch(QString::fromUtf8(xml.readAll())); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        colours.push_back(qRgb(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()));
    }
    ASSERT_GE(colours.size(), 5u);

    const fs::path png = work / "demo.png";
    const auto [code, output] = record({"--png", QString::fromStdString(png.string())});
    ASSERT_EQ(code, 0) << output;
    EXPECT_NE(output.find("png: " + png.string()), std::string::npos) << output;
    QImage image(QString::fromStdString(png.string()));
    ASSERT_FALSE(image.isNull());
    std::map<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 10; x < image.width(); ++x)  // right of the zero markers
            ++counts[image.pixel(x, y) | 0xFF000000u];
    int shown = 0;
    for (const QRgb c : colours)
        shown += counts[c] > 100;
    // Every curve shows, save those drawn over by a later one on the same line.
    EXPECT_GE(shown, static_cast<int>(colours.size()) - 2) << output;
}
