// The new project dialog's rules without its widgets: the sample-rate label
// and the payload "OK" fills; what it refuses: CliCommands.NewRefusesWhatTheDialogRefuses.
#include "app/NewProject.h"

#include <gtest/gtest.h>

// The choices name only the fields they set.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

TEST(NewProject, SampleRateLabelAndStoredPeriod)
{
    // Period text, label, stored period.
    const std::tuple<const char*, const char*, std::uint32_t> cases[] = {
        {"100", "us, Sample Rate: 10kHz", 100}, {"3", "us, Sample Rate: 333kHz", 3},
        {"1500", "us, Sample Rate: 666Hz", 1500}, {"0.5", "us, Sample Rate: 2000kHz", 0},
        {"0", "us, Sample Rate: 0Hz", 0},       {"", "us, Sample Rate: 0Hz", 0},
        {"1000000", "us, Sample Rate: 1Hz", 1000000}, {"2000000", "us, Sample Rate: 0Hz", 2000000},
    };
    for (const auto& [text, label, period] : cases)
        EXPECT_EQ(std::tuple(newproject::sampleRateLabel(text), newproject::period(text)), std::tuple(label, period))
            << text;
}

TEST(NewProject, PayloadKeepsWhatTheDialogDoesNotShow)
{
    ProjectSettings base;
    base.DataFile = "/d/data.csv";
    base.TimeResolutionUs = 5000;
    base.TriggerOn = true;
    base.SerialNo = 77;
    const NewProjectChoices c{
        .host = std::string(200, 'h'), .interfaceIndex = 2, .speedKHz = 3500, .periodText = "250", .elf = "/fw/a.elf"};
    const ProjectSettings s = newproject::payload(c, base);
    // An empty serial-number field writes nothing; the host is cut to its field.
    EXPECT_EQ(std::tie(s.DataFile, s.TimeResolutionUs, s.TriggerOn, s.SerialNo, s.TargetInterface, s.InterfaceSpeed,
                       s.IP, s.SamplingPeriod),
              std::tuple("/d/data.csv", 5000u, true, 77u, kInterfaceFine, 3500u, std::string(kHostSize - 1, 'h'),
                         250u));
    // The options dialog shows the same settings again.
    const NewProjectChoices back = newproject::fromSettings(s);
    EXPECT_EQ(newproject::payload(back, s), s);
    EXPECT_EQ(newproject::interfaceCode(7), kInterfaceJtag);
}
