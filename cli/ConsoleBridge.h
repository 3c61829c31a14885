// The bridge of the headless front end: what the GUI would show in a box is
// written to stderr, dialogs are answered as cancelled, and a question gets
// its default answer.
#pragma once

#include "base/Bridge.h"

#include <cstdio>

class ConsoleBridge : public Bridge {
public:
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::fprintf(stderr, "%s: %s\n", r.caption.c_str(), r.text.c_str());
        ++messages;
        return {r.defaultResult, r.checkState};
    }
    std::string openFileDialog(const FileDialogRequest&) override { return {}; }
    // The save dialog answers `saveAnswer` (empty: cancelled).
    std::string saveFileDialog(const FileDialogRequest&) override { return saveAnswer; }
    int progress(int, const std::string&, int, int) override { return 0; }

    int messages = 0;
    std::string saveAnswer;
};
