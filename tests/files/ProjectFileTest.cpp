#include "FilesTestSupport.h"

#include "base/Text.h"
#include "files/Project.h"
#include "files/ProjectFormat.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace {

const std::string kNewerVersionText =
    "The project has a newer file version and might not be compatible with this version of Plotvik.";

// A complete document as an older program version wrote it: no TypeID, the
// signedness instead.
const std::string kBaseDocument = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<PlotvikProject>
    <FileVersion major="1" minor="1"/>
    <Project>
        <Configuration>
            <Tarvo>
                <Options Connection="1" IsQTXSession="0" IsQTXWithTimeStamp="1" SamplingPeriod="500" SerialNo="12345" JTAG_IRPre="3" JTAG_DRPre="-1" IP="" TargetDevice="STM32F407VG" TargetInterface="SWD" InterfaceSpeed="4000"/>
            </Tarvo>
            <ElfFile Name="/fw/app.elf"/>
            <Scope>
                <Options TimeResolutionUs="1000"/>
            </Scope>
            <Trigger>
                <Options Level="12.5" Symbol="speed" On="1" Auto="0" Rise="1" Fall="0"/>
            </Trigger>
        </Configuration>
        <Windows>
            <Graph Show="1"/>
            <Watch Show="0"/>
        </Windows>
        <SelectedSymbols>
            <Symbol>
                <Options Name="speed" Address="0x20000010" Type="float" IsSigned="1" Size="4" GraphColorRed="10" GraphColorGreen="20" GraphColorBlue="30" ShowInGraph="1" YOffset="-3" IsAutoConfig="0" YResolution="5" MaxValue="100" File="/src/main.c"/>
            </Symbol>
            <Symbol>
                <Options Name="count" Address="0x20000014" Type="unsigned int" TypeID="8" Size="4" GraphColorRed="1" GraphColorGreen="2" GraphColorBlue="3" ShowInGraph="0" YOffset="0" IsAutoConfig="1" YResolution="2" MaxValue="4294967295" File="/src/main.c" DrawStyle="1" NameWithParents="state.count"/>
            </Symbol>
        </SelectedSymbols>
    </Project>
</PlotvikProject>
)";

std::string replaced(std::string doc, const std::string& from, const std::string& to)
{
    const auto pos = doc.find(from);
    EXPECT_NE(pos, std::string::npos) << "test document lacks: " << from;
    if (pos != std::string::npos)
        doc.replace(pos, from.size(), to);
    return doc;
}

struct ProjectFileTest : ::testing::Test {
    QTemporaryDir dir;
    ScopedBridge scoped;
    Project project;
    SymbolDatabase symbols;

    std::string path(const std::string& name) const { return dir.filePath(QString::fromStdString(name)).toStdString(); }

    int loadText(const std::string& doc)
    {
        const std::string p = path("in.plotvik");
        writeAll(p, doc);
        return LoadProject(p, project, symbols);
    }

    Node* addSymbol(const std::string& name, std::uint32_t size, std::int32_t typeId)
    {
        Node* n = symbols.createDetachedSymbol();
        n->Name = name;
        n->NameWithParents = "top." + name;
        n->Type = text::intern("int");
        n->File = text::intern("/src/a.c");
        n->Size = size;
        n->TypeID = typeId;
        auto sel = symbols.selected();
        sel.push_back(n);
        symbols.setSelected(sel);
        return n;
    }
};

