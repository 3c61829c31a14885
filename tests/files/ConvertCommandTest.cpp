#include "FilesTestSupport.h"

#include "base/Text.h"
#include "files/Project.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct CliRun {
    int exitCode = -1;
    std::string err;
};

CliRun runCli(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral(PLOTVIK_CLI_PATH), QStringList{"convert"} + args);
    CliRun r;
    if (!p.waitForFinished(60000))
        return r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.err = p.readAllStandardError().toStdString();
    return r;
}

std::string record(std::uint32_t ts, std::int16_t v)
{
    std::string r(6, '\0');
    std::memcpy(r.data(), &ts, 4);
    std::memcpy(r.data() + 4, &v, 2);
    return r;
}

struct ConvertCommandTest : ::testing::Test {
    QTemporaryDir dir;
    QString project = dir.filePath("p.plotvik");
    QString raw = dir.filePath("r.praw");
    QString csv = dir.filePath("o.csv");

    void SetUp() override
    {
        Project p;
        SymbolDatabase symbols;
        Node* n = symbols.createDetachedSymbol();
        n->Name = "temp";
        n->NameWithParents = "sensor.temp";
        n->Type = text::intern("short");
        n->File = text::intern("/src/s.c");
        n->Size = 2;
        n->TypeID = kTypeS16;
        symbols.setSelected({n});
        ProjectSettings s;
        s.TargetDevice = "DEV";
        p.apply(s);
        ASSERT_EQ(SaveProject(project.toStdString(), p, symbols), 0);
    }
};

TEST_F(ConvertCommandTest, ConvertsARecordingWithTheProjectSelection)
{
    writeAll(raw.toStdString(), record(10, -5) + record(20, 6) + record(30, 7));
    const CliRun r = runCli({raw, "--project", project, "--csv", csv});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    // As in the GUI, the store's newest slot is not exported.
    EXPECT_EQ(lines(readAll(csv.toStdString())), (std::vector<std::string>{"Timestamp;sensor.temp", "10;-5", "20;6"}));
}

TEST_F(ConvertCommandTest, WarningsGoToStandardErrorAndDoNotStopTheConversion)
{
    writeAll(raw.toStdString(), record(10, 1) + record(20, 2) + record(30, 3) + "X");
    const CliRun r = runCli({"--csv", csv, raw, "--project", project});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("File size does not align with selected symbols!\nFile size: 19 Bytes\n"
                         "Size of selected symbols + timestamp: 6 Bytes"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(lines(readAll(csv.toStdString())).size(), 3u);
}

TEST_F(ConvertCommandTest, FailuresExitNonZero)
{
    writeAll(raw.toStdString(), record(10, 1));
    EXPECT_NE(runCli({raw, "--project", dir.filePath("none.plotvik"), "--csv", csv}).exitCode, 0);
    const CliRun missingRaw = runCli({dir.filePath("none.praw"), "--project", project, "--csv", csv});
    EXPECT_NE(missingRaw.exitCode, 0);
    EXPECT_NE(missingRaw.err.find("File not found!"), std::string::npos) << missingRaw.err;
    EXPECT_NE(runCli({raw, "--project", project, "--csv", dir.filePath("no/dir/o.csv")}).exitCode, 0);
    EXPECT_EQ(runCli({raw, "--project", project}).exitCode, 2);
    EXPECT_FALSE(QFile::exists(csv));
}

}  // namespace
