#include "gui/MenuBar.h"

#include <QAction>
#include <QMenu>

#include <map>

const std::array<MenuBar::Item, MenuBar::kEntryCount>& MenuBar::table()
{
    // Both save entries carry Ctrl+S; the duplicate is the program's own.
    static const std::array<Item, kEntryCount> items = {{
        {"&File", "&New Project", "Ctrl+N", "_OnActionNewProject", "Create a new Plotvik Project"},
        {"&File", "&Open Project ...", "Ctrl+O", "_OnActionOpenProject", "Open a Plotvik Project"},
        {"&File", "&Save Project", "Ctrl+S", "_OnActionSaveProject", "Save Plotvik Project"},
        {"&File", "Save Project &as ...", "Ctrl+S", "_OnActionSaveProjectAs", "Save Plotvik Project as ..."},
        {"&File", "Export &Data ...", "Ctrl+D", "_OnActionExportData", "Save data to csv"},
        {"&File", "Export &Raw ...", "Ctrl+R", "_OnActionExportRaw", "Save raw data to file"},
        {"&File", "Impor&t Raw", "Ctrl+T", "_OnActionImportRaw", "Load data from file"},
        {"&File", "E&xit", "Alt+X", "_OnActionExit", "Quit this program"},
        {"&View", "Graph window", "", "_OnActionGraphWindow", "Show Graph window"},
        {"&View", "Watch window", "", "_OnActionWatchWindow", "Show Watch window"},
        {"&Tools", "Options ...", "", "_OnActionOptions", "Show Options"},
        {"&Help", "Plotvik User Guide", "F1", "_OnActionUserGuide", "Open the Plotvik manual"},
        {"&Help", "&About Plotvik", "F12", "_OnActionAbout", "Show about dialog"},
    }};
    return items;
}

MenuBar::MenuBar(QObject* receiver, QWidget* parent) : QMenuBar(parent)
{
    std::map<QString, QMenu*> menus;
    for (std::size_t i = 0; i < table().size(); ++i) {
        const Item& item = table()[i];
        QMenu*& menu = menus[item.menu];
        if (!menu)
            menu = addMenu(QString::fromLatin1(item.menu));  // owned by the menu bar
        QString text = QString::fromLatin1(item.text);
        const QKeySequence key(QString::fromLatin1(item.shortcut));
        // A key owned by two actions is ambiguous and Qt then runs neither: the
        // first entry owns it, a later one only shows it (after a tab, where
        // the menu draws shortcuts).
        bool shownOnly = false;
        for (std::size_t j = 0; j < i && !key.isEmpty(); ++j)
            shownOnly = shownOnly || m_actions[j]->shortcut() == key;
        if (shownOnly)
            text += '\t' + key.toString(QKeySequence::NativeText);
        QAction* action = menu->addAction(text);  // owned by the menu
        if (!key.isEmpty() && !shownOnly)
            action->setShortcut(key);
        action->setStatusTip(QString::fromLatin1(item.statusTip));
        const char* slot = item.slot;
        connect(action, &QAction::triggered, receiver, [receiver, slot] { QMetaObject::invokeMethod(receiver, slot); });
        m_actions[i] = action;
    }
}

void MenuBar::updateEnabling(bool samplingRunning, bool projectOpen, bool anySelected)
{
    static constexpr Entry file[] = {kNewProject, kOpenProject, kSaveProject, kSaveProjectAs,
                                     kExportData, kExportRaw,   kImportRaw,   kExit};
    if (samplingRunning) {
        for (Entry e : file)
            m_actions[e]->setEnabled(false);
        m_actions[kOptions]->setEnabled(false);
        return;
    }
    for (Entry e : file)
        m_actions[e]->setEnabled(true);
    for (Entry e : {kOptions, kSaveProject, kSaveProjectAs, kExportData, kExportRaw, kImportRaw})
        m_actions[e]->setEnabled(projectOpen);
    if (!anySelected) {
        for (Entry e : {kExportData, kExportRaw, kImportRaw})
            m_actions[e]->setEnabled(false);
    }
}