TEST_F(ProjectFileTest, ReadsEveryPartOfADocument)
{
    ASSERT_EQ(loadText(kBaseDocument), 0);
    const ProjectSettings s = project.settings();
    EXPECT_EQ(s.Connection, kConnectionUsb);
    EXPECT_FALSE(s.IsQTXSession);
    EXPECT_TRUE(s.IsQTXWithTimeStamp);
    EXPECT_EQ(s.SamplingPeriod, 500u);
    EXPECT_EQ(s.SerialNo, 12345u);
    EXPECT_EQ(s.JTAG_IRPre, 3);
    EXPECT_EQ(s.JTAG_DRPre, -1);
    EXPECT_EQ(s.TargetDevice, "STM32F407VG");
    EXPECT_EQ(s.TargetInterface, kInterfaceSwd);
    EXPECT_EQ(s.InterfaceSpeed, 4000u);
    EXPECT_EQ(s.ElfFile, "/fw/app.elf");
    EXPECT_TRUE(s.DataFile.empty());
    EXPECT_EQ(s.TimeResolutionUs, 1000u);
    EXPECT_DOUBLE_EQ(s.TriggerLevel, 12.5);
    EXPECT_TRUE(s.TriggerOn);
    EXPECT_FALSE(s.TriggerAuto);
    EXPECT_TRUE(s.TriggerRise);
    EXPECT_FALSE(s.TriggerFall);
    EXPECT_TRUE(s.ShowGraph);
    EXPECT_FALSE(s.ShowWatch);

    ASSERT_EQ(symbols.selected().size(), 2u);
    const Node& a = *symbols.selected()[0];
    EXPECT_EQ(s.TriggerSymbol, &a);
    EXPECT_EQ(a.Name, "speed");
    EXPECT_EQ(a.NameWithParents, "speed");  // absent: the plain name stands for it
    EXPECT_EQ(a.Address, 0x20000010u);
    EXPECT_EQ(a.Type, "float");
    EXPECT_EQ(a.TypeID, kTypeS32);  // "float" is no placeholder name: a signed 4-byte integer
    EXPECT_TRUE(a.IsSigned);
    EXPECT_EQ(a.symbol().GraphColor, (Rgb{10, 20, 30, 255}));
    EXPECT_TRUE(a.symbol().HasGraphColor);
    EXPECT_EQ(a.symbol().YMinSampled, 0.0);  // absent statistics read as 0
    EXPECT_EQ(a.symbol().YMaxSampled, 0.0);
    EXPECT_EQ(a.symbol().YOffset, -3.0);
    EXPECT_EQ(a.symbol().YResolution, 5u);
    EXPECT_EQ(a.MaxValue, 100.0);
    EXPECT_EQ(a.File, "/src/main.c");
    EXPECT_EQ(a.symbol().DrawStyle, 0);

    const Node& b = *symbols.selected()[1];
    EXPECT_EQ(b.TypeID, kTypeU32);
    EXPECT_FALSE(b.symbol().ShowInGraph);
    EXPECT_TRUE(b.symbol().IsAutoConfig);
    EXPECT_EQ(b.MaxValue, 4294967295.0);
    EXPECT_EQ(b.symbol().DrawStyle, 1);
    EXPECT_EQ(b.NameWithParents, "state.count");
    EXPECT_FALSE(b.symbol().ManualYResolution) << "absent in older files: the automatic range applies";
    EXPECT_TRUE(scoped.bridge.boxes.empty());
    EXPECT_GT(scoped.bridge.guiUpdates, 0);
}

