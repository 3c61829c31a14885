// The settings file: syntax, key order, limits and errors; the recent list
// and the start action in the native settings store (redirected to a
// temporary folder so the user's own settings are never touched).
#include "app/Settings.h"
#include "base/AtomicFile.h"
#include "base/Report.h"

#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

namespace {

// Records every message box; answers with the dismissed value.
class RecordingBridge : public Bridge {
public:
    void refreshRecentLists() override { ++refreshes; }
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::lock_guard l(m);
        boxes.push_back(r);
        return {r.dismissedValue, r.checkState};
    }
    std::string openFileDialog(const FileDialogRequest&) override { return {}; }
    std::string saveFileDialog(const FileDialogRequest&) override { return {}; }
    int progress(int, const std::string&, int, int) override { return 0; }

    std::vector<MessageBoxRequest> shown()
    {
        std::lock_guard l(m);
        return boxes;
    }

    std::mutex m;
    std::vector<MessageBoxRequest> boxes;
    int refreshes = 0;
};

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        ASSERT_TRUE(dir.isValid());
        path = dir.filePath("PlotvikSettings.ini").toStdString();
        report::setBridge(&bridge);
    }
    void TearDown() override { report::setBridge(nullptr); }

    void loadText(const std::string& text)
    {
        writeFile(path, text);
        ASSERT_EQ(settings.loadPath(path), 0);
    }
    std::string lastMessage()
    {
        const auto boxes = bridge.shown();
        return boxes.empty() ? std::string() : boxes.back().text;
    }

    QTemporaryDir dir;
    std::string path;
    RecordingBridge bridge;
    Settings settings;
};

TEST_F(SettingsTest, AccessorsFailBeforeLoad)
{
    std::string v = "old";
    int n = 7;
    EXPECT_EQ(settings.getString("PATH", "DataFiles", v), -1);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(settings.getNumber("LOG", "LogLevel", n), -1);
    EXPECT_EQ(n, 7);
    EXPECT_EQ(settings.setString("PATH", "DataFiles", "/x/"), -1);
    EXPECT_EQ(settings.logLevel(), 3);
    EXPECT_TRUE(bridge.shown().empty());
}

TEST_F(SettingsTest, MissingFileStartsEmptyAndIsCreatedOnFirstSet)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    EXPECT_TRUE(settings.loaded());
    EXPECT_EQ(settings.content(), "");
    ASSERT_EQ(settings.setString("PATH", "ELFFiles", "/fw/"), 0);
    EXPECT_EQ(readFile(path), "[PATH]\r\nELFFiles=\"/fw/\"\r\n");
}

TEST_F(SettingsTest, FileAtTheSizeLimitLoads)
{
    std::string text = "[LOG]\r\nLogLevel=\"7\"\r\n";
    text += std::string(Settings::kMaxText - text.size(), '#');
    ASSERT_EQ(text.size(), 30000u);
    loadText(text);
    EXPECT_EQ(settings.content().size(), 30000u);
    EXPECT_EQ(settings.logLevel(), 7);
    EXPECT_TRUE(bridge.shown().empty());
}

TEST_F(SettingsTest, FileOneByteOverTheLimitIsRefused)
{
    writeFile(path, std::string(30001, '#'));
    EXPECT_EQ(settings.loadPath(path), -1);
    EXPECT_FALSE(settings.loaded());
    ASSERT_EQ(bridge.shown().size(), 1u);
    EXPECT_EQ(lastMessage(), "Could not open file [" + path +
                                 "]\nFile too large - maximum file size (30000 bytes) exceeded!");
    EXPECT_EQ(bridge.shown().back().caption, report::errorCaption());
    EXPECT_EQ(bridge.shown().back().button0, "O.K.");
    EXPECT_EQ(bridge.shown().back().icon, kIconWarning);
    // A failed load leaves the store unusable for the rest of the run.
    EXPECT_EQ(settings.setString("LOG", "LogLevel", "5"), -1);
    EXPECT_EQ(settings.logLevel(), 3);
}

