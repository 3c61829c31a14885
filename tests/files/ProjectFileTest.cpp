#include "StoreFixture.h"

#include "base/Text.h"
#include "files/Project.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>

namespace {

// A complete document as an older program version wrote it: no TypeID, the
// signedness instead; an address without "0x" is hexadecimal too.
const std::string kBaseDocument = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<PlotvikProject>
    <FileVersion major="1" minor="1"/>
    <Project>
        <Configuration>
            <Tarvo>
                <Options Connection="1" IsQTXSession="0" IsQTXWithTimeStamp="1" SamplingPeriod="500" SerialNo="4000000000" JTAG_IRPre="3" JTAG_DRPre="-1" IP="" TargetDevice="STM32F407VG" TargetInterface="SWD" InterfaceSpeed="4000"/>
            </Tarvo>
            <ScriptFile Name="/s.txt"/>
            <ElfFile Name="/fw/app.elf"/>
            <DataFile Name="/d.csv"/>
            <RawFile Name="/r.praw"/>
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
                <Options Name="count" Address="200000AC" Type="unsigned int" TypeID="8" Size="4" GraphColorRed="1" GraphColorGreen="2" GraphColorBlue="3" ShowInGraph="0" YOffset="0" IsAutoConfig="1" YResolution="2" MaxValue="4294967295" File="/src/main.c" DrawStyle="1" NameWithParents="state.count" YMinSampled="-1.5" YMaxSampled="1e+10" Offset="4"/>
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

// The document without the element `name` and all it holds.
std::string without(std::string doc, const std::string& name)
{
    const auto begin = doc.find("<" + name + ">");
    const auto end = doc.find("</" + name + ">") + name.size() + 3;
    return doc.erase(begin, end - begin);
}

struct ProjectFileTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    ScopedBridge scoped;
    Project project;

    std::string path(const std::string& name) const { return dir.filePath(QString::fromStdString(name)).toStdString(); }

    int loadText(const std::string& doc)
    {
        const std::string p = path("in.plotvik");
        writeAll(p, doc);
        return LoadProject(p, project, symbols);
    }

    // The document a save of the current project writes.
    std::string saved()
    {
        const std::string p = path("out.plotvik");
        EXPECT_EQ(SaveProject(p, project, symbols), 0);
        return readAll(p);
    }
};

// The older document saved anew: the fixed layout, and loading that and saving
// again gives the same document.
TEST_F(ProjectFileTest, SavedDocumentHasTheFixedLayoutAndReloadsAsSaved)
{
    ASSERT_EQ(loadText(kBaseDocument), 0);
    EXPECT_TRUE(scoped.bridge.boxes.empty());
    EXPECT_GT(scoped.bridge.guiUpdates.load(), 0);
    // What a save changes: "float" is no placeholder name but a signed 4-byte
    // integer (12); absent statistics, names and the manual flag get defaults.
    std::string expected = kBaseDocument;
    const std::pair<const char*, const char*> changes[] = {
        {R"(Level="12.5")", R"(Level="12")"},
        {R"(Address="200000AC")", R"(Address="0x200000AC")"},
        {R"(IsSigned="1")", R"(TypeID="12")"},
        {R"(Blue="30")", R"(Blue="30" YMinSampled="0" YMaxSampled="0" YAvgSampled="0" Offset="0")"},
        {R"(main.c"/>)", R"(main.c" DrawStyle="0" NameWithParents="speed" ManualYResolution="0"/>)"},
        {R"(Blue="3")", R"(Blue="3" YMinSampled="-1.5" YMaxSampled="1e+10" YAvgSampled="0" Offset="4")"},
        {R"(count" YMinSampled="-1.5" YMaxSampled="1e+10" Offset="4")", R"(count" ManualYResolution="0")"},
    };
    for (const auto& [from, to] : changes)
        expected = replaced(expected, from, to);
    EXPECT_EQ(saved(), expected);
    ProjectSettings before = project.settings();
    ASSERT_EQ(LoadProject(path("out.plotvik"), project, symbols), 0);
    ProjectSettings after = project.settings();
    ASSERT_EQ(symbols.selected().size(), 2u);
    EXPECT_EQ(after.TriggerSymbol, symbols.selected()[0]);
    before.TriggerSymbol = after.TriggerSymbol = nullptr;
    before.TriggerLevel = 12;  // written as an integer
    EXPECT_EQ(after, before);
    EXPECT_EQ(saved(), expected);

    // Texts longer than their fields are cut.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "STM32F407VG", std::string(200, 'D'))), 0);
    EXPECT_EQ(project.settings().TargetDevice, std::string(kDeviceNameSize - 1, 'D'));
}

