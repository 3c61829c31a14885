// The modal dialog in which the user ticks the variables to sample, from the
// whole symbol tree, narrowed by a filter text. "OK" makes the ticked leaves
// the list of selected symbols; "Cancel" leaves the selection as it was.
#pragma once

#include <QDialog>

#include <functional>
#include <vector>

class Bridge;
class Controller;
class QGridLayout;
class QLineEdit;
class QModelIndex;
class QPushButton;
class SymbolDatabase;
class SymbolTreeModel;
class SymbolTreeView;
struct Node;

class SymbolSelection : public QDialog {
    Q_OBJECT

public:
    // Shows `symbols`' tree (not owned; the worker must not touch it while
    // the dialog lives). `bridge` (not owned, may be null) is the main
    // window's: its progress display shows how far the rows have come, and
    // it hears that the symbol set changes on "OK".
    SymbolSelection(SymbolDatabase& symbols, Bridge* bridge, QWidget* parent = nullptr);
    ~SymbolSelection() override;

    // Opens the dialog from the interface thread once the worker is parked
    // between jobs, and lets the worker go on when it closes. A request while
    // one is under way is dropped. `committed` runs after "OK".
    static void request(Controller& controller, Bridge* bridge, QWidget* parent, std::function<void()> committed);

    SymbolTreeView* tree() const { return m_tree; }
    SymbolTreeModel* model() const { return m_model; }
    QLineEdit* filterLine() const { return m_filter; }
    QPushButton* okButton() const { return m_ok; }
    QPushButton* cancelButton() const { return m_cancel; }
    // Ticked leaves in the order they will be selected.
    const std::vector<Node*>& pending() const { return m_pending; }

signals:
    // "OK" has replaced the list of selected symbols.
    void _SignalSelectionChanged();

private slots:
    void _SlotOnTextChangedLineEditSearch(const QString& text);
    void _SlotOnTreeItemChanged(const QModelIndex& index, int column);
    void _SlotOnTreeWidgetItemDoubleClicked(const QModelIndex& index);
    void _SlotOnReleaseBtnOK();
    void _SlotOnReleaseBtnCancel();

private:
    void fillTree();
    void sizeColumns();

    SymbolDatabase& m_symbols;
    Bridge* m_bridge = nullptr;             // not owned
    QGridLayout* m_layout = nullptr;        // owned by the dialog
    SymbolTreeView* m_tree = nullptr;       // owned by the dialog
    SymbolTreeModel* m_model = nullptr;     // owned by the dialog
    QLineEdit* m_filter = nullptr;          // owned by the dialog
    QPushButton* m_ok = nullptr;            // owned by the dialog
    QPushButton* m_cancel = nullptr;        // owned by the dialog
    std::vector<Node*> m_pending;
};
