// The ELF change check and the re-matching, through the controller's jobs on
// two builds of one firmware; and the demo project opened from another folder.
#include "app/Controller.h"
#include "app/Settings.h"
#include "symbols/ElfChangeCheck.h"
#include "symbols/SymbolTree.h"
#include "tests/TempFolder.h"
#include "tests/app/FakeSampler.h"
#include "tests/app/TestBridge.h"
#include "TestElf.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>

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

const std::vector<std::string> kPicked = {"counter", "level", "pos.x", "samples[2]"};

// A controller, started as the program starts it, with a folder of its own
// that holds the first build as fw.elf.
struct Session {
    JobEngine engine;
    TestBridge bridge;
    std::unique_ptr<Controller> ctl;
    fs::path dir;
    fs::path elf = dir / "fw.elf";
    std::map<std::string, std::uint32_t> oldAddress;
    int tableRow = 0;

    explicit Session(const std::string& name) : dir(testtemp::folder() / ("elfcheck-" + name))
    {
        QStandardPaths::setTestModeEnabled(true);
        fs::remove_all(dir);
        fs::create_directories(dir);
        fs::copy_file(testelf::corpus("rebuild_v1.elf"), elf);
        ctl = std::make_unique<Controller>(engine, std::make_unique<FakeSampler>());
        ctl->setBridge(&bridge);
        StartArgs args;
        args.argv = {"plotvik", "-nothing"};  // arguments: no start dialogs
        ctl->postInit(&args, {});
        EXPECT_TRUE(ctl->waitForQueue(10000));
    }
    ~Session()
    {
        engine.stopAndWait([] {});
        ctl->setBridge(nullptr);
        ctl.reset();
        fs::remove_all(dir);
    }

    // Opens a project that names fw.elf relative to itself; unless `parse` is
    // false, parses it and selects four symbols, the second with display
    // settings of its own.
    void open(bool qtx = false, bool parse = true)
    {
        ctl->postCreateProject((dir / "p.plotvik").string());
        ProjectSettings s;
        s.ElfFile = "fw.elf";
        s.IsQTXSession = qtx;
        ctl->postInitProjSettings(&s);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        ASSERT_EQ(ctl->elfPath(), elf.string());
        if (!parse)
            return;
        ctl->postParseElfFile(ctl->elfPath(), false);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        SymbolTree* tree = ctl->symbols().tree();
        ASSERT_NE(tree, nullptr);
        std::vector<Node*> picked;
        for (const std::string& path : kPicked) {
            picked.push_back(const_cast<Node*>(findInTree(tree, path)));
            ASSERT_NE(picked.back(), nullptr) << path;
            oldAddress[path] = picked.back()->Address;
        }
        SelectedSymbol& level = picked[1]->symbol();
        level.GraphColor = Rgb{0x12, 0x34, 0x56, 255};
        level.HasGraphColor = true;
        level.YResolution = 50;
        level.YOffset = -3;
        level.DrawStyle = 1;
        level.ShowInGraph = false;
        level.TableRow = &tableRow;
        ctl->symbols().setSelected(picked);
        ctl->symbols().setSelectionChanged(false);
    }

    // Runs one check and, when it posted a parse, the parse too.
    void check()
    {
        bridge.boxes.clear();
        ctl->setElfCheckPending(true);
        ASSERT_EQ(ctl->postCheckElfModifications(), 0);
        ASSERT_TRUE(ctl->waitForQueue(10000));
        ASSERT_TRUE(ctl->waitForQueue(10000));
        EXPECT_FALSE(ctl->elfCheckPending() || ctl->elfParsing());
    }
    std::vector<std::string> selected()
    {
        std::vector<std::string> out;
        for (const Node* n : ctl->symbols().selected())
            out.push_back(n->NameWithParents);
        return out;
    }
};

}  // namespace

// An unchanged file, a deleted one, a QTX project and a project not parsed
// yet: no question, no parse.
TEST(ElfChangeCheck, NothingIsAskedWhenNothingChangedOrNothingIsChecked)
{
    for (const std::string what : {"unchanged", "deleted", "qtx", "unparsed"}) {
        SCOPED_TRACE(what);
        Session s(what);
        s.open(what == "qtx", what != "unparsed");
        const SymbolTree* before = s.ctl->symbols().tree();
        if (what == "deleted")
            fs::remove(s.elf);
        else if (what != "unchanged")
            fs::last_write_time(s.elf, fs::last_write_time(s.elf) + 1s);
        s.check();
        EXPECT_TRUE(s.bridge.shown().empty());
        EXPECT_EQ(s.ctl->symbols().tree(), before);
        EXPECT_EQ(s.selected(), what == "unparsed" ? std::vector<std::string>{} : kPicked);
    }
}