TEST_F(SettingsTest, UnreadableFileGivesTheOpenErrorText)
{
    // A directory where the file should be: it exists but cannot be read as one.
    std::filesystem::create_directory(path);
    EXPECT_EQ(settings.loadPath(path), -1);
    ASSERT_EQ(bridge.shown().size(), 1u);
    EXPECT_EQ(lastMessage().rfind("Could not open file [" + path + "]", 0), 0u) << lastMessage();
}

TEST_F(SettingsTest, ReadsKeysIgnoringCaseBlanksAndLineEnds)
{
    loadText("; comment\n[path]\n  elffiles  =  \"/a/b/\"\r\n\tprojectFILES=\"/p/\"\n[log]\r\n\r\nloglevel = \"5\"\r\n");
    EXPECT_EQ(settings.elfFilesDir(), "/a/b/");
    EXPECT_EQ(settings.projectFilesDir(), "/p/");
    EXPECT_EQ(settings.logLevel(), 5);
    EXPECT_TRUE(bridge.shown().empty());
}

TEST_F(SettingsTest, KeyMustMatchWholeName)
{
    loadText("[PATH]\r\nELFFilesOld=\"/old/\"\r\nELF=\"/short/\"\r\n");
    std::string v = "x";
    EXPECT_EQ(settings.getString("PATH", "ELFFiles", v), -1);
    EXPECT_EQ(v, "");
    EXPECT_TRUE(bridge.shown().empty());  // missing is not an error
}

TEST_F(SettingsTest, SectionEndsAtNextHeader)
{
    loadText("[PATH]\r\n[LOG]\r\nDataFiles=\"/wrong/\"\r\n");
    std::string v;
    EXPECT_EQ(settings.getString("PATH", "DataFiles", v), -1);
    EXPECT_EQ(settings.getString("LOG", "DataFiles", v), 0);
    EXPECT_EQ(v, "/wrong/");
}

TEST_F(SettingsTest, SectionNameMustBeFollowedByBracket)
{
    loadText("[LOGGING]\r\nLogLevel=\"8\"\r\n");
    EXPECT_EQ(settings.logLevel(), 3);
}

TEST_F(SettingsTest, SetKeyMovesToTopOfItsSection)
{
    loadText("[PATH]\r\nDataFiles=\"/d/\"\r\nProjectFiles=\"/p/\"\r\nELFFiles=\"/e/\"\r\n[LOG]\r\nLogLevel=\"4\"\r\n");
    ASSERT_EQ(settings.setString("PATH", "ELFFiles", "/e2/"), 0);
    const std::string expected =
        "[PATH]\r\nELFFiles=\"/e2/\"\r\nDataFiles=\"/d/\"\r\nProjectFiles=\"/p/\"\r\n[LOG]\r\nLogLevel=\"4\"\r\n";
    EXPECT_EQ(settings.content(), expected);
    EXPECT_EQ(readFile(path), expected);
    ASSERT_EQ(settings.setString("path", "projectfiles", "/p2/"), 0);
    EXPECT_EQ(settings.content(),
              "[PATH]\r\nprojectfiles=\"/p2/\"\r\nELFFiles=\"/e2/\"\r\nDataFiles=\"/d/\"\r\n[LOG]\r\nLogLevel=\"4\"\r\n");
}

TEST_F(SettingsTest, KeyOfMissingSectionAppendsTheSection)
{
    loadText("[PATH]\r\nDataFiles=\"/d/\"\r\n");
    ASSERT_EQ(settings.setString("PROJECT", "Current", "/x/a.plotvik"), 0);
    EXPECT_EQ(readFile(path), "[PATH]\r\nDataFiles=\"/d/\"\r\n[PROJECT]\r\nCurrent=\"/x/a.plotvik\"\r\n");
    EXPECT_EQ(settings.currentProject(), "/x/a.plotvik");
}

