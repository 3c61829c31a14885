// The new project dialog's rules without its widgets: the sample-rate label,
// what "OK" refuses and the payload it fills.
#include "app/NewProject.h"

#include <gtest/gtest.h>

TEST(NewProject, SampleRateLabelAndStoredPeriod)
{
    struct Case {
        const char* text;
        const char* label;
        std::uint32_t period;
    };
    const Case cases[] = {
        {"100", "us, Sample Rate: 10kHz", 100}, {"3", "us, Sample Rate: 333kHz", 3},
        {"1500", "us, Sample Rate: 666Hz", 1500}, {"0.5", "us, Sample Rate: 2000kHz", 0},
        {"0", "us, Sample Rate: 0Hz", 0},       {"", "us, Sample Rate: 0Hz", 0},
        {"1000000", "us, Sample Rate: 1Hz", 1000000}, {"2000000", "us, Sample Rate: 0Hz", 2000000},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(newproject::sampleRateLabel(c.text), c.label) << c.text;
        EXPECT_EQ(newproject::period(c.text), c.period) << c.text;
    }
}

TEST(NewProject, OkRefusesWhatCannotSample)
{
    struct Case {
        bool qtx, existing;
        const char* device;
        const char* elf;
        const char* refusal;
    };
    const Case cases[] = {
        {true, false, "", "fw.elf", newproject::kQtxNeedsDevice},
        {true, false, "PVK-SIM-M4", "", ""},  // QTX needs no ELF file
        {false, false, "PVK-SIM-M4", "", newproject::kBsqNeedsElf},
        {false, false, "", "fw.elf", ""},  // BSQ needs no device
        {true, true, "PVK-SIM-M4", "fw.elf", newproject::kExistingSessionIsBsq},
        {false, true, "", "fw.elf", ""},
    };
    for (const Case& c : cases) {
        NewProjectChoices choices;
        choices.qtx = c.qtx;
        choices.existingSession = c.existing;
        choices.device = c.device;
        choices.elf = c.elf;
        EXPECT_EQ(newproject::refusal(choices), c.refusal) << c.qtx << c.existing << c.device << c.elf;
    }
}

TEST(NewProject, PayloadKeepsWhatTheDialogDoesNotShow)
{
    ProjectSettings base;
    base.DataFile = "/d/data.csv";
    base.TimeResolutionUs = 5000;
    base.TriggerOn = true;
    base.SerialNo = 77;
    NewProjectChoices c;
    c.interfaceIndex = 2;
    c.speedKHz = 3500;
    c.host = std::string(200, 'h');
    c.periodText = "250";
    c.elf = "/fw/a.elf";
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
