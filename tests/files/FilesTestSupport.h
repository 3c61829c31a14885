// Helpers of the file tests: a bridge that records the boxes it is asked to
// show, a scratch folder, and small file utilities.
#pragma once

#include "base/Bridge.h"
#include "base/Report.h"

#include <QTemporaryDir>

#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

class RecordingBridge : public Bridge {
public:
    void updateGui() override { ++guiUpdates; }
    void updateData() override { ++dataUpdates; }
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::lock_guard l(m_mutex);
        boxes.push_back(r);
        return {0, r.checkState};
    }
    std::string openFileDialog(const FileDialogRequest& r) override
    {
        dialogs.push_back(r);
        return dialogPath;
    }
    std::string saveFileDialog(const FileDialogRequest& r) override
    {
        dialogs.push_back(r);
        return dialogPath;
    }
    int progress(int, const std::string&, int, int) override { return 0; }

    std::vector<std::string> texts()
    {
        std::lock_guard l(m_mutex);
        std::vector<std::string> out;
        for (const auto& b : boxes)
            out.push_back(b.text);
        return out;
    }

    std::vector<MessageBoxRequest> boxes;
    std::vector<FileDialogRequest> dialogs;
    std::string dialogPath;
    int guiUpdates = 0;
    int dataUpdates = 0;

private:
    std::mutex m_mutex;
};

// Installs a recording bridge for the lifetime of the object.
struct ScopedBridge {
    RecordingBridge bridge;
    ScopedBridge() { report::setBridge(&bridge); }
    ~ScopedBridge() { report::setBridge(nullptr); }
    ScopedBridge(const ScopedBridge&) = delete;
    ScopedBridge& operator=(const ScopedBridge&) = delete;
};

inline std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeAll(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

inline std::vector<std::string> lines(const std::string& content)
{
    std::vector<std::string> out;
    std::istringstream in(content);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}