TEST_F(SettingsTest, AppendingAfterUnterminatedLastLineKeepsLinesApart)
{
    loadText("[PATH]\r\nDataFiles=\"/d/\"");
    ASSERT_EQ(settings.setString("LOG", "LogLevel", "2"), 0);
    EXPECT_EQ(settings.content(), "[PATH]\r\nDataFiles=\"/d/\"\r\n[LOG]\r\nLogLevel=\"2\"\r\n");
    loadText("[LOG]");
    ASSERT_EQ(settings.setString("LOG", "LogLevel", "2"), 0);
    EXPECT_EQ(settings.content(), "[LOG]\r\nLogLevel=\"2\"\r\n");
    EXPECT_EQ(settings.logLevel(), 2);
}

TEST_F(SettingsTest, LogLevelIsClampedOrDefaulted)
{
    const struct {
        const char* value;
        int level;
        const char* message;
    } cases[] = {
        {"0", 1, nullptr},      {"12", 9, nullptr},    {"9", 9, nullptr},
        {"1", 1, nullptr},      {"+4", 4, nullptr},    {"x", 3, "Expecting a number"},
        {"-2", 3, "Expected a value >= 0"},            {"99999999999", 9, nullptr},
    };
    for (const auto& c : cases) {
        bridge.boxes.clear();
        loadText(std::string("[LOG]\r\nLogLevel=\"") + c.value + "\"\r\n");
        EXPECT_EQ(settings.logLevel(), c.level) << c.value;
        if (c.message) {
            ASSERT_EQ(bridge.shown().size(), 1u) << c.value;
            EXPECT_EQ(lastMessage(), c.message);
        } else {
            EXPECT_TRUE(bridge.shown().empty()) << c.value << ": " << lastMessage();
        }
    }
}

TEST_F(SettingsTest, GetNumberKeepsOldValueOnFailure)
{
    loadText("[LOG]\r\nLogLevel=\"abc\"\r\nOther=\"42\"\r\n");
    int n = 17;
    EXPECT_EQ(settings.getNumber("LOG", "LogLevel", n), -1);
    EXPECT_EQ(n, 17);
    EXPECT_EQ(settings.getNumber("LOG", "Missing", n), -1);
    EXPECT_EQ(n, 17);
    EXPECT_EQ(settings.getNumber("LOG", "Other", n), 0);
    EXPECT_EQ(n, 42);
}

TEST_F(SettingsTest, MissingEqualsSignIsASyntaxError)
{
    loadText("[PATH]\r\nDataFiles \"/d/\"\r\n");
    std::string v = "x";
    EXPECT_EQ(settings.getString("PATH", "DataFiles", v), -1);
    EXPECT_EQ(v, "");
    EXPECT_EQ(lastMessage(), "Error while parsing subkey \"DataFiles\" in settings file. Syntax error.");
}

TEST_F(SettingsTest, UnquotedOrUnterminatedValueIsASyntaxError)
{
    for (const char* line : {"ELFFiles=/e/\r\n", "ELFFiles=\"/e/\r\n", "ELFFiles=\"/e/"}) {
        bridge.boxes.clear();
        loadText(std::string("[PATH]\r\n") + line);
        std::string v;
        EXPECT_EQ(settings.getString("PATH", "ELFFiles", v), -1) << line;
        EXPECT_EQ(lastMessage(), "Error while parsing subkey \"ELFFiles\" in settings file. Syntax error.") << line;
    }
}

TEST_F(SettingsTest, ValueWithDoubleQuoteReadsBackAsSyntaxError)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    ASSERT_EQ(settings.setString("PATH", "DataFiles", "/a\"b/"), 0);
    std::string v;
    EXPECT_EQ(settings.getString("PATH", "DataFiles", v), -1);
    EXPECT_EQ(v, "");
    EXPECT_EQ(lastMessage(), "Error while parsing subkey \"DataFiles\" in settings file. Syntax error.");
}

TEST_F(SettingsTest, ChangeThatWouldOutgrowTheLimitIsRefused)
{
    std::string text = "[PATH]\r\n";
    text += std::string(Settings::kMaxText - text.size() - 20, ';') + "\r\n";
    loadText(text);
    const std::string before = settings.content();
    EXPECT_EQ(settings.setString("PATH", "DataFiles", "/a/long/enough/folder/"), -1);
    EXPECT_EQ(settings.content(), before);
    EXPECT_EQ(readFile(path), before);
    EXPECT_EQ(lastMessage(), "Could not save file [" + path +
                                 "]\nFile too large - maximum file size (30000 bytes) exceeded!");
    // A change that still fits goes through.
    EXPECT_EQ(settings.setString("PATH", "D", "/x"), 0);
    EXPECT_LE(settings.content().size(), Settings::kMaxText);
}