TEST_F(ProjectFileTest, SavedDocumentHasTheFixedLayout)
{
    ProjectSettings s;
    s.TargetDevice = "DEV";
    s.ElfFile = "/e.elf";
    s.DataFile = "/d.csv";
    s.ScriptFile = "/s.txt";
    s.IP = "10.0.0.2";
    s.Connection = kConnectionTcpIp;
    s.TargetInterface = kInterfaceFine;
    s.InterfaceSpeed = 100;
    s.SamplingPeriod = 250;
    s.JTAG_IRPre = -1;
    s.ShowWatch = true;
    s.TimeResolutionUs = 7;
    Node* n = addSymbol("v", 2, kTypeS16);
    n->Address = 0xABC;
    n->symbol().YMinSampled = -1.5;
    n->symbol().YMaxSampled = 1e10;
    n->symbol().YAvgSampled = 0.25;
    n->symbol().YOffset = 9.99;
    n->MaxValue = 32767;
    n->symbol().GraphColor = {255, 0, 7, 255};
    s.TriggerSymbol = n;
    s.TriggerLevel = -7.9;
    s.TriggerFall = true;
    project.apply(s);
    const std::string p = path("out.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_EQ(readAll(p), R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<PlotvikProject>
    <FileVersion major="1" minor="1"/>
    <Project>
        <Configuration>
            <Tarvo>
                <Options Connection="2" IsQTXSession="0" IsQTXWithTimeStamp="0" SamplingPeriod="250" SerialNo="0" JTAG_IRPre="-1" JTAG_DRPre="0" IP="10.0.0.2" TargetDevice="DEV" TargetInterface="FINE" InterfaceSpeed="100"/>
            </Tarvo>
            <ScriptFile Name="/s.txt"/>
            <ElfFile Name="/e.elf"/>
            <DataFile Name="/d.csv"/>
            <RawFile Name=""/>
            <Scope>
                <Options TimeResolutionUs="7"/>
            </Scope>
            <Trigger>
                <Options Level="-7" Symbol="v" On="0" Auto="0" Rise="0" Fall="1"/>
            </Trigger>
        </Configuration>
        <Windows>
            <Graph Show="0"/>
            <Watch Show="1"/>
        </Windows>
        <SelectedSymbols>
            <Symbol>
                <Options Name="v" Address="0x00000ABC" Type="int" TypeID="11" Size="2" GraphColorRed="255" GraphColorGreen="0" GraphColorBlue="7" YMinSampled="-1.5" YMaxSampled="1e+10" YAvgSampled="0.25" Offset="0" ShowInGraph="1" YOffset="9" IsAutoConfig="0" YResolution="1" MaxValue="32767" File="/src/a.c" DrawStyle="0" NameWithParents="top.v" ManualYResolution="0"/>
            </Symbol>
        </SelectedSymbols>
    </Project>
</PlotvikProject>
)");
}

