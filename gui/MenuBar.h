// The main window's four menus, built from one table. Each entry's
// triggered() calls the receiver's slot of the same name.
#pragma once

#include <QMenuBar>

#include <array>

class QAction;

class MenuBar : public QMenuBar {
    Q_OBJECT

public:
    enum Entry {
        kNewProject,
        kOpenProject,
        kSaveProject,
        kSaveProjectAs,
        kExportData,
        kExportRaw,
        kImportRaw,
        kExit,
        kGraphWindow,
        kWatchWindow,
        kOptions,
        kUserGuide,
        kAbout,
        kEntryCount
    };

    struct Item {
        const char* menu;
        const char* text;
        const char* shortcut;  // empty = none
        const char* slot;      // slot of the receiver, by name
        const char* statusTip;
    };
    static const std::array<Item, kEntryCount>& table();

    // `receiver` gets the entries' slots; it must outlive the menu bar.
    explicit MenuBar(QObject* receiver, QWidget* parent = nullptr);

    QAction* action(Entry e) const { return m_actions[e]; }
    // The enabling rules, run on every interface update.
    void updateEnabling(bool samplingRunning, bool projectOpen, bool anySelected);

private:
    std::array<QAction*, kEntryCount> m_actions{};  // owned by their menus
};