// A file name without a data file, the script file and an empty selection
// are left out of or empty in a save; a load without a selection keeps the
// current one, and the trigger is found in it.
TEST_F(ProjectFileTest, EmptyValuesAreLeftOutAndAnAbsentSelectionKeepsTheCurrentOne)
{
    ProjectSettings s;
    s.RawFile = "/r.praw";
    project.apply(s);
    std::string doc = saved();
    for (const char* absent : {"<DataFile", "<RawFile", "<ScriptFile"})
        EXPECT_EQ(doc.find(absent), std::string::npos) << absent;
    for (const char* present : {"<ElfFile Name=\"\"/>", "<SelectedSymbols/>"})
        EXPECT_NE(doc.find(present), std::string::npos) << present;
    s.DataFile = "/d.csv";
    project.apply(s);
    EXPECT_NE(saved().find("<RawFile Name=\"/r.praw\""), std::string::npos) << "beside a data file";

    Node* kept = select("speed", 4, kTypeFloat);
    ASSERT_EQ(loadText(without(kBaseDocument, "SelectedSymbols")), 0);
    EXPECT_EQ(symbols.selected(), std::vector<Node*>{kept});
    EXPECT_EQ(project.settings().TriggerSymbol, kept);
    ASSERT_EQ(LoadProject(path("out.plotvik"), project, symbols), 0);
    EXPECT_TRUE(symbols.selected().empty());
}

// The average reloads as 0 or 1; colour components outside 0..255 are kept as
// written (the views clamp when drawing), so a save writes back what was read.
TEST_F(ProjectFileTest, AverageAndColourComponentsReadAsStored)
{
    const std::string tag = "YResolution=\"5\"";
    for (const auto& [text, value] : {std::pair{"1", 1.0}, {"0.5", 0.0}, {"1.9", 1.0}, {"2", 0.0}, {"0", 0.0}}) {
        ASSERT_EQ(loadText(replaced(kBaseDocument, tag, tag + " YAvgSampled=\"" + text + "\"")), 0);
        EXPECT_EQ(symbols.selected()[0]->symbol().YAvgSampled, value) << text;
    }
    const std::string colour = R"(GraphColorRed="300" GraphColorGreen="-5" GraphColorBlue="256")";
    const std::string read = R"(GraphColorRed="10" GraphColorGreen="20" GraphColorBlue="30")";
    ASSERT_EQ(loadText(replaced(kBaseDocument, read, colour)), 0);
    EXPECT_EQ(symbols.selected()[0]->symbol().GraphColor, (Rgb{300, -5, 256, 255}));
    EXPECT_NE(saved().find(colour), std::string::npos);
}

