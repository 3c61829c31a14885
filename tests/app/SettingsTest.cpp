// The settings file: syntax, key order, limits and errors; the recent list
// and the start action in the native settings store (redirected to a
// temporary folder so the user's own settings are never touched).
#include "TestBridge.h"
#include "app/Settings.h"
#include "base/AtomicFile.h"
#include "base/Report.h"
#include "base/Text.h"

#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

std::string readFile(const std::string& path)
{
    return (std::stringstream() << std::ifstream(path, std::ios::binary).rdbuf()).str();
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
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        ASSERT_EQ(settings.loadPath(path), 0);
    }
    std::string lastMessage() { return bridge.boxes.empty() ? std::string() : bridge.boxes.back().text; }

    QTemporaryDir dir;
    std::string path;
    TestBridge bridge;
    Settings settings;
};

TEST_F(SettingsTest, AccessorsFailBeforeLoadAndAMissingFileIsCreatedOnFirstSet)
{
    std::string v = "old";
    int n = 7;
    EXPECT_EQ(std::tuple(settings.getString("PATH", "DataFiles", v), settings.getNumber("LOG", "LogLevel", n),
                         settings.setString("PATH", "DataFiles", "/x/"), settings.logLevel()),
              std::tuple(-1, -1, -1, 3));
    EXPECT_EQ(std::tie(v, n), std::tuple("", 7));

    ASSERT_EQ(settings.loadPath(path), 0);
    EXPECT_EQ(settings.content(), "");
    ASSERT_EQ(settings.setElfFilesDir("/fw/app.elf"), 0);  // the folder setters keep the folder
    EXPECT_EQ(readFile(path), "[PATH]\r\nELFFiles=\"/fw/\"\r\n");
    EXPECT_TRUE(bridge.shown().empty());
}

TEST_F(SettingsTest, FileSizeIsLimited)
{
    std::string text = "[LOG]\r\nLogLevel=\"7\"\r\n";
    text += std::string(Settings::kMaxText - text.size(), '#');
    loadText(text);
    EXPECT_EQ(std::tuple(settings.content().size(), settings.logLevel(), bridge.boxes.size()),
              std::tuple(30000u, 7, 0u));

    Settings over;
    std::ofstream(path, std::ios::app) << '#';
    EXPECT_EQ(over.loadPath(path), -1);
    EXPECT_EQ(bridge.texts(), std::vector<std::string>{"Could not open file [" + path + "]\nFile too large - "
                                                       "maximum file size (30000 bytes) exceeded!"});
    // A failed load leaves the store unusable for the rest of the run.
    EXPECT_EQ(std::tuple(over.loaded(), over.setString("LOG", "LogLevel", "5"), over.logLevel()),
              std::tuple(false, -1, 3));

    // A directory where the file should be: it exists but cannot be read as one.
    std::filesystem::create_directory(path + ".d");
    EXPECT_EQ(over.loadPath(path + ".d"), -1);
    EXPECT_EQ(lastMessage().rfind("Could not open file [" + path + ".d]", 0), 0u) << lastMessage();
}

