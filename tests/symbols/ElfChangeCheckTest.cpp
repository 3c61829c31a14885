// The ELF change check and the re-matching, through the controller's jobs on
// two builds of one firmware; and the demo project opened from another folder.
#include "app/Controller.h"
#include "symbols/ElfChangeCheck.h"
#include "symbols/SymbolTree.h"
#include "tests/app/FakeSampler.h"
#include "tests/app/TestBridge.h"
#include "TestElf.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const Node* findInTree(SymbolTree* tree, const std::string& path)
{
    for (const Node* n : symtree::findPath(tree->arena, tree->files, path))
        if (!n->Name.empty())
            return n;
    return nullptr;
}

bool inTree(const SymbolTree* tree, const Node* node)
{
    for (const Node* n = node; n; n = n->Parent)
        for (const Node* f : tree->files)
            for (const Node* top = f->Children; top; top = top->Next)
                if (top == n)
                    return true;
    return false;
}

struct ElfChangeFixture : ::testing::Test {
    JobEngine engine;
    TestBridge bridge;
    std::unique_ptr<Controller> ctl;
    fs::path dir;
    fs::path elf;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        dir = fs::temp_directory_path() / ("plotvik-elfcheck-" + std::to_string(::getpid()) + "-" +
                                           ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
        elf = dir / "fw.elf";
        fs::copy_file(testelf::corpus("rebuild_v1.elf"), elf);
        ctl = std::make_unique<Controller>(engine, std::make_unique<FakeSampler>());
        ctl->setBridge(&bridge);
    }

    void TearDown() override
    {
        engine.stopAndWait([] {});
        ctl->setBridge(nullptr);
        ctl.reset();
        fs::remove_all(dir);
    }

    // A project in `dir` that names its ELF file relative to itself, parsed,
    // with four symbols selected.
    void openProjectWithSelection(bool qtx = false)
    {
        ctl->postCreateProject((dir / "p.plotvik").string());
        ProjectSettings s;
        s.ElfFile = "fw.elf";
        s.IsQTXSession = qtx;
        ctl->postInitProjSettings(&s);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        ASSERT_EQ(ctl->elfPath(), elf.string());
        ctl->postParseElfFile(ctl->elfPath(), false);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        SymbolTree* tree = ctl->symbols().tree();
        ASSERT_NE(tree, nullptr);
        std::vector<Node*> picked;
        for (const char* path : {"counter", "level", "pos.x", "samples[2]"}) {
            const Node* n = findInTree(tree, path);
            ASSERT_NE(n, nullptr) << path;
            picked.push_back(const_cast<Node*>(n));
        }
        picked[1]->symbol().GraphColor = Rgb{0x12, 0x34, 0x56, 255};
        picked[1]->symbol().HasGraphColor = true;
        picked[1]->symbol().YResolution = 50;
        picked[1]->symbol().YOffset = -3;
        picked[1]->symbol().DrawStyle = 1;
        picked[1]->symbol().ShowInGraph = false;
        ctl->symbols().setSelected(picked);
        for (const Node* n : picked)
            oldAddress[n->NameWithParents] = n->Address;
        bridge.boxes.clear();
    }

    // Runs one check and, when it posted a parse, the parse too.
    void check()
    {
        ctl->setElfCheckPending(true);
        ASSERT_EQ(ctl->postCheckElfModifications(), 0);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        ASSERT_TRUE(ctl->waitForQueue(10000));
        EXPECT_FALSE(ctl->elfCheckPending());
        EXPECT_FALSE(ctl->elfParsing());
    }

    void setWriteTime(const fs::path& p, fs::file_time_type t) { fs::last_write_time(p, t); }

    std::vector<std::string> selectedPaths()
    {
        std::vector<std::string> out;
        for (const Node* n : ctl->symbols().selected())
            out.push_back(n->NameWithParents);
        return out;
    }

    std::map<std::string, std::uint32_t> oldAddress;
};

}  // namespace

TEST(ElfTimeStamp, AnyDifferenceAtMillisecondPrecisionCounts)
{
    const auto t = fs::file_time_type::clock::now();
    EXPECT_FALSE(ElfTimeDiffers(t, t));
    EXPECT_TRUE(ElfTimeDiffers(t, t + 1s));
    EXPECT_TRUE(ElfTimeDiffers(t + 1s, t)) << "an older file copied over counts too";
    EXPECT_TRUE(ElfTimeDiffers(t, t - 5ms));
}

