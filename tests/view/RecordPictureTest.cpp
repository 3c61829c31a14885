// plotvik-cli record --png: the real program samples the demo project on the
// simulated target (in fast mode) and draws the recording with the graph.
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <tuple>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const fs::path kBin = PLOTVIK_BIN_DIR;

struct Colour {
    int r, g, b;
    bool operator<(const Colour& o) const { return std::tie(r, g, b) < std::tie(o.r, o.g, o.b); }
};

// The curve colours the project file gives its symbols.
std::vector<Colour> projectColours(const std::string& xml)
{
    std::vector<Colour> out;
    const QRegularExpression rgb(R"re(GraphColorRed="(\d+)" GraphColorGreen="(\d+)" GraphColorBlue="(\d+)")re");
    for (auto it = rgb.globalMatch(QString::fromStdString(xml)); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        out.push_back({m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()});
    }
    return out;
}

}  // namespace

TEST(RecordPicture, PngOfTheDemoRecordingShowsTheProjectsCurveColours)
{
    const fs::path demo = kBin / "examples" / "demo";
    if (!fs::exists(demo / "demo_bsq.plotvik") || !fs::exists(kBin / "libTarvo_x64.so"))
        GTEST_SKIP() << "demo project or probe library not built";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const fs::path work = dir.path().toStdString();
    // The demo project beside a script that runs its firmware as fast as the host allows.
    fs::copy_file(demo / "demo_bsq.plotvik", work / "demo_bsq.plotvik");
    fs::copy_file(demo / "demo.elf", work / "demo.elf");
    std::ofstream(work / "demo.TarvoScript") << "Firmware = demo.elf\nClockHz = 64000000\nFast = 1\n";
    std::stringstream xml;
    xml << std::ifstream(work / "demo_bsq.plotvik").rdbuf();
    const std::vector<Colour> colours = projectColours(xml.str());
    ASSERT_GE(colours.size(), 5u);

    const fs::path png = work / "demo.png";
    QProcess cli;
    cli.setProcessChannelMode(QProcess::MergedChannels);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY");  // the picture needs no display
    env.remove("WAYLAND_DISPLAY");
    env.remove("QT_QPA_PLATFORM");
    env.insert("HOME", dir.path());
    env.insert("XDG_CONFIG_HOME", dir.path());
    cli.setProcessEnvironment(env);
    cli.setWorkingDirectory(dir.path());  // the probe finds the fast script here first
    cli.start(QString::fromStdString((kBin / "plotvik-cli").string()),
              {"record", QString::fromStdString((work / "demo_bsq.plotvik").string()), "--seconds", "1", "--png",
               QString::fromStdString(png.string())});
    ASSERT_TRUE(cli.waitForFinished(60000));
    const QString output = QString::fromLocal8Bit(cli.readAll());
    ASSERT_EQ(cli.exitCode(), 0) << output.toStdString();
    EXPECT_TRUE(output.contains(QString::fromStdString("png: " + png.string()))) << output.toStdString();

    QImage image(QString::fromStdString(png.string()));
    ASSERT_FALSE(image.isNull());
    EXPECT_GE(image.width(), 1000);
    std::map<Colour, int> counts;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 10; x < image.width(); ++x) {  // right of the zero markers
            const QRgb p = image.pixel(x, y);
            ++counts[{qRed(p), qGreen(p), qBlue(p)}];
        }
    int shown = 0;
    for (const Colour& c : colours)
        shown += counts[c] > 100;
    // Every curve shows, save those drawn over by a later one on the same line.
    EXPECT_GE(shown, static_cast<int>(colours.size()) - 2) << output.toStdString();
    // The background is the graph's black, its grid lines white at alpha 60 over it.
    const Colour black{0, 0, 0}, grid{60, 60, 60};
    EXPECT_GT(counts[black], image.width() * image.height() / 5);
    EXPECT_GT(counts[grid], image.height() * 5);
}
