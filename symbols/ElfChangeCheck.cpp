#include "symbols/ElfChangeCheck.h"

#include "app/Controller.h"
#include "base/Report.h"
#include "base/Text.h"

#include <chrono>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

// Clears the controller's pending-check mark on every way out.
struct PendingMark {
    Controller& controller;
    ~PendingMark() { controller.setElfCheckPending(false); }
};

}  // namespace

bool ElfTimeDiffers(fs::file_time_type a, fs::file_time_type b)
{
    // The stamp is kept to the millisecond; earlier counts as much as later.
    using std::chrono::floor;
    using std::chrono::milliseconds;
    return floor<milliseconds>(a) != floor<milliseconds>(b);
}

int CheckElfModification(Controller& controller)
{
    PendingMark mark{controller};
    const ProjectSettings settings = controller.project().settings();
    if (!controller.project().isOpen() || settings.IsQTXSession || !controller.symbols().tree())
        return 0;

    const std::string path = controller.elfPath();
    std::ifstream file(fs::path(path), std::ios::binary);
    if (!file.is_open()) {
        std::error_code ec;
        if (fs::status(path, ec).type() == fs::file_type::not_found) {
            // Composed and deliberately left unshown: a build folder that is
            // cleaned now and then must not raise a box every second.
            const std::string gone =
                text::format(516, "The elf file at\n%s\nwas deleted or moved to a different location.\n", path.c_str());
            (void)gone;
        }
        return 0;
    }

    std::error_code ec;
    const fs::file_time_type written = fs::last_write_time(path, ec);
    if (ec || !ElfTimeDiffers(written, controller.symbols().elfTime()))
        return 0;

    MessageBoxRequest question;
    question.caption = report::warningCaption();
    question.text = text::format(1024,
                                 "The elf file at\n%s\nwas modified.\nShould Plotvik reparse the elf file and try to match "
                                 "the selected symbols?",
                                 path.c_str());
    question.button0 = "Reparse & Match symbols";
    question.button1 = "Reparse & Clear symbols";
    question.defaultResult = 0;
    question.icon = kIconQuestion;
    question.dismissedValue = -1;
    if (report::ask(question).result == 1) {
        Bridge* bridge = controller.bridge();
        if (bridge)
            bridge->symbolsAboutToChange();
        controller.symbols().clearSelected();
        if (bridge)
            bridge->symbolsChanged();
    }
    return controller.postParseElfFile(path, true);
}