TEST_F(SettingsTest, ReadsKeysOfTheirSectionOnlyAndReportsSyntaxErrors)
{
    const std::string syntaxError = "Error while parsing subkey \"%s\" in settings file. Syntax error.";
    // Text, section, key, value (nullptr: not found), whether it is a syntax error.
    const std::tuple<const char*, const char*, const char*, const char*, bool> cases[] = {
        // Case, blanks and line ends do not matter.
        {"[path]\n  elffiles  =  \"/a/b/\"\r\n", "PATH", "ELFFiles", "/a/b/", false},
        {"; c\n[path]\n  elffiles  =  \"/a/b/\"\r\n\tprojectFILES=\"/p/\"\n", "PATH", "ProjectFiles", "/p/", false},
        {"[log]\r\n\r\nloglevel = \"5\"\r\n", "LOG", "LogLevel", "5", false},
        {"[PATH]\r\nELFFilesOld=\"/old/\"\r\nELF=\"/short/\"\r\n", "PATH", "ELFFiles", nullptr, false},
        {"[PATH]\r\n[LOG]\r\nDataFiles=\"/wrong/\"\r\n", "PATH", "DataFiles", nullptr, false},
        {"[PATH]\r\n[LOG]\r\nDataFiles=\"/wrong/\"\r\n", "LOG", "DataFiles", "/wrong/", false},
        {"[LOGGING]\r\nLogLevel=\"8\"\r\n", "LOG", "LogLevel", nullptr, false},
        {"[PATH]\r\nDataFiles \"/d/\"\r\n", "PATH", "DataFiles", nullptr, true},
        {"[PATH]\r\nELFFiles=/e/\r\n", "PATH", "ELFFiles", nullptr, true},
        {"[PATH]\r\nELFFiles=\"/e/\r\n", "PATH", "ELFFiles", nullptr, true},
        {"[PATH]\r\nELFFiles=\"/e/", "PATH", "ELFFiles", nullptr, true},
        {"[PATH]\r\nDataFiles=\"/a\"b/\"\r\n", "PATH", "DataFiles", nullptr, true},
    };
    for (const auto& [text, section, key, value, error] : cases) {
        bridge.boxes.clear();
        loadText(text);
        std::string v = "x";
        const std::string message = error ? text::format(200, syntaxError.c_str(), key) : "";
        EXPECT_EQ((std::tuple{settings.getString(section, key, v), v, lastMessage()}),
                  std::tuple(value ? 0 : -1, value ? value : "", message))
            << text;
    }
}

TEST_F(SettingsTest, SetKeyMovesToTopOfItsSectionOrAppendsTheSection)
{
    // Before, section, key, after.
    const std::tuple<const char*, const char*, const char*, std::string> cases[] = {
        {"[P]\r\nD=\"/d/\"\r\nQ=\"/p/\"\r\nE=\"/e/\"\r\n[L]\r\nE=\"4\"\r\n", "P", "E",
         "[P]\r\nE=\"2\"\r\nD=\"/d/\"\r\nQ=\"/p/\"\r\n[L]\r\nE=\"4\"\r\n"},
        {"[PATH]\r\nDataFiles=\"/d/\"\r\nProjectFiles=\"/p/\"\r\n", "path", "projectfiles",
         "[PATH]\r\nprojectfiles=\"2\"\r\nDataFiles=\"/d/\"\r\n"},
        {"[P]\r\nD=\"/d/\"\r\n", "PROJECT", "Current", "[P]\r\nD=\"/d/\"\r\n[PROJECT]\r\nCurrent=\"2\"\r\n"},
        // An unterminated last line keeps the lines apart.
        {"[P]\r\nD=\"/d/\"", "LOG", "LogLevel", "[P]\r\nD=\"/d/\"\r\n[LOG]\r\nLogLevel=\"2\"\r\n"},
        {"[LOG]", "LOG", "LogLevel", "[LOG]\r\nLogLevel=\"2\"\r\n"},
    };
    for (const auto& [before, section, key, after] : cases) {
        loadText(before);
        ASSERT_EQ(settings.setString(section, key, "2"), 0);
        EXPECT_EQ(std::tuple(settings.content(), readFile(path)), std::tuple(after, after));
    }
}

TEST_F(SettingsTest, LogLevelIsClampedOrDefaulted)
{
    // Value, level, message.
    const std::tuple<const char*, int, const char*> cases[] = {
        {"0", 1, ""}, {"12", 9, ""}, {"9", 9, ""}, {"1", 1, ""}, {"+4", 4, ""}, {"x", 3, "Expecting a number"},
        {"-2", 3, "Expected a value >= 0"}, {"99999999999", 9, ""},
    };
    for (const auto& [value, level, message] : cases) {
        bridge.boxes.clear();
        loadText(std::string("[LOG]\r\nLogLevel=\"") + value + "\"\r\n");
        EXPECT_EQ((std::tuple{settings.logLevel(), lastMessage()}), std::tuple(level, message)) << value;
    }
    // Large numbers stop at the largest int; one that cannot be read keeps the value it had.
    int n = 17;
    EXPECT_EQ((std::tuple{settings.getNumber("LOG", "Missing", n), n}), std::tuple(-1, 17));
    EXPECT_EQ((std::tuple{settings.getNumber("LOG", "LogLevel", n), n}), std::tuple(0, 2147483647));
}