TEST_F(SettingsTest, FailedWriteLeavesTheFileAsItWas)
{
    const std::string original = "[LOG]\r\nLogLevel=\"4\"\r\n";
    loadText(original);
    // Block the temporary file the write goes through.
    std::filesystem::create_directory(AtomicFile::temporaryPath(path));
    EXPECT_EQ(settings.setString("LOG", "LogLevel", "8"), -1);
    EXPECT_EQ(readFile(path), original);
    ASSERT_FALSE(bridge.shown().empty());
    EXPECT_EQ(lastMessage().rfind("Could not save file [" + path + "]!", 0), 0u) << lastMessage();
    // The text in memory keeps the change.
    EXPECT_EQ(settings.logLevel(), 8);
    // Once the obstacle is gone the next write succeeds and leaves no temporary file.
    std::filesystem::remove(AtomicFile::temporaryPath(path));
    EXPECT_EQ(settings.setString("LOG", "LogLevel", "6"), 0);
    EXPECT_EQ(readFile(path), "[LOG]\r\nLogLevel=\"6\"\r\n");
    EXPECT_FALSE(std::filesystem::exists(AtomicFile::temporaryPath(path)));
}

TEST_F(SettingsTest, LongValueIsCutToTheLineLimit)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    ASSERT_EQ(settings.setString("PATH", "DataFiles", std::string(5000, 'a')), 0);
    const std::string text = settings.content();
    const std::size_t lineStart = text.find("DataFiles");
    const std::size_t lineEnd = text.find("\r\n", lineStart) + 2;
    EXPECT_EQ(lineEnd - lineStart, Settings::kMaxLine);
    std::string v;
    EXPECT_EQ(settings.getString("PATH", "DataFiles", v), 0);
    EXPECT_EQ(v, std::string(Settings::kMaxLine - 14, 'a'));
}

TEST_F(SettingsTest, PathSettersKeepTheDirectory)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    ASSERT_EQ(settings.setElfFilesDir("/home/u/fw/build/app.elf"), 0);
    ASSERT_EQ(settings.setProjectFilesDir("/home/u/p/demo.plotvik"), 0);
    ASSERT_EQ(settings.setDataFilesDir("/tmp/out.csv"), 0);
    EXPECT_EQ(settings.elfFilesDir(), "/home/u/fw/build/");
    EXPECT_EQ(settings.projectFilesDir(), "/home/u/p/");
    EXPECT_EQ(settings.dataFilesDir(), "/tmp/");
}

TEST_F(SettingsTest, ValuesSurviveAReload)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    ASSERT_EQ(settings.setString("LOG", "LogFile", "/tmp/plotvik.log"), 0);
    ASSERT_EQ(settings.setString("LOG", "LogLevel", "9"), 0);
    Settings other;
    ASSERT_EQ(other.loadPath(path), 0);
    EXPECT_EQ(other.logFile(), "/tmp/plotvik.log");
    EXPECT_EQ(other.logLevel(), 9);
}

TEST_F(SettingsTest, ConcurrentSettersKeepEveryKey)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < 20; ++i)
                settings.setString("T" + std::to_string(t), "K" + std::to_string(i), std::to_string(i));
        });
    for (auto& th : threads)
        th.join();
    Settings other;
    ASSERT_EQ(other.loadPath(path), 0);
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 20; ++i) {
            int n = -1;
            EXPECT_EQ(other.getNumber("T" + std::to_string(t), "K" + std::to_string(i), n), 0);
            EXPECT_EQ(n, i);
        }
    EXPECT_TRUE(bridge.shown().empty());
}