TEST_F(ProjectFileTest, SaveAndLoadGiveTheSameRecords)
{
    ProjectSettings s;
    s.TargetDevice = std::string(200, 'D');  // longer than its field
    s.ElfFile = "/fw/x.elf";
    s.DataFile = "/out/a.csv";
    s.RawFile = "/out/a.praw";
    s.SerialNo = 4000000000u;
    s.Connection = kConnectionUsb;
    s.TargetInterface = kInterfaceJtag;
    s.InterfaceSpeed = 12000;
    s.IsQTXSession = true;
    s.IsQTXWithTimeStamp = true;
    s.SamplingPeriod = 100;
    s.JTAG_DRPre = 2;
    s.ShowGraph = s.ShowWatch = true;
    s.TimeResolutionUs = 1000000;
    Node* a = addSymbol("alpha", 4, kTypeFloat);
    Node* b = addSymbol("beta", 1, kTypeBool);
    a->Address = 0xFFFFFFF0u;
    a->symbol().YOffset = -2.7;
    a->symbol().YMinSampled = -3.25;
    a->symbol().YMaxSampled = 8.5;
    a->symbol().YAvgSampled = 1.0;
    a->symbol().IsAutoConfig = true;
    a->symbol().YResolution = 20;
    a->symbol().ManualYResolution = true;
    a->MaxValue = 3.4e38;
    a->symbol().Offset = 4;
    b->symbol().ShowInGraph = false;
    b->symbol().DrawStyle = 1;
    b->MaxValue = 1;
    b->symbol().Offset = 8;
    b->symbol().GraphColor = {1, 2, 3, 255};
    s.TriggerSymbol = b;
    s.TriggerLevel = 1.0;
    s.TriggerOn = s.TriggerAuto = s.TriggerRise = true;
    project.apply(s);
    const std::string p = path("rt.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);

    Project loaded;
    SymbolDatabase loadedSymbols;
    ASSERT_EQ(LoadProject(p, loaded, loadedSymbols), 0);
    ProjectSettings expected = s;
    expected.TargetDevice = std::string(kDeviceNameSize - 1, 'D');
    ProjectSettings got = loaded.settings();
    ASSERT_EQ(loadedSymbols.selected().size(), 2u);
    EXPECT_EQ(got.TriggerSymbol, loadedSymbols.selected()[1]);
    got.TriggerSymbol = expected.TriggerSymbol = nullptr;
    EXPECT_EQ(got, expected);

    for (std::size_t i = 0; i < 2; ++i) {
        const Node& was = *symbols.selected()[i];
        const Node& now = *loadedSymbols.selected()[i];
        EXPECT_EQ(now.Name, was.Name);
        EXPECT_EQ(now.NameWithParents, was.NameWithParents);
        EXPECT_EQ(now.Address, was.Address);
        EXPECT_EQ(now.Type, was.Type);
        EXPECT_EQ(now.File, was.File);
        EXPECT_EQ(now.TypeID, was.TypeID);
        EXPECT_EQ(now.Size, was.Size);
        EXPECT_EQ(now.symbol().GraphColor, was.symbol().GraphColor);
        EXPECT_EQ(now.symbol().ShowInGraph, was.symbol().ShowInGraph);
        EXPECT_EQ(now.symbol().IsAutoConfig, was.symbol().IsAutoConfig);
        EXPECT_EQ(now.symbol().YResolution, was.symbol().YResolution);
        EXPECT_EQ(now.symbol().ManualYResolution, was.symbol().ManualYResolution);
        EXPECT_EQ(now.symbol().Offset, was.symbol().Offset);
        EXPECT_EQ(now.symbol().DrawStyle, was.symbol().DrawStyle);
        // The format's own truncations.
        EXPECT_EQ(now.symbol().YOffset, std::trunc(was.symbol().YOffset));
        // Integers beyond 64 bits (the largest float) saturate.
        EXPECT_EQ(now.MaxValue, static_cast<double>(projectfile::truncatedToInteger(was.MaxValue)));
        EXPECT_EQ(now.symbol().YAvgSampled, was.symbol().YAvgSampled == 1.0 ? 1.0 : 0.0);
        EXPECT_DOUBLE_EQ(now.symbol().YMinSampled, i == 0 ? -3.25 : std::stod(projectfile::formatDouble(was.symbol().YMinSampled)));
    }
    EXPECT_EQ(loadedSymbols.selected()[0]->symbol().YOffset, -2.0);
    EXPECT_EQ(loadedSymbols.selected()[0]->MaxValue, 9223372036854775807.0);
    EXPECT_EQ(loadedSymbols.selected()[1]->MaxValue, 1.0);
}

TEST_F(ProjectFileTest, EmptySelectionIsWrittenAndReloadsEmpty)
{
    project.apply(ProjectSettings{});
    const std::string p = path("empty.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_NE(readAll(p).find("<SelectedSymbols/>"), std::string::npos);

    addSymbol("stale", 4, kTypeU32);  // a previous selection is replaced by the empty one
    ASSERT_EQ(LoadProject(p, project, symbols), 0);
    EXPECT_TRUE(symbols.selected().empty());
}

TEST_F(ProjectFileTest, AbsentSelectionKeepsTheCurrentOneAndFindsTheTriggerInIt)
{
    Node* kept = addSymbol("speed", 4, kTypeFloat);
    const auto begin = kBaseDocument.find("<SelectedSymbols>");
    const auto end = kBaseDocument.find("</SelectedSymbols>") + std::string("</SelectedSymbols>").size();
    std::string doc = kBaseDocument;
    doc.erase(begin, end - begin);
    ASSERT_EQ(loadText(doc), 0);
    ASSERT_EQ(symbols.selected().size(), 1u);
    EXPECT_EQ(symbols.selected()[0], kept);
    EXPECT_EQ(project.settings().TriggerSymbol, kept);
}

TEST_F(ProjectFileTest, RawFileIsRecordedOnlyBesideADataFile)
{
    struct Case {
        std::string data, raw;
        bool hasData, hasRaw;
    } cases[] = {
        {"", "/r.praw", false, false},
        {"", "", false, false},
        {"/d.csv", "", true, true},
        {"/d.csv", "/r.praw", true, true},
    };
    for (const auto& c : cases) {
        ProjectSettings s;
        s.DataFile = c.data;
        s.RawFile = c.raw;
        project.apply(s);
        const std::string p = path("df.plotvik");
        ASSERT_EQ(SaveProject(p, project, symbols), 0);
        const std::string doc = readAll(p);
        EXPECT_EQ(doc.find("<DataFile") != std::string::npos, c.hasData) << c.data << "|" << c.raw;
        EXPECT_EQ(doc.find("<RawFile Name=\"" + c.raw + "\"") != std::string::npos, c.hasRaw) << c.data << "|" << c.raw;
        EXPECT_EQ(doc.find("<ScriptFile") != std::string::npos, false);
        EXPECT_NE(doc.find("<ElfFile Name=\"\"/>"), std::string::npos);
    }
}

TEST_F(ProjectFileTest, YOffsetIsTruncatedTowardZeroOnWriting)
{
    for (const auto& [value, written] : {std::pair{-2.7, "-2"}, {2.7, "2"}, {-0.5, "0"}, {41.0, "41"}}) {
        Node* n = addSymbol("y", 2, kTypeU16);
        n->symbol().YOffset = value;
        const std::string p = path("y.plotvik");
        ASSERT_EQ(SaveProject(p, project, symbols), 0);
        EXPECT_NE(readAll(p).find(std::string("YOffset=\"") + written + "\""), std::string::npos) << value;
        symbols.clearSelected();
    }
}

TEST_F(ProjectFileTest, AverageReloadsAsZeroOrOne)
{
    const std::string tag = "YResolution=\"5\"";
    for (const auto& [text, value] : {std::pair{"1", 1.0}, {"0.5", 0.0}, {"1.9", 1.0}, {"2", 0.0}, {"0", 0.0}}) {
        ASSERT_EQ(loadText(replaced(kBaseDocument, tag, tag + " YAvgSampled=\"" + text + "\"")), 0);
        EXPECT_EQ(symbols.selected()[0]->symbol().YAvgSampled, value) << text;
    }
}

TEST_F(ProjectFileTest, WarnsOnlyAboutNewerVersions)
{
    const std::string from = "major=\"1\" minor=\"1\"";
    const struct {
        std::string version;
        bool warns;
    } cases[] = {{"major=\"1\" minor=\"2\"", true}, {"major=\"2\" minor=\"0\"", true},  {"major=\"1\" minor=\"1\"", false},
                 {"major=\"0\" minor=\"9\"", false}, {"", false}};
    for (const auto& c : cases) {
        scoped.bridge.boxes.clear();
        ASSERT_EQ(loadText(replaced(kBaseDocument, from, c.version)), 0) << c.version;
        ASSERT_EQ(scoped.bridge.boxes.size(), c.warns ? 1u : 0u) << c.version;
        if (c.warns) {
            EXPECT_EQ(scoped.bridge.boxes[0].text, kNewerVersionText);
            EXPECT_EQ(scoped.bridge.boxes[0].button0, "O.K.");
            EXPECT_EQ(scoped.bridge.boxes[0].caption, report::warningCaption());
        }
    }
}

TEST_F(ProjectFileTest, TypeIdIsDerivedFromTypeSizeAndSign)
{
    const struct {
        const char* type;
        int size;
        int isSigned;
        int expected;
    } cases[] = {
        {"*float*", 4, 1, 1},  {"float", 4, 1, 12},    {"*float*", 8, 0, 9},  {"*double*", 8, 1, 2},
        {"double", 8, 1, 13},  {"*_Bool*", 1, 0, 5},   {"*_BOOL*", 1, 0, 6},  {"*_Bool*", 2, 0, 7},
        {"char", 1, 1, 10},    {"short", 2, 1, 11},    {"x", 4, 0, 8},        {"x", 8, 0, 9},
        {"x", 3, 0, 0},        {"x", 16, 1, 0},
    };
    const std::string from = "Type=\"float\" IsSigned=\"1\" Size=\"4\"";
    for (const auto& c : cases) {
        const std::string to = std::string("Type=\"") + c.type + "\" IsSigned=\"" + std::to_string(c.isSigned) +
                               "\" Size=\"" + std::to_string(c.size) + "\"";
        ASSERT_EQ(loadText(replaced(kBaseDocument, from, to)), 0);
        EXPECT_EQ(symbols.selected()[0]->TypeID, c.expected) << c.type << " " << c.size << " " << c.isSigned;
        EXPECT_EQ(projectfile::deriveTypeId(c.type, static_cast<std::uint32_t>(c.size), c.isSigned == 1), c.expected);
    }
}

TEST_F(ProjectFileTest, TypeIdWhenPresentIsTakenAsItIs)
{
    const std::string from = "Type=\"float\" IsSigned=\"1\"";
    ASSERT_EQ(loadText(replaced(kBaseDocument, from, "Type=\"float\" TypeID=\"0x2\"")), 0);
    EXPECT_EQ(symbols.selected()[0]->TypeID, 2);
    EXPECT_FALSE(symbols.selected()[0]->IsSigned);  // not read when the id is given
}

TEST_F(ProjectFileTest, TriggerOnAnUnselectedSymbolIsDroppedOnTheNextSave)
{
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Symbol=\"speed\"", "Symbol=\"nothere\"")), 0);
    EXPECT_EQ(project.settings().TriggerSymbol, nullptr);
    EXPECT_TRUE(project.settings().TriggerOn);
    const std::string p = path("t.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_EQ(readAll(p).find("<Trigger"), std::string::npos);
}