TEST(ElfChangeCheck, RebuildWithATypeChangeDropsThatSymbolAndMovesTheOthers)
{
    Session s("rebuild");
    s.open();
    const fs::file_time_type t = fs::last_write_time(s.elf);
    fs::copy_file(testelf::corpus("rebuild_v2.elf"), s.elf, fs::copy_options::overwrite_existing);
    fs::last_write_time(s.elf, t + 2s);
    s.bridge.answer = 0;  // "Reparse & Match symbols"
    s.check();

    ASSERT_EQ(s.bridge.shown().size(), 1u);
    const MessageBoxRequest& box = s.bridge.boxes[0];
    EXPECT_EQ(box.text, "The elf file at\n" + s.elf.string() +
                            "\nwas modified.\nShould Plotvik reparse the elf file and try to match the selected "
                            "symbols?");

    // counter became a long: dropped without a message; the others carry on
    // in tree order with the addresses of the rebuild.
    EXPECT_EQ(s.selected(), (std::vector<std::string>{"level", "pos.x", "samples[2]"}));
    SymbolTree* tree = s.ctl->symbols().tree();
    for (const Node* n : s.ctl->symbols().selected()) {
        EXPECT_EQ(n, findInTree(tree, n->NameWithParents));
        EXPECT_EQ(n->Address, s.oldAddress[n->NameWithParents] + 4) << n->NameWithParents << " moved behind";
    }
    // The colour, the display settings and the table row go with the symbol.
    const SelectedSymbol& l = s.ctl->symbols().selected()[0]->symbol();
    EXPECT_EQ(std::tie(l.GraphColor, l.HasGraphColor, l.YResolution, l.YOffset, l.DrawStyle, l.ShowInGraph, l.TableRow),
              std::tuple(Rgb{0x12, 0x34, 0x56, 255}, true, 50u, -3.0, 1, false, &s.tableRow));
    EXPECT_TRUE(s.ctl->symbols().selectionChanged() && s.ctl->symbols().matched().empty());
    EXPECT_FALSE(ElfTimeDiffers(s.ctl->symbols().elfTime(), t + 2s));
}

// A newer or an older time stamp, down to a millisecond, counts as modified;
// the last answer clears the selection.
TEST(ElfChangeCheck, TouchingOrCopyingAnOlderFileAsksAndReparses)
{
    Session s("touch");
    s.open();
    for (const std::chrono::milliseconds shift : {3000ms, -3600000ms, 5ms}) {
        const SymbolTree* before = s.ctl->symbols().tree();
        s.bridge.answer = shift == 5ms;  // then "Reparse & Clear symbols"
        fs::last_write_time(s.elf, s.ctl->symbols().elfTime() + shift);
        s.check();
        EXPECT_EQ(s.bridge.shown().size(), 1u) << shift.count();
        EXPECT_TRUE(s.ctl->symbols().tree() != before && s.ctl->symbols().tree()) << "re-parsed";
        EXPECT_EQ(s.selected(), shift == 5ms ? std::vector<std::string>{} : kPicked);
    }
    EXPECT_TRUE(s.ctl->symbols().selectionChanged());
}

// A copy of the demo without its script, opened by a path relative to a
// working folder elsewhere: the project, the recent list and the remembered
// project name give the file itself, so that it is found again from anywhere;
// the ELF file is found beside it, and each listed symbol in its tree.
TEST(DemoProject, OpenedByARelativePathFromAnotherFolderMatchesAllItsSymbols)
{
    Session s("demo");
    const fs::path demo = fs::path(PLOTVIK_DEMO_PROJECT).parent_path();
    fs::create_directories(s.dir / "sub");
    for (const char* name : {"demo_bsq.plotvik", "demo.elf"})
        fs::copy_file(demo / name, s.dir / "sub" / name);
    const std::string project = (s.dir / "sub" / "demo_bsq.plotvik").string();
    Project listed;
    SymbolDatabase listedSymbols;  // what the project file lists, read on its own
    ASSERT_TRUE(LoadProject(project, listed, listedSymbols) == 0 && !listedSymbols.selected().empty());

    const fs::path before = fs::current_path();
    fs::current_path(s.dir);
    std::atomic<int> result{1};
    s.ctl->postOpenProjFile("sub/demo_bsq.plotvik", &result, {});
    ASSERT_TRUE(s.ctl->waitForQueue(20000));
    ASSERT_TRUE(s.ctl->waitForQueue(20000));
    fs::current_path(before);

    EXPECT_EQ(result.load(), 0);
    EXPECT_TRUE(s.bridge.shown().empty()) << s.bridge.shown().front().text;
    EXPECT_EQ(std::tuple(s.ctl->project().path(), RecentLists::instance().entry(1, 0),
                         Settings::instance().currentProject(), s.ctl->elfPath()),
              std::tuple(project, project, project, (s.dir / "sub" / "demo.elf").string()));
    // Each listed entry found its node (matching compares file, path and type).
    EXPECT_EQ(s.ctl->symbols().selected().size(), listedSymbols.selected().size());
    for (const Node* n : s.ctl->symbols().selected())
        EXPECT_EQ(n, findInTree(s.ctl->symbols().tree(), n->NameWithParents));
    // A script not beside the project goes to the library as written.
    EXPECT_EQ(s.ctl->scriptPath(), "demo.TarvoScript");
    fs::copy_file(demo / "demo.TarvoScript", s.dir / "sub" / "demo.TarvoScript");
    EXPECT_EQ(s.ctl->scriptPath(), (s.dir / "sub" / "demo.TarvoScript").string());
}
