#include "StoreFixture.h"

#include "app/Controller.h"
#include "app/ControllerExports.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

namespace {

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
