#include "gui/SymbolSelection.h"

#include "app/Controller.h"
#include "base/Bridge.h"
#include "gui/SymbolTreeModel.h"
#include "gui/SymbolTreeView.h"
#include "symbols/SymbolDatabase.h"

#include <QCoreApplication>
#include <QGridLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>

#include <algorithm>
#include <memory>

namespace {

// One progress step through the bridge; at most about 200 updates, since
// each one is a round through the interface's event loop.
class ProgressStep {
public:
    ProgressStep(Bridge* bridge, const char* text, int limit) : m_bridge(bridge), m_text(text), m_limit(limit)
    {
        if (m_bridge)
            m_bridge->progress(0, m_text, kProgressStart, m_limit);
    }
    ~ProgressStep()
    {
        if (m_bridge)
            m_bridge->progress(m_limit, m_text, kProgressEnd, m_limit);
    }
    ProgressStep(const ProgressStep&) = delete;
    ProgressStep& operator=(const ProgressStep&) = delete;

    void advance(int value)
    {
        if (m_bridge && (value == m_limit || (value - m_reported) * 200 >= m_limit)) {
            m_bridge->progress(value, m_text, kProgressUpdate, m_limit);
            m_reported = value;
        }
    }

private:
    Bridge* m_bridge;  // not owned
    std::string m_text;
    int m_limit;
    int m_reported = 0;
};

}  // namespace

SymbolSelection::SymbolSelection(SymbolDatabase& symbols, Bridge* bridge, QWidget* parent)
    : QDialog(parent), m_symbols(symbols), m_bridge(bridge)
{
    setWindowTitle(tr("Select Symbols"));
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_layout = new QGridLayout(this);

    fillTree();
    m_layout->addWidget(m_tree, 1, 0, 1, 5);

    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(tr("Filter symbols"));
    m_layout->addWidget(m_filter, 3, 0, 1, 5);
    connect(m_filter, SIGNAL(textChanged(const QString&)), this, SLOT(_SlotOnTextChangedLineEditSearch(const QString&)));

    m_ok = new QPushButton(tr("OK"), this);
    m_cancel = new QPushButton(tr("Cancel"), this);
    // Return in the filter line must not close the dialog.
    for (QPushButton* b : {m_ok, m_cancel}) {
        b->setAutoDefault(false);
        b->setDefault(false);
    }
    m_layout->addWidget(m_ok, 4, 1);
    m_layout->addWidget(m_cancel, 4, 3);
    connect(m_ok, SIGNAL(released()), this, SLOT(_SlotOnReleaseBtnOK()));
    connect(m_cancel, SIGNAL(released()), this, SLOT(_SlotOnReleaseBtnCancel()));

    sizeColumns();
}

SymbolSelection::~SymbolSelection()
{
    // The view lets go of the model before the model's rows vanish.
    if (m_tree)
        m_tree->setModel(nullptr);
}

void SymbolSelection::fillTree()
{
    m_tree = new SymbolTreeView(this);
    m_tree->setEditTriggers(QAbstractItemView::NoEditTriggers);

    SymbolTree* tree = m_symbols.tree();
    const int topLevel = tree ? static_cast<int>(tree->files.size()) : 0;
    {
        ProgressStep step(m_bridge, "Preparing Symbols ...", topLevel);
        m_model = new SymbolTreeModel(tree, m_symbols.selected(), [&step](int made) { step.advance(made); }, this);
    }
    m_pending = m_model->tickedInTreeOrder();
    m_tree->setSymbolModel(m_model);
    m_tree->setSortingEnabled(true);
    connect(m_model, SIGNAL(itemChanged(const QModelIndex&, int)), this, SLOT(_SlotOnTreeItemChanged(const QModelIndex&, int)));
    connect(m_tree, SIGNAL(doubleClicked(const QModelIndex&)), this, SLOT(_SlotOnTreeWidgetItemDoubleClicked(const QModelIndex&)));

    // Source-file rows open; the view spans their first column over the row.
    ProgressStep step(m_bridge, "Finishing Symbols ...", topLevel);
    m_model->expandFileRows([&step](int done) { step.advance(done); });
}