TEST_F(ProjectFileTest, TriggerNameOutlivesALoadWithoutTrigger)
{
    ASSERT_EQ(loadText(kBaseDocument), 0);
    const auto begin = kBaseDocument.find("<Trigger>");
    const auto end = kBaseDocument.find("</Trigger>") + std::string("</Trigger>").size();
    std::string doc = kBaseDocument;
    doc.erase(begin, end - begin);
    ASSERT_EQ(loadText(doc), 0);
    ASSERT_NE(project.settings().TriggerSymbol, nullptr);
    EXPECT_EQ(project.settings().TriggerSymbol->Name, "speed");
    EXPECT_FALSE(project.settings().TriggerOn);
}

TEST_F(ProjectFileTest, LastSymbolOfTheTriggerNameWins)
{
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Name=\"count\"", "Name=\"speed\"")), 0);
    EXPECT_EQ(project.settings().TriggerSymbol, symbols.selected()[1]);
}

TEST_F(ProjectFileTest, InterfaceNamesAreCaseSensitive)
{
    EXPECT_EQ(loadText(replaced(kBaseDocument, "TargetInterface=\"SWD\"", "TargetInterface=\"swd\"")), -1);
    EXPECT_EQ(loadText(replaced(kBaseDocument, "TargetInterface=\"SWD\"", "TargetInterface=\"SWD \"")), -1);
    ASSERT_EQ(loadText(replaced(kBaseDocument, "TargetInterface=\"SWD\"", "TargetInterface=\"JTAG\"")), 0);
    EXPECT_EQ(project.settings().TargetInterface, kInterfaceJtag);
    ASSERT_EQ(loadText(replaced(kBaseDocument, "TargetInterface=\"SWD\"", "TargetInterface=\"FINE\"")), 0);
    EXPECT_EQ(project.settings().TargetInterface, kInterfaceFine);
}

