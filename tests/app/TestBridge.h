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
    void showSymbolSelection() override { ++symbolSelections; }
    void symbolsChanged() override { ++symbolChanges; }
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::lock_guard l(m);
        boxes.push_back(r);
        return {answer, r.checkState};
    }
    std::string openFileDialog(const FileDialogRequest& r) override
    {
        dialogs.push_back(r);
        return openPath;
    }
    std::string saveFileDialog(const FileDialogRequest& r) override
    {
        dialogs.push_back(r);
        return savePath;
    }
    int progress(int, const std::string&, int, int) override { return 0; }

    std::vector<MessageBoxRequest> shown()
    {
        std::lock_guard l(m);
        return boxes;
    }
    std::vector<std::string> texts()
    {
        std::vector<std::string> out;
        for (const auto& b : shown())
            out.push_back(b.text);
        return out;
    }

    std::mutex m;
    std::string title;
    std::vector<MessageBoxRequest> boxes;
    std::vector<FileDialogRequest> dialogs;
    int answer = 0;
    std::string openPath, savePath;
    std::atomic<int> guiUpdates{0}, dataUpdates{0}, symbolSelections{0}, symbolChanges{0};
};
