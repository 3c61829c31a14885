// The only way the controller and its jobs reach the user. The main window
// implements it for the GUI, the headless front end and the tests implement
// it too. Notifications return at once; requests (message box, file dialogs,
// progress) block the calling worker until the user has answered.
#pragma once

#include <string>

// Icon kinds of the message box.
enum MsgBoxIcon : int {
    kIconNone = 0,
    kIconCritical = 256,
    kIconQuestion = 512,
    kIconWarning = 768,
    kIconInformation = 1024,
};

struct MessageBoxRequest {
    std::string caption;
    std::string text;
    std::string button0;  // empty = no button
    std::string button1;
    std::string checkText;  // empty = no check box
    int checkState = 0;
    int defaultResult = 0;
    int icon = kIconNone;
    int dismissedValue = -1;
    int timeoutMs = 0;  // <= 0: no time-out
};

struct MessageBoxAnswer {
    int result = 0;  // button index, the default after a time-out, or the dismissed value
    int checkState = 0;
};

struct FileDialogRequest {
    std::string title;
    std::string filter;
    std::string directory;
};

// Progress flags.
enum ProgressFlags : int {
    kProgressStart = 1,   // begin a step: text, limit
    kProgressUpdate = 2,  // set value
    kProgressEnd = 4,     // finish and hide
};

class Bridge {
public:
    virtual ~Bridge() = default;

    // Notifications: a front end overrides those it shows.
    virtual void setTitle(const std::string& title) { (void)title; }
    virtual void updateGui() {}
    virtual void updateData() {}
    virtual void reset() {}
    virtual void showSymbolSelection() {}
    virtual void newProjectDialog() {}
    virtual void optionsDialog() {}
    virtual void assignColors() {}
    virtual void enableUpdates(bool on) { (void)on; }
    virtual void refreshRecentLists() {}
    virtual void close() {}
    virtual void symbolsAboutToChange() {}
    virtual void symbolsChanged() {}

    virtual MessageBoxAnswer messageBox(const MessageBoxRequest& request) = 0;
    // The chosen path, or an empty string when cancelled.
    virtual std::string openFileDialog(const FileDialogRequest& request) = 0;
    virtual std::string saveFileDialog(const FileDialogRequest& request) = 0;
    // Returns 0 to go on, negative when the user cancelled.
    virtual int progress(int value, const std::string& text, int flags, int limit) = 0;
};
