#include "FilesTestSupport.h"

#include "app/Controller.h"
#include "app/ControllerExports.h"
#include "base/Text.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct ExportCommandTest : ::testing::Test {
    QTemporaryDir dir;
    JobEngine engine;
    std::unique_ptr<Controller> ctl;  // no sampler: exports never reach the probe
    RecordingBridge bridge;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        ctl = std::make_unique<Controller>(engine, nullptr);
        ctl->setBridge(&bridge);
        report::setBridge(&bridge);
        ctl->project().setOpen(true);
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = "level";
        n->NameWithParents = "level";
        n->Size = 2;
        n->TypeID = kTypeU16;
        ctl->symbols().setSelected({n});
        SampleStore& store = ctl->store();
        store.layOut(true);
        store.prepareFreshStart();
        store.setOpen(true);
        std::string recs;
        for (std::uint32_t i = 0; i < 4; ++i) {
            const std::uint16_t v = static_cast<std::uint16_t>(i * 11);
            recs.append(reinterpret_cast<const char*>(&i), 4).append(reinterpret_cast<const char*>(&v), 2);
        }
        store.storeRecords(reinterpret_cast<const std::uint8_t*>(recs.data()), recs.size());
        store.setOpen(false);
    }

    void TearDown() override
    {
        report::setBridge(nullptr);
        ctl->setBridge(nullptr);
    }
};

TEST_F(ExportCommandTest, CsvAsksForTheFileAndRemembersIt)
{
    bridge.dialogPath = dir.filePath("a.csv").toStdString();
    ASSERT_EQ(ExportCsvCommand(*ctl), 0);
    ASSERT_EQ(bridge.dialogs.size(), 1u);
    EXPECT_EQ(bridge.dialogs[0].title, "Export Data");
    EXPECT_EQ(bridge.dialogs[0].filter, "CSV (*.csv)");
    EXPECT_EQ(ctl->project().settings().DataFile, bridge.dialogPath);
    EXPECT_TRUE(ctl->project().settings().RawFile.empty());
    EXPECT_TRUE(ctl->project().isModified());
    EXPECT_EQ(lines(readAll(bridge.dialogPath)),
              (std::vector<std::string>{"Timestamp;level", "0;0", "1;11", "2;22"}));
}

TEST_F(ExportCommandTest, RawAsksForTheFileAndRemembersIt)
{
    bridge.dialogPath = dir.filePath("a.praw").toStdString();
    ASSERT_EQ(ExportRawCommand(*ctl), 0);
    ASSERT_EQ(bridge.dialogs.size(), 1u);
    EXPECT_EQ(bridge.dialogs[0].title, "Export Data");
    EXPECT_EQ(bridge.dialogs[0].filter, "PRAW (*.praw)");
    EXPECT_EQ(ctl->project().settings().RawFile, bridge.dialogPath);
    EXPECT_EQ(readAll(bridge.dialogPath).size(), 3u * 6u);
    EXPECT_EQ(bridge.texts(), std::vector<std::string>{"Raw data exported in the order:\nTimestamp\nlevel"});
}

TEST_F(ExportCommandTest, CancelledDialogDoesNothing)
{
    bridge.dialogPath.clear();
    const ProjectSettings before = ctl->project().settings();
    EXPECT_EQ(ExportCsvCommand(*ctl), 0);
    EXPECT_EQ(ExportRawCommand(*ctl), 0);
    EXPECT_EQ(bridge.dialogs.size(), 2u);
    EXPECT_EQ(ctl->project().settings(), before);
    EXPECT_FALSE(ctl->project().isModified());
    EXPECT_TRUE(bridge.boxes.empty());
}

}  // namespace