TEST_F(ProjectFileTest, ExistingSessionIsWrittenAsFourAndReloadsAsUsb)
{
    ProjectSettings s;
    s.Connection = kConnectionTcpIp;
    s.IP = "1.2.3.4";
    s.SerialNo = 77;
    s.ExistingSession = true;
    project.apply(s);
    const std::string p = path("es.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_NE(readAll(p).find("Connection=\"4\""), std::string::npos);
    ASSERT_EQ(LoadProject(p, project, symbols), 0);
    EXPECT_EQ(project.settings().Connection, kConnectionUsb);
    EXPECT_EQ(project.settings().SerialNo, 77u);
    EXPECT_TRUE(project.settings().IP.empty());
    EXPECT_FALSE(project.settings().ExistingSession);
}

TEST_F(ProjectFileTest, TcpIpNeedsTheAddressAndSkipsTheSerialNumber)
{
    const std::string doc = replaced(kBaseDocument, "Connection=\"1\"", "Connection=\"2\"");
    ASSERT_EQ(loadText(replaced(doc, "IP=\"\"", "IP=\"192.168.1.9\"")), 0);
    EXPECT_EQ(project.settings().Connection, kConnectionTcpIp);
    EXPECT_EQ(project.settings().IP, "192.168.1.9");
    EXPECT_EQ(project.settings().SerialNo, 0u);
    EXPECT_EQ(loadText(replaced(doc, "IP=\"\" ", "")), -1);
}