TEST_F(ElfChangeFixture, AnUnchangedFileAsksNothing)
{
    openProjectWithSelection();
    const SymbolTree* before = ctl->symbols().tree();
    check();
    EXPECT_TRUE(bridge.shown().empty());
    EXPECT_EQ(ctl->symbols().tree(), before);
    EXPECT_EQ(selectedPaths().size(), 4u);
}

TEST_F(ElfChangeFixture, RebuildWithATypeChangeDropsThatSymbolAndMovesTheOthers)
{
    openProjectWithSelection();
    const fs::file_time_type t = fs::last_write_time(elf);
    fs::copy_file(testelf::corpus("rebuild_v2.elf"), elf, fs::copy_options::overwrite_existing);
    setWriteTime(elf, t + 2s);
    bridge.answer = 0;  // "Reparse & Match symbols"
    check();

    const auto boxes = bridge.shown();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].text, "The elf file at\n" + elf.string() +
                                 "\nwas modified.\nShould Plotvik reparse the elf file and try to match the selected symbols?");
    EXPECT_EQ(boxes[0].button0, "Reparse & Match symbols");
    EXPECT_EQ(boxes[0].button1, "Reparse & Clear symbols");
    EXPECT_LE(boxes[0].timeoutMs, 0);

    // counter became a long: dropped without a message; the others carry on
    // in tree order with the addresses of the rebuild.
    EXPECT_EQ(selectedPaths(), (std::vector<std::string>{"level", "pos.x", "samples[2]"}));
    SymbolTree* tree = ctl->symbols().tree();
    for (const Node* n : ctl->symbols().selected()) {
        EXPECT_TRUE(inTree(tree, n)) << n->NameWithParents;
        EXPECT_EQ(n->Address, findInTree(tree, n->NameWithParents)->Address);
        EXPECT_EQ(n->Address, oldAddress[n->NameWithParents] + 4) << n->NameWithParents << " moved behind the new variable";
    }
    EXPECT_EQ(ctl->symbols().selected()[0]->symbol().GraphColor, (Rgb{0x12, 0x34, 0x56, 255})) << "the colour goes with the symbol";
    EXPECT_TRUE(ctl->symbols().selected()[0]->symbol().HasGraphColor);
    EXPECT_EQ(ctl->symbols().selected()[0]->symbol().YResolution, 50u) << "and so do its display settings";
    EXPECT_EQ(ctl->symbols().selected()[0]->symbol().YOffset, -3.0);
    EXPECT_EQ(ctl->symbols().selected()[0]->symbol().DrawStyle, 1);
    EXPECT_FALSE(ctl->symbols().selected()[0]->symbol().ShowInGraph);
    EXPECT_FALSE(ElfTimeDiffers(ctl->symbols().elfTime(), t + 2s));
}

TEST_F(ElfChangeFixture, TouchingOrCopyingAnOlderFileCountsAsModified)
{
    openProjectWithSelection();
    for (const auto shift : {3s, -3600s}) {
        const SymbolTree* before = ctl->symbols().tree();
        bridge.boxes.clear();
        setWriteTime(elf, ctl->symbols().elfTime() + shift);
        check();
        EXPECT_EQ(bridge.shown().size(), 1u) << shift.count();
        EXPECT_NE(ctl->symbols().tree(), before) << "re-parsed";
        EXPECT_EQ(selectedPaths(), (std::vector<std::string>{"counter", "level", "pos.x", "samples[2]"}));
    }
}

TEST_F(ElfChangeFixture, ReparseAndClearEmptiesTheSelection)
{
    openProjectWithSelection();
    setWriteTime(elf, ctl->symbols().elfTime() + 1s);
    bridge.answer = 1;
    check();
    EXPECT_EQ(bridge.shown().size(), 1u);
    EXPECT_TRUE(ctl->symbols().selected().empty());
    EXPECT_TRUE(ctl->symbols().selectionChanged());
    EXPECT_NE(ctl->symbols().tree(), nullptr);
}