TEST_F(ProjectFileTest, WarnsOnlyAboutNewerVersions)
{
    const std::pair<std::string, bool> cases[] = {
        {R"(major="1" minor="2")", true}, {R"(major="2" minor="0")", true}, {R"(major="0" minor="9")", false},
        {"", false}};
    for (const auto& [version, warns] : cases) {
        scoped.bridge.boxes.clear();
        ASSERT_EQ(loadText(replaced(kBaseDocument, "major=\"1\" minor=\"1\"", version)), 0) << version;
        const char* warning =
            "The project has a newer file version and might not be compatible with this version of Plotvik.";
        EXPECT_EQ(scoped.bridge.texts(), std::vector<std::string>(warns ? 1 : 0, warning)) << version;
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
    }
    // When present, the id is taken as it is and the signedness is not read.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "IsSigned=\"1\"", "TypeID=\"0x2\"")), 0);
    EXPECT_EQ(symbols.selected()[0]->TypeID, 2);
    EXPECT_FALSE(symbols.selected()[0]->IsSigned);
}

TEST_F(ProjectFileTest, TriggerSymbolIsFoundByNameAndKeptWithoutTrigger)
{
    // The last symbol of the name wins.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Name=\"count\"", "Name=\"speed\"")), 0);
    EXPECT_EQ(project.settings().TriggerSymbol, symbols.selected()[1]);

    // A load without a trigger keeps the name of the one before.
    ASSERT_EQ(loadText(without(kBaseDocument, "Trigger")), 0);
    ASSERT_NE(project.settings().TriggerSymbol, nullptr);
    EXPECT_EQ(project.settings().TriggerSymbol->Name, "speed");
    EXPECT_FALSE(project.settings().TriggerOn);

    // A trigger on an unselected symbol is dropped on the next save.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Symbol=\"speed\"", "Symbol=\"nothere\"")), 0);
    EXPECT_EQ(project.settings().TriggerSymbol, nullptr);
    EXPECT_TRUE(project.settings().TriggerOn);
    EXPECT_EQ(saved().find("<Trigger"), std::string::npos);
}

// Interface names are case-sensitive. An existing session is written as 4 and
// reloads as USB; only TCP/IP needs the address, and it skips the serial number.
TEST_F(ProjectFileTest, InterfaceAndConnectionKinds)
{
    for (const auto& [name, interface] :
         {std::pair{"swd", -1}, {"SWD ", -1}, {"JTAG", int(kInterfaceJtag)}, {"FINE", int(kInterfaceFine)}}) {
        const int result = loadText(replaced(kBaseDocument, "\"SWD\"", std::string("\"") + name + "\""));
        EXPECT_EQ(result, interface < 0 ? -1 : 0) << name;
        EXPECT_TRUE(interface < 0 || int(project.settings().TargetInterface) == interface) << name;
    }

    ProjectSettings s;
    s.Connection = kConnectionTcpIp;
    s.IP = "1.2.3.4";
    s.SerialNo = 77;
    s.ExistingSession = true;
    project.apply(s);
    EXPECT_NE(saved().find("Connection=\"4\""), std::string::npos);
    ASSERT_EQ(LoadProject(path("out.plotvik"), project, symbols), 0);
    s = project.settings();
    EXPECT_EQ(std::tie(s.Connection, s.SerialNo, s.IP, s.ExistingSession),
              std::tuple(kConnectionUsb, 77u, std::string(), false));

    const std::string doc = replaced(kBaseDocument, "Connection=\"1\"", "Connection=\"2\"");
    ASSERT_EQ(loadText(replaced(doc, "IP=\"\"", "IP=\"192.168.1.9\"")), 0);
    s = project.settings();
    EXPECT_EQ(std::tie(s.Connection, s.IP, s.SerialNo), std::tuple(kConnectionTcpIp, std::string("192.168.1.9"), 0u));
    EXPECT_EQ(loadText(replaced(doc, "IP=\"\" ", "")), -1);
}

