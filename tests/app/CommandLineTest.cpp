#include "app/CommandLine.h"
#include "base/Log.h"

#include <gtest/gtest.h>

namespace {

using Strings = std::vector<std::string>;

// Runs both passes as the program does: the second one only notes a project,
// the first one opens it.
TEST(CommandLine, ProjectPathsAndOptions)
{
    const struct {
        Strings argv;
        int result;
        bool named;
        Strings opened;
    } cases[] = {
        {{"plotvik", "-openprjC:\\p\\a.plotvik"}, 0, true, {"C:\\p\\a.plotvik"}},
        // With a blank after the option: an empty name, then a project of its own.
        {{"plotvik", "-openprj", "C:\\p\\a.plotvik"}, 0, true, {"", "C:\\p\\a.plotvik"}},
        // Case of the option and of the extension do not matter.
        {{"plotvik", "-OPENPRJx.plotvik", "y.PLOTVIK"}, 0, true, {"x.plotvik", "y.PLOTVIK"}},
        // Slash and unknown options are ignored; an absolute project path is no slash option.
        {{"plotvik", "/openprjx", "-bogus", "-QTXSearchRanges,1,2"}, 0, false, {}},
        {{"plotvik", "/home/u/demo.plotvik"}, 0, true, {"/home/u/demo.plotvik"}},
        // Other extensions fail the parse, which goes on after the bad argument.
        {{"plotvik", "a.txt", "b.plotvik"}, -1, true, {"b.plotvik"}},
    };
    for (const auto& c : cases) {
        Strings commands, opened;
        CommandLine cl({[&](const std::string& cmd) { commands.push_back(cmd); },
                        [&](const std::string& p) {
                            opened.push_back(p);
                            return 0;
                        }});
        EXPECT_EQ(cl.parse(c.argv, 2), c.result) << c.argv[1];
        EXPECT_EQ(cl.projectNamed(), c.named) << c.argv[1];
        EXPECT_TRUE(opened.empty()) << c.argv[1];
        EXPECT_TRUE(cl.qtxSearchRangeCommand().empty()) << "the ranges option acts in pass 1 only";
        EXPECT_EQ(cl.parse(c.argv, 1), c.result) << c.argv[1];
        EXPECT_EQ(opened, c.opened) << c.argv[1];
        EXPECT_EQ(cl.error(), c.result != 0) << c.argv[1];
    }
}

TEST(CommandLine, QtxSearchRangesBecomeAProbeCommand)
{
    Strings commands;
    CommandLine cl(
        {[&](const std::string& cmd) { commands.push_back(cmd); }, [](const std::string&) { return 0; }});
    EXPECT_EQ(cl.parse({"plotvik", "-QTXSearchRanges,0x20000000,0x1000"}, 1), 0);
    EXPECT_EQ(cl.qtxSearchRangeCommand(), "SetQTXSearchRanges 0x20000000 0x1000");
    // The probe's own boxes do not wait while options run, and wait again after.
    EXPECT_EQ(commands, Strings({"SetMSGBoxTimeout = 0", "SetMSGBoxTimeout = -1"}));
}

}  // namespace