void SymbolSelection::sizeColumns()
{
    int width = 60;
    for (int c = 0; c < SymbolTreeModel::kColumnCount; ++c) {
        m_tree->resizeColumnToContents(c);
        if (m_tree->columnWidth(c) > SymbolTreeModel::kWidthCaps[c])
            m_tree->setColumnWidth(c, SymbolTreeModel::kWidthCaps[c]);
        width += m_tree->columnWidth(c);
    }
    resize(width, 20 * m_tree->header()->sizeHint().height());
}

// ---------------------------------------------------------------------------
// Slots

void SymbolSelection::_SlotOnTextChangedLineEditSearch(const QString& text)
{
    m_model->applyFilter(text.toUtf8().left(255));
}

void SymbolSelection::_SlotOnTreeItemChanged(const QModelIndex& index, int)
{
    Node* node = m_model->node(index);
    if (!node || node->isArrayNode())
        return;
    const QVariant state = index.siblingAtColumn(SymbolTreeModel::kColSelect).data(Qt::CheckStateRole);
    if (!state.isValid())
        return;
    switch (static_cast<Qt::CheckState>(state.toInt())) {
    case Qt::Checked: m_pending.push_back(node); break;
    case Qt::Unchecked: {
        const auto it = std::find(m_pending.begin(), m_pending.end(), node);
        if (it != m_pending.end())
            m_pending.erase(it);
        break;
    }
    default: break;  // partly ticked: nothing changes
    }
}

void SymbolSelection::_SlotOnTreeWidgetItemDoubleClicked(const QModelIndex& index)
{
    if (index.column() == SymbolTreeModel::kColSelect)
        m_tree->edit(index);
}

void SymbolSelection::_SlotOnReleaseBtnOK()
{
    if (m_bridge)
        m_bridge->symbolsAboutToChange();
    m_symbols.clearSelected();
    m_symbols.setSelected(m_pending);
    if (m_bridge)
        m_bridge->symbolsChanged();
    emit _SignalSelectionChanged();
    accept();
}

void SymbolSelection::_SlotOnReleaseBtnCancel() { reject(); }

// ---------------------------------------------------------------------------

void SymbolSelection::request(Controller& controller, Bridge* bridge, QWidget* parent, std::function<void()> committed)
{
    static bool busy = false;  // interface thread only
    if (busy)
        return;
    busy = true;
    const bool hadParent = parent != nullptr;
    QPointer<QWidget> owner(parent);
    auto release = std::make_shared<std::function<void()>>();
    auto open = [&controller, bridge, owner, hadParent, committed = std::move(committed), release] {
        // On the interface thread, with the worker parked. A closing program
        // or a vanished window gets no dialog; the worker goes on either way.
        if (controller.exitState() != kExitPending && (!hadParent || owner)) {
            const std::vector<Node*> before = controller.symbols().selected();
            SymbolSelection dialog(controller.symbols(), bridge, owner);
            if (dialog.exec() == QDialog::Accepted) {
                const std::vector<Node*>& after = controller.symbols().selected();
                if (after != before) {
                    // The selection is saved with the project. A trigger on a
                    // symbol no longer selected would never fire.
                    ProjectSettings s = controller.project().settings();
                    if (s.TriggerSymbol && std::find(after.begin(), after.end(), s.TriggerSymbol) == after.end()) {
                        s.TriggerSymbol = nullptr;
                        controller.project().applyTrigger(s);
                    }
                    controller.markModified();
                }
                if (committed)
                    committed();
            }
        }
        (*release)();
        busy = false;
    };
    // The application object outlives every window, so the call always arrives.
    QObject* context = QCoreApplication::instance();
    *release = controller.holdWorker([context, open] { QMetaObject::invokeMethod(context, open, Qt::QueuedConnection); });
    if (!*release)
        busy = false;
}
