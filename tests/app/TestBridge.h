// A bridge for tests: records what the controller shows and answers
// requests with preset values.
#pragma once

#include "base/Bridge.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

class TestBridge : public Bridge {
public:
    void setTitle(const std::string& t) override
    {
        std::lock_guard l(m);
        title = t;
    }
    void updateGui() override { ++guiUpdates; }
    void updateData() override { ++dataUpdates; }
    void reset() override { ++resets; }
    void showSymbolSelection() override { ++symbolSelections; }
    void symbolsChanged() override { ++symbolChanges; }
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::lock_guard l(m);
        boxes.push_back(r);
        return {answer, r.checkState};
    }
    std::string openFileDialog(const FileDialogRequest&) override { return openPath; }
    std::string saveFileDialog(const FileDialogRequest&) override { return savePath; }
    int progress(int, const std::string&, int, int) override { return 0; }

    std::vector<MessageBoxRequest> shown()
    {
        std::lock_guard l(m);
        return boxes;
    }

    std::mutex m;
    std::string title;
    std::vector<MessageBoxRequest> boxes;
    int answer = 0;
    std::string openPath, savePath;
    std::atomic<int> guiUpdates{0}, dataUpdates{0}, resets{0}, symbolSelections{0}, symbolChanges{0};
};