TEST_F(ProjectFileTest, OptionalTarvoValuesHaveDefaults)
{
    std::string doc = replaced(kBaseDocument, "IsQTXSession=\"0\" IsQTXWithTimeStamp=\"1\" SamplingPeriod=\"500\" SerialNo=\"12345\" JTAG_IRPre=\"3\" JTAG_DRPre=\"-1\" ", "");
    ASSERT_EQ(loadText(doc), 0);
    const ProjectSettings s = project.settings();
    EXPECT_FALSE(s.IsQTXSession);
    EXPECT_TRUE(s.IsQTXWithTimeStamp);
    EXPECT_EQ(s.SamplingPeriod, 1000u);
    EXPECT_EQ(s.SerialNo, 0u);
    EXPECT_EQ(s.JTAG_IRPre, 0);
    EXPECT_EQ(s.JTAG_DRPre, 0);
}

TEST_F(ProjectFileTest, MalformedDocumentsFailWithoutCrashing)
{
    const std::string inputs[] = {
        "",
        "not xml at all",
        "<PlotvikProject><FileVersion major=\"1\"",
        kBaseDocument.substr(0, kBaseDocument.size() / 2),
        "<Other/>",
        "<PlotvikProject/>",
    };
    for (const auto& in : inputs)
        EXPECT_EQ(loadText(in), -1) << in;
    EXPECT_EQ(LoadProject(path("missing.plotvik"), project, symbols), -1);
}

TEST_F(ProjectFileTest, EveryRequiredPartIsRequired)
{
    const std::string removals[] = {
        "<Project>",  // renamed below into an unknown element
        "Connection=\"1\" ",
        "TargetDevice=\"STM32F407VG\" ",
        "TargetInterface=\"SWD\" ",
        "InterfaceSpeed=\"4000\"",
        "TimeResolutionUs=\"1000\"",
        "Level=\"12.5\" ",
        "Symbol=\"speed\" ",
        "On=\"1\" ",
        "Auto=\"0\" ",
        "Rise=\"1\" ",
        "Fall=\"0\"",
        "Name=\"speed\" ",
        "Address=\"0x20000010\" ",
        "Type=\"float\" ",
        "IsSigned=\"1\" ",
        "Size=\"4\" ",
        "GraphColorRed=\"10\" ",
        "GraphColorGreen=\"20\" ",
        "GraphColorBlue=\"30\" ",
        "ShowInGraph=\"1\" ",
        "YOffset=\"-3\" ",
        "IsAutoConfig=\"0\" ",
        "YResolution=\"5\" ",
        "MaxValue=\"100\" ",
        "File=\"/src/main.c\"",
        "<Windows>",
        "<Configuration>",
        "<Tarvo>",
        "<Scope>",
    };
    for (const auto& r : removals) {
        std::string doc = kBaseDocument;
        if (r.front() == '<') {
            // Rename the element (and its closing tag) so that it is missing.
            const std::string name = r.substr(1, r.size() - 2);
            doc = replaced(doc, "<" + name + ">", "<X" + name + ">");
            doc = replaced(doc, "</" + name + ">", "</X" + name + ">");
        } else {
            doc = replaced(doc, r, "");
        }
        EXPECT_EQ(loadText(doc), -1) << "without " << r;
    }
}