TEST_F(ProjectFileTest, OptionalTarvoValuesHaveDefaults)
{
    const std::string optional = R"(IsQTXSession="0" IsQTXWithTimeStamp="1" SamplingPeriod="500" )"
                                 R"(SerialNo="4000000000" JTAG_IRPre="3" JTAG_DRPre="-1" )";
    ASSERT_EQ(loadText(replaced(kBaseDocument, optional, "")), 0);
    const ProjectSettings s = project.settings();
    EXPECT_EQ(std::tie(s.IsQTXSession, s.IsQTXWithTimeStamp, s.SamplingPeriod, s.SerialNo, s.JTAG_IRPre, s.JTAG_DRPre),
              std::tuple(false, true, 1000u, 0u, 0, 0));
}

TEST_F(ProjectFileTest, MalformedOrIncompleteDocumentsFail)
{
    const std::string malformed[] = {"", "not xml at all", "<Other/>", "<PlotvikProject><FileVersion major=\"1\"",
                                     "<PlotvikProject/>", kBaseDocument.substr(0, kBaseDocument.size() / 2)};
    for (const std::string& in : malformed)
        EXPECT_EQ(loadText(in), -1) << in;
    EXPECT_EQ(LoadProject(path("missing.plotvik"), project, symbols), -1);

    // Required elements, and a required attribute of each reader.
    for (const std::string element : {"Project", "Windows", "Configuration", "Tarvo", "Scope"})
        EXPECT_EQ(loadText(replaced(replaced(kBaseDocument, "<" + element + ">", "<X>"), "</" + element + ">", "</X>")),
                  -1)
            << "without " << element;
    const char* attributes[] = {
        R"(Connection="1" )", R"(TargetInterface="SWD" )", R"(TimeResolutionUs="1000")", R"(Level="12.5" )",
        R"(On="1" )", R"(Address="0x20000010" )", R"(IsSigned="1" )", R"(Size="4" )", R"(GraphColorRed="10" )",
        R"(ShowInGraph="1" )", R"(YResolution="5" )", R"(File="/src/main.c")"};
    for (const char* attribute : attributes)
        EXPECT_EQ(loadText(replaced(kBaseDocument, attribute, "")), -1) << "without " << attribute;
}

TEST_F(ProjectFileTest, PartialReadsStayApplied)
{
    // The second symbol fails: the first one and the failing one stay selected,
    // the readers after it still run, and the settings read before are applied.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Address=\"200000AC\"", "Address=\"zz\"")), -1);
    EXPECT_EQ(symbols.selected().size(), 2u);
    EXPECT_EQ(symbols.selected()[1]->symbol().YResolution, 2u);
    EXPECT_EQ(project.settings().TargetDevice, "STM32F407VG");
    EXPECT_EQ(project.settings().TriggerSymbol, symbols.selected()[0]);

    // A failing first symbol ends the list.
    ASSERT_EQ(loadText(replaced(kBaseDocument, "Name=\"speed\" ", "")), -1);
    EXPECT_EQ(symbols.selected().size(), 1u);

    // A failure inside the trigger keeps what the configuration had so far.
    symbols.clearSelected();
    ASSERT_EQ(loadText(replaced(kBaseDocument, "On=\"1\" ", "")), -1);
    EXPECT_EQ(project.settings().TimeResolutionUs, 1000u);
    EXPECT_DOUBLE_EQ(project.settings().TriggerLevel, 12.5);
    EXPECT_TRUE(symbols.selected().empty());
}

TEST_F(ProjectFileTest, FailedSaveLeavesTheOldFileUntouched)
{
    const std::string p = path("keep.plotvik");
    writeAll(p, "previous contents");
    for (int i = 0; i < 50; ++i)
        select("s" + std::to_string(i), 4, kTypeU32);

    // A file size limit for this process cuts the new document short (even
    // with root rights).
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
    EXPECT_EQ(readAll(p), "previous contents");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 1) << "no temporary file left behind";
    EXPECT_EQ(SaveProject(path("no/such/dir/x.plotvik"), project, symbols), -1);
    ASSERT_EQ(SaveProject(p, project, symbols), 0);
    EXPECT_NE(readAll(p), "previous contents");
}

}  // namespace
