#include "app/CommandLine.h"
#include "base/Log.h"

#include <gtest/gtest.h>

namespace {

struct Recorder {
    std::vector<std::string> commands;
    std::vector<std::string> opened;
    CommandLine make()
    {
        return CommandLine({[this](const std::string& c) { commands.push_back(c); },
                            [this](const std::string& p) {
                                opened.push_back(p);
                                return 0;
                            }});
    }
};

}  // namespace

TEST(CommandLine, OpenProjectOptionAndBareProjectPaths)
{
    Recorder r;
    CommandLine cl = r.make();
    const std::vector<std::string> argv = {"plotvik", "-openprjC:\\p\\a.plotvik"};
    EXPECT_EQ(cl.parse(argv, 2), 0);
    EXPECT_TRUE(cl.projectNamed());
    EXPECT_TRUE(r.opened.empty()) << "pass 2 only notes the project";
    EXPECT_EQ(cl.parse(argv, 1), 0);
    EXPECT_EQ(r.opened, std::vector<std::string>({"C:\\p\\a.plotvik"}));

    // With a blank after the option: an empty name, then a project of its own.
    Recorder r2;
    CommandLine cl2 = r2.make();
    EXPECT_EQ(cl2.parse({"plotvik", "-openprj", "C:\\p\\a.plotvik"}, 1), 0);
    EXPECT_EQ(r2.opened, std::vector<std::string>({"", "C:\\p\\a.plotvik"}));

    // Case of the option and of the extension do not matter.
    Recorder r3;
    CommandLine cl3 = r3.make();
    EXPECT_EQ(cl3.parse({"plotvik", "-OPENPRJx.plotvik", "y.PLOTVIK"}, 1), 0);
    EXPECT_EQ(r3.opened, std::vector<std::string>({"x.plotvik", "y.PLOTVIK"}));
}

TEST(CommandLine, SlashOptionsAndUnknownOptionsAreIgnored)
{
    Recorder r;
    CommandLine cl = r.make();
    EXPECT_EQ(cl.parse({"plotvik", "/openprjx", "-bogus", "-QTXSearchRanges,1,2"}, 2), 0);
    EXPECT_FALSE(cl.projectNamed());
    EXPECT_TRUE(cl.qtxSearchRangeCommand().empty()) << "the ranges option acts in pass 1 only";
    EXPECT_FALSE(cl.error());
}

#ifndef _WIN32
TEST(CommandLine, AnAbsoluteProjectPathIsAProjectNotASlashOption)
{
    Recorder r;
    CommandLine cl = r.make();
    EXPECT_EQ(cl.parse({"plotvik", "/home/u/demo.plotvik"}, 1), 0);
    EXPECT_EQ(r.opened, std::vector<std::string>({"/home/u/demo.plotvik"}));
    EXPECT_FALSE(cl.error());
}
#endif

TEST(CommandLine, OtherExtensionsFailTheParse)
{
    Recorder r;
    CommandLine cl = r.make();
    EXPECT_EQ(cl.parse({"plotvik", "a.txt", "b.plotvik"}, 1), -1);
    EXPECT_TRUE(cl.error());
    EXPECT_EQ(r.opened, std::vector<std::string>({"b.plotvik"})) << "parsing goes on after the bad argument";
}

TEST(CommandLine, QtxSearchRangesBecomeAProbeCommand)
{
    Recorder r;
    CommandLine cl = r.make();
    EXPECT_EQ(cl.parse({"plotvik", "-QTXSearchRanges,0x20000000,0x1000"}, 1), 0);
    EXPECT_EQ(cl.qtxSearchRangeCommand(), "SetQTXSearchRanges 0x20000000 0x1000");
    // The probe's own boxes do not wait while options run, and wait again after.
    EXPECT_EQ(r.commands, std::vector<std::string>({"SetMSGBoxTimeout = 0", "SetMSGBoxTimeout = -1"}));
}