TEST_F(SettingsTest, LongValuesAreCutAndChangesThatWouldOutgrowTheLimitAreRefused)
{
    ASSERT_EQ(settings.loadPath(path), 0);
    ASSERT_EQ(settings.setString("PATH", "DataFiles", std::string(5000, 'a')), 0);
    EXPECT_EQ(settings.content().find("\r\n", 8) + 2 - 8, Settings::kMaxLine);  // after "[PATH]\r\n"
    std::string v;
    EXPECT_EQ((std::tuple{settings.getString("PATH", "DataFiles", v), v}),
              std::tuple(0, std::string(Settings::kMaxLine - 14, 'a')));

    std::string text = "[PATH]\r\n";
    text += std::string(Settings::kMaxText - text.size() - 20, ';') + "\r\n";
    loadText(text);
    EXPECT_EQ(settings.setString("PATH", "DataFiles", "/a/long/enough/folder/"), -1);
    EXPECT_EQ(std::tuple(settings.content(), readFile(path)), std::tuple(text, text));
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
    EXPECT_EQ(lastMessage().rfind("Could not save file [" + path + "]!", 0), 0u) << lastMessage();
    EXPECT_EQ(settings.logLevel(), 8);  // the text in memory keeps the change
    // Once the obstacle is gone the next write succeeds and leaves no temporary file.
    std::filesystem::remove(AtomicFile::temporaryPath(path));
    EXPECT_EQ(settings.setString("LOG", "LogLevel", "6"), 0);
    EXPECT_EQ(readFile(path), "[LOG]\r\nLogLevel=\"6\"\r\n");
    EXPECT_FALSE(std::filesystem::exists(AtomicFile::temporaryPath(path)));
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

// --- native settings store ---------------------------------------------------

TEST(NativeSettingsTest, RecentListAddMovesToFrontAndKeepsMaximum)
{
    QTemporaryDir dir;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
    const std::string key = "Software\\Norvex\\Plotvik\\";
    RecentLists lists;
    EXPECT_EQ(lists.load(1, key, 3), -2);  // nothing stored yet
    const auto entries = [](const RecentLists& l) {
        std::vector<std::string> out;
        for (int i = 0; i <= l.count(1); ++i)
            out.push_back(l.entry(1, i));
        return out;
    };
    // The same path in another case moves to the front; when full, the oldest falls off.
    for (const char* p : {"/a.plotvik", "/b.plotvik", "/c.plotvik", "/A.PLOTVIK", "/d.plotvik"})
        EXPECT_EQ(lists.add(1, p), 0);
    EXPECT_EQ(entries(lists), (std::vector<std::string>{"/d.plotvik", "/A.PLOTVIK", "/c.plotvik", ""}));
    EXPECT_EQ(lists.count(0), 0);

    EXPECT_EQ(readStartAction(), -1);
    EXPECT_EQ(writeStartAction(2), 0);
    // Stored under the documented group and value names.
    QSettings stored(QSettings::NativeFormat, QSettings::UserScope, "Norvex", "Plotvik");
    EXPECT_EQ(stored.value("Recent File List 1/File1").toString(), "/d.plotvik");
    EXPECT_EQ(stored.value("Recent File List 1/File3").toString(), "/c.plotvik");
    EXPECT_EQ(stored.value("DontShowAgainStartPlotvik").toInt(), 2);

    RecentLists reloaded;
    EXPECT_EQ(reloaded.load(1, key, 3), 0);
    EXPECT_EQ(entries(reloaded), entries(lists));
    EXPECT_EQ(reloaded.load(1, key, 100), -2);  // stops at the first missing value
    EXPECT_EQ(reloaded.count(1), 3);
    // No list holds more than 16 entries.
    for (int i = 0; i < 17; ++i)
        reloaded.add(1, "/" + std::to_string(i));
    EXPECT_EQ(reloaded.count(1), 16);
}

}  // namespace