TEST_F(ElfChangeFixture, ADeletedFileGivesNoMessageAndNoReparse)
{
    openProjectWithSelection();
    const SymbolTree* before = ctl->symbols().tree();
    fs::remove(elf);
    check();
    EXPECT_TRUE(bridge.shown().empty());
    EXPECT_EQ(ctl->symbols().tree(), before);
    EXPECT_EQ(selectedPaths().size(), 4u);
}

TEST_F(ElfChangeFixture, NothingIsCheckedInAQtxProject)
{
    openProjectWithSelection(true);
    setWriteTime(elf, ctl->symbols().elfTime() + 1s);
    check();
    EXPECT_TRUE(bridge.shown().empty());
    EXPECT_EQ(selectedPaths().size(), 4u);
}

TEST_F(ElfChangeFixture, NothingIsCheckedBeforeTheFirstParse)
{
    ctl->postCreateProject((dir / "p.plotvik").string());
    ProjectSettings s;
    s.ElfFile = "fw.elf";
    ctl->postInitProjSettings(&s);
    ASSERT_TRUE(ctl->waitForQueue(10000));
    ASSERT_EQ(ctl->symbols().tree(), nullptr);
    check();
    EXPECT_TRUE(bridge.shown().empty());
    EXPECT_EQ(ctl->symbols().tree(), nullptr);
}

TEST(DemoProject, OpenedFromAnotherFolderMatchesAllItsSymbols)
{
    QStandardPaths::setTestModeEnabled(true);
    const fs::path project = PLOTVIK_DEMO_PROJECT;
    ASSERT_TRUE(fs::exists(project));
    // What the project file lists, read on its own.
    Project listed;
    SymbolDatabase listedSymbols;
    ASSERT_EQ(LoadProject(project.string(), listed, listedSymbols), 0);
    std::vector<std::string> expected;
    for (const Node* n : listedSymbols.selected())
        expected.push_back(n->NameWithParents);
    ASSERT_FALSE(expected.empty());
    ASSERT_TRUE(fs::path(listed.settings().ElfFile).is_relative()) << "the demo names its ELF file beside itself";

    const fs::path before = fs::current_path();
    const fs::path elsewhere = fs::temp_directory_path() / ("plotvik-demo-cwd-" + std::to_string(::getpid()));
    fs::create_directories(elsewhere);
    fs::current_path(elsewhere);

    JobEngine engine;
    TestBridge bridge;
    Controller ctl(engine, std::make_unique<FakeSampler>());
    ctl.setBridge(&bridge);
    std::atomic<int> result{1};
    ctl.postOpenProjFile(project.string(), &result, {});
    ASSERT_TRUE(ctl.waitForQueue(20000));
    ASSERT_TRUE(ctl.waitForQueue(20000));
    fs::current_path(before);
    fs::remove_all(elsewhere);

    EXPECT_EQ(result.load(), 0);
    EXPECT_TRUE(bridge.shown().empty()) << bridge.shown().front().text;
    EXPECT_EQ(ctl.elfPath(), (project.parent_path() / listed.settings().ElfFile).lexically_normal().string());
    SymbolTree* tree = ctl.symbols().tree();
    ASSERT_NE(tree, nullptr);
    std::vector<std::string> got;
    for (const Node* n : ctl.symbols().selected()) {
        got.push_back(n->NameWithParents);
        EXPECT_TRUE(inTree(tree, n)) << n->NameWithParents;
        // The parsed ELF decides the texts; each listed entry found its node.
        const Node* parsed = findInTree(tree, n->NameWithParents);
        ASSERT_NE(parsed, nullptr);
        EXPECT_EQ(n, parsed);
    }
    // Re-matching keeps the order of the tree; compare as sets.
    std::sort(got.begin(), got.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(got, expected);
    for (const Node* n : listedSymbols.selected()) {
        const Node* parsed = findInTree(tree, n->NameWithParents);
        ASSERT_NE(parsed, nullptr) << n->NameWithParents;
        EXPECT_EQ(parsed->File, n->File) << n->NameWithParents;
        EXPECT_EQ(parsed->Type, n->Type) << n->NameWithParents;
    }
    engine.stopAndWait([] {});
    ctl.setBridge(nullptr);
}