TEST_F(ProjectFileTest, PartialReadsStayApplied)
{
    // The second symbol fails: the first one and the failing one stay selected,
    // and the settings read before are applied.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Address=\"0x20000014\"", "Address=\"zz\"")), -1);
    EXPECT_EQ(symbols.selected().size(), 2u);
    EXPECT_EQ(symbols.selected()[1]->Name, "count");
    EXPECT_EQ(symbols.selected()[1]->symbol().YResolution, 2u);  // later readers still ran
    EXPECT_EQ(project.settings().TargetDevice, "STM32F407VG");
    EXPECT_EQ(project.settings().TriggerSymbol, symbols.selected()[0]);

    // A failure inside the trigger keeps what the configuration had so far.
    symbols.clearSelected();
    ASSERT_EQ(loadText(replaced(kBaseDocument, "On=\"1\" ", "")), -1);
    EXPECT_EQ(project.settings().TargetDevice, "STM32F407VG");
    EXPECT_EQ(project.settings().TimeResolutionUs, 1000u);
    EXPECT_DOUBLE_EQ(project.settings().TriggerLevel, 12.5);
    EXPECT_TRUE(symbols.selected().empty());
}

TEST_F(ProjectFileTest, FailingSymbolEndsTheList)
{
    std::string doc = replaced(kBaseDocument, "Name=\"speed\" ", "");
    ASSERT_EQ(loadText(doc), -1);
    EXPECT_EQ(symbols.selected().size(), 1u);  // the failing first symbol only
}

TEST_F(ProjectFileTest, AddressAndNumberParsing)
{
    using projectfile::parseAddress;
    using projectfile::parseNumber;
    EXPECT_EQ(parseAddress("0x20000010"), 0x20000010u);
    EXPECT_EQ(parseAddress("0X1f"), 0x1Fu);
    EXPECT_EQ(parseAddress("1000"), 0x1000u);
    EXPECT_EQ(parseAddress("-0x10"), 0xFFFFFFF0u);
    EXPECT_EQ(parseAddress("12g4"), 0x12u);
    EXPECT_EQ(parseAddress("0x"), std::nullopt);
    EXPECT_EQ(parseAddress(""), std::nullopt);
    EXPECT_EQ(parseAddress("zz"), std::nullopt);
    EXPECT_EQ(parseNumber("10"), 10);
    EXPECT_EQ(parseNumber("0x10"), 16);
    EXPECT_EQ(parseNumber("0xz"), std::nullopt);
    EXPECT_EQ(parseNumber("x"), std::nullopt);
    EXPECT_EQ(projectfile::truncatedToInteger(-2.7), -2);
    EXPECT_EQ(projectfile::truncatedToInteger(18446744073709551616.0), INT64_MAX);
    EXPECT_EQ(projectfile::formatAddress(0xABCDEF), "0x00ABCDEF");
}

TEST_F(ProjectFileTest, FailedSaveLeavesTheOldFileUntouched)
{
    const std::string p = path("keep.plotvik");
    const std::string old = "previous contents";
    writeAll(p, old);
    for (int i = 0; i < 50; ++i)
        addSymbol("s" + std::to_string(i), 4, kTypeU32);

    // Limit the size of files this process may write, so the new document
    // cannot be written completely (works even with root rights).
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto* oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 512;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int result = SaveProject(p, project, symbols);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);

    EXPECT_EQ(result, -1);
    EXPECT_EQ(readAll(p), old);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 1);  // no temporary file left behind

    EXPECT_EQ(SaveProject(path("no/such/dir/x.plotvik"), project, symbols), -1);
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_NE(readAll(p), old);
}

}  // namespace

// Colour components outside 0..255 are kept as written (the views clamp when
// drawing), so a save writes back what was read instead of a wrapped colour.
TEST_F(ProjectFileTest, ColourComponentsAreTakenAsTheyAre)
{
    std::string doc = kBaseDocument;
    const std::string from = R"(GraphColorRed="10" GraphColorGreen="20" GraphColorBlue="30")";
    const std::size_t at = doc.find(from);
    ASSERT_NE(at, std::string::npos);
    doc.replace(at, from.size(), R"(GraphColorRed="300" GraphColorGreen="-5" GraphColorBlue="256")");
    ASSERT_EQ(loadText(doc), 0);
    ASSERT_FALSE(symbols.selected().empty());
    EXPECT_EQ(symbols.selected()[0]->symbol().GraphColor, (Rgb{300, -5, 256, 255}));
    const std::string p = path("colours.plotvik");
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_NE(readAll(p).find(R"(GraphColorRed="300" GraphColorGreen="-5" GraphColorBlue="256")"), std::string::npos);
}