TEST_F(SettingsTest, LoadByNameUsesTheConfigFolder)
{
    // Test mode points the configuration folder away from the user's own.
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    ASSERT_TRUE(base.contains("qttest"));
    ASSERT_EQ(settings.load("PlotvikSettingsTest.ini"), 0);
    EXPECT_EQ(settings.path(), (base + "/Norvex/PlotvikSettingsTest.ini").toStdString());
    EXPECT_EQ(settings.load(""), -1);
}

// --- native settings store ---------------------------------------------------

class NativeSettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        ASSERT_TRUE(dir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
    }
    static std::string key() { return "Software\\Norvex\\Plotvik\\"; }
    QTemporaryDir dir;
};

TEST_F(NativeSettingsTest, RecentListAddMovesToFrontAndKeepsMaximum)
{
    RecentLists lists;
    EXPECT_EQ(lists.load(1, key(), 3), -2);  // nothing stored yet
    EXPECT_EQ(lists.count(1), 0);
    for (const char* p : {"/a.plotvik", "/b.plotvik", "/c.plotvik"})
        EXPECT_EQ(lists.add(1, p), 0);
    ASSERT_EQ(lists.count(1), 3);
    EXPECT_EQ(lists.entry(1, 0), "/c.plotvik");
    EXPECT_EQ(lists.add(1, "/A.PLOTVIK"), 0);  // same path, other case: moves, no growth
    ASSERT_EQ(lists.count(1), 3);
    EXPECT_EQ(lists.entry(1, 0), "/A.PLOTVIK");
    EXPECT_EQ(lists.entry(1, 1), "/c.plotvik");
    EXPECT_EQ(lists.entry(1, 2), "/b.plotvik");
    EXPECT_EQ(lists.add(1, "/d.plotvik"), 0);  // full: the oldest falls off
    ASSERT_EQ(lists.count(1), 3);
    EXPECT_EQ(lists.entry(1, 0), "/d.plotvik");
    EXPECT_EQ(lists.entry(1, 2), "/c.plotvik");
    EXPECT_EQ(lists.entry(1, 3), "");
    EXPECT_EQ(lists.count(0), 0);

    // Stored under the documented group and value names.
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, "Norvex", "Plotvik");
    EXPECT_EQ(s.value("Recent File List 1/File1").toString(), "/d.plotvik");
    EXPECT_EQ(s.value("Recent File List 1/File3").toString(), "/c.plotvik");

    RecentLists reloaded;
    EXPECT_EQ(reloaded.load(1, key(), 3), 0);
    ASSERT_EQ(reloaded.count(1), 3);
    EXPECT_EQ(reloaded.entry(1, 1), "/A.PLOTVIK");
    RecentLists longer;
    EXPECT_EQ(longer.load(1, key(), 10), -2);  // stops at the first missing value
    EXPECT_EQ(longer.count(1), 3);
}

TEST_F(NativeSettingsTest, StartActionRoundTrips)
{
    EXPECT_EQ(readStartAction(), -1);
    EXPECT_EQ(writeStartAction(2), 0);
    EXPECT_EQ(readStartAction(), 2);
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, "Norvex", "Plotvik");
    EXPECT_EQ(s.value("DontShowAgainStartPlotvik").toInt(), 2);
    EXPECT_EQ(writeStartAction(1), 0);
    EXPECT_EQ(readStartAction(), 1);
}

}  // namespace

// Only "1" turns the encoding rule on; a missing section or key keeps the
// type-text rule.
TEST_F(SettingsTest, FloatByEncodingIsOnOnlyForOne)
{
    const struct {
        const char* text;
        bool on;
    } cases[] = {
        {"[SYMBOLS]\r\nFloatByEncoding=\"1\"\r\n", true},
        {"[SYMBOLS]\r\nFloatByEncoding=\"0\"\r\n", false},
        {"[SYMBOLS]\r\nFloatByEncoding=\"2\"\r\n", false},
        {"[SYMBOLS]\r\n", false},
        {"[LOG]\r\nFloatByEncoding=\"1\"\r\n", false},
        {"", false},
    };
    for (const auto& c : cases) {
        loadText(c.text);
        EXPECT_EQ(settings.floatByEncoding(), c.on) << c.text;
    }
}
