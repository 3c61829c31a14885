// The file commands: plotvik-cli convert, and the exports behind the menus.
#include "StoreFixture.h"

#include "app/Controller.h"
#include "app/ControllerExports.h"
#include "files/Project.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

#include <gtest/gtest.h>

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

struct ConvertCommandTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    QString project = dir.filePath("p.plotvik");
    QString raw = dir.filePath("r.praw");
    QString csv = dir.filePath("o.csv");

    void SetUp() override
    {
        select("temp", 2, kTypeS16)->NameWithParents = "sensor.temp";
        Project p;
        p.apply(ProjectSettings{});
        ASSERT_EQ(SaveProject(project.toStdString(), p, symbols), 0);
    }
};

TEST_F(ConvertCommandTest, ConvertsARecordingWithTheProjectSelection)
{
    const std::string data =
        record(10u, std::int16_t{-5}) + record(20u, std::int16_t{6}) + record(30u, std::int16_t{7});
    writeAll(raw.toStdString(), data);
    CliRun r = runCli({raw, "--project", project, "--csv", csv});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    // As in the GUI, the store's newest slot is not exported.
    EXPECT_EQ(lines(readAll(csv.toStdString())),
              (std::vector<std::string>{"Timestamp;sensor.temp", "10;-5", "20;6"}));

    // Warnings go to standard error and do not stop the conversion.
    writeAll(raw.toStdString(), data + "X");
    r = runCli({"--csv", csv, raw, "--project", project});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("File size does not align with selected symbols!\nFile size: 19 Bytes\n"
                         "Size of selected symbols + timestamp: 6 Bytes"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(lines(readAll(csv.toStdString())).size(), 3u);
}

TEST_F(ConvertCommandTest, FailuresExitNonZero)
{
    writeAll(raw.toStdString(), record(10u, std::int16_t{1}));
    EXPECT_NE(runCli({raw, "--project", dir.filePath("none.plotvik"), "--csv", csv}).exitCode, 0);
    EXPECT_NE(runCli({dir.filePath("none.praw"), "--project", project, "--csv", csv}).exitCode, 0);
    EXPECT_NE(runCli({raw, "--project", project, "--csv", dir.filePath("no/dir/o.csv")}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(csv));
}

struct ExportCommandTest : ::testing::Test {
    QTemporaryDir dir;
    JobEngine engine;
    std::unique_ptr<Controller> ctl;  // no sampler: exports never reach the probe
    ScopedBridge scoped;
    TestBridge& bridge = scoped.bridge;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        ctl = std::make_unique<Controller>(engine, nullptr);
        ctl->setBridge(&bridge);
        ctl->project().setOpen(true);
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = n->NameWithParents = "level";
        n->Size = 2;
        n->TypeID = kTypeU16;
        ctl->symbols().setSelected({n});
        SampleStore& store = ctl->store();
        store.layOut(true);
        store.prepareFreshStart();
        store.setOpen(true);
        std::string recs;
        for (std::uint16_t i = 0; i < 4; ++i)
            recs += StoreFixture::record(i, std::uint16_t(i * 11));
        store.storeRecords(reinterpret_cast<const std::uint8_t*>(recs.data()), recs.size());
        store.setOpen(false);
    }

    void TearDown() override { ctl->setBridge(nullptr); }
};

// Each export asks for its file, writes it and the project remembers it.
TEST_F(ExportCommandTest, ExportsAskForTheFileAndRememberIt)
{
    bridge.savePath = dir.filePath("a.csv").toStdString();
    ASSERT_EQ(ExportCsvCommand(*ctl), 0);
    EXPECT_EQ(ctl->project().settings().DataFile, bridge.savePath);
    EXPECT_TRUE(ctl->project().settings().RawFile.empty());
    EXPECT_TRUE(ctl->project().isModified());
    EXPECT_EQ(lines(readAll(bridge.savePath)).size(), 4u);  // what the files hold: CsvExportTest, RawFileTest

    bridge.savePath = dir.filePath("a.praw").toStdString();
    ASSERT_EQ(ExportRawCommand(*ctl), 0);
    EXPECT_EQ(ctl->project().settings().RawFile, bridge.savePath);
    EXPECT_EQ(readAll(bridge.savePath).size(), 3u * 6u);
    EXPECT_EQ(bridge.dialogs.size(), 2u);
}

TEST_F(ExportCommandTest, CancelledDialogDoesNothing)
{
    const ProjectSettings before = ctl->project().settings();
    EXPECT_EQ(ExportCsvCommand(*ctl), 0);
    EXPECT_EQ(ExportRawCommand(*ctl), 0);
    EXPECT_EQ(bridge.dialogs.size(), 2u);
    EXPECT_EQ(ctl->project().settings(), before);
    EXPECT_FALSE(ctl->project().isModified());
    EXPECT_TRUE(bridge.boxes.empty());
}

}  // namespace
