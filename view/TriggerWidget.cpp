#include "view/TriggerWidget.h"

#include "app/Controller.h"

#include <QAction>
#include <QComboBox>
#include <QDoubleValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QSignalBlocker>

#include <algorithm>

namespace {

enum Edges { kRise = 1, kFall = 2 };

// A step through a dashed threshold line: up, down, or up and back down. The
// style has no icons for edges.
QIcon edgeIcon(int edges, const QColor& ink)
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(QPen(QColor(200, 40, 40), 1.5, Qt::DashLine));
    p.drawLine(QPointF(2, 16), QPointF(30, 16));
    QPainterPath path;
    const qreal low = 26, high = 6;
    if (edges == (kRise | kFall)) {
        path.moveTo(3, low);
        path.lineTo(10, low);
        path.lineTo(10, high);
        path.lineTo(22, high);
        path.lineTo(22, low);
        path.lineTo(29, low);
    } else {
        const qreal first = edges == kRise ? low : high;
        const qreal second = edges == kRise ? high : low;
        path.moveTo(3, first);
        path.lineTo(16, first);
        path.lineTo(16, second);
        path.lineTo(29, second);
    }
    p.setPen(QPen(ink, 2.5, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    p.drawPath(path);
    return QIcon(pixmap);
}

bool sameTrigger(const ProjectSettings& a, const ProjectSettings& b)
{
    return a.TriggerSymbol == b.TriggerSymbol && a.TriggerLevel == b.TriggerLevel && a.TriggerOn == b.TriggerOn &&
           a.TriggerAuto == b.TriggerAuto && a.TriggerRise == b.TriggerRise && a.TriggerFall == b.TriggerFall;
}

}  // namespace

TriggerWidget::TriggerWidget(Controller& controller, QWidget* parent)
    : QToolBar(tr("Trigger"), parent), m_controller(controller)
{
    setObjectName("TriggerWidget");
    setMovable(false);
    addWidget(new QLabel("Trigger control: ", this));
    m_rising = addEdgeAction("Trigger Rising Edge", kRise, &TriggerWidget::_SlotOnActionRising);
    m_falling = addEdgeAction("Trigger Falling Edge", kFall, &TriggerWidget::_SlotOnActionFalling);
    m_both = addEdgeAction("Trigger Both Edges", kRise | kFall, &TriggerWidget::_SlotOnActionBoth);
    addWidget(new QLabel("Symbol: ", this));
    m_symbols = new QComboBox(this);
    m_symbols->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_symbols->setMinimumContentsLength(12);
    m_symbols->setFocusPolicy(Qt::ClickFocus);
    addWidget(m_symbols);
    addWidget(new QLabel("Threshold: ", this));
    m_threshold = new QLineEdit(this);
    m_threshold->setValidator(new QDoubleValidator(m_threshold));
    m_threshold->setMaximumWidth(fontMetrics().horizontalAdvance(QStringLiteral("-0.000000000e+000")));
    m_threshold->setText(QString::number(0.0));
    addWidget(m_threshold);
    connect(m_symbols, &QComboBox::currentIndexChanged, this, &TriggerWidget::_SlotOnCurrentIndexChanged);
    connect(m_threshold, &QLineEdit::textChanged, this, &TriggerWidget::_SlotOnTextChanged);
    setControlsEnabled(false);
}

QAction* TriggerWidget::addEdgeAction(const QString& text, int edges, void (TriggerWidget::*slot)(bool))
{
    QAction* action = addAction(edgeIcon(edges, palette().color(QPalette::WindowText)), text);
    action->setToolTip(text);
    action->setCheckable(true);
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void TriggerWidget::setControlsEnabled(bool on)
{
    for (QAction* a : {m_rising, m_falling, m_both})
        a->setEnabled(on);
    m_symbols->setEnabled(on);
    m_threshold->setEnabled(on);
}

void TriggerWidget::updateEnabling()
{
    setControlsEnabled(m_controller.project().isOpen() && !m_controller.symbols().selected().empty() &&
                       !m_controller.samplingRunning());
}

std::vector<std::string> TriggerWidget::selectedNames() const
{
    std::vector<std::string> names;
    for (const Node* n : m_controller.symbols().selected())
        names.push_back(n ? n->NameWithParents : std::string());
    return names;
}

bool TriggerWidget::copyDiffers(const ProjectSettings& current) const { return !sameTrigger(m_copy, current); }

void TriggerWidget::rebuild()
{
    if (m_controller.samplingRunning())
        return;
    const ProjectSettings current = m_controller.project().settings();
    std::vector<std::string> names = selectedNames();
    // A re-parse swaps every record for one of the same name: the names, not
    // only their count, say whether the box is stale.
    if (names == m_names && !copyDiffers(current))
        return;
    m_names = std::move(names);
    m_copy = current;
    {
        const QSignalBlocker blockBox(m_symbols);
        m_symbols->clear();
        for (const std::string& name : m_names)
            m_symbols->addItem(QString::fromStdString(name));
        // Found by its place in the selection: a trigger symbol that is no
        // longer selected may already be freed and is never read.
        const auto& selected = m_controller.symbols().selected();
        const auto at = std::find(selected.begin(), selected.end(), m_copy.TriggerSymbol);
        if (m_copy.TriggerSymbol && at != selected.end()) {
            const QString wanted = QString::fromStdString((*at)->NameWithParents);
            for (int i = 0; i < m_symbols->count(); ++i)
                if (m_symbols->itemText(i) == wanted)
                    m_symbols->setCurrentIndex(i);
        }
    }
    const bool on = m_copy.TriggerOn;
    const QSignalBlocker blockRise(m_rising), blockFall(m_falling), blockBoth(m_both);
    m_rising->setChecked(on && m_copy.TriggerRise && !m_copy.TriggerFall);
    m_falling->setChecked(on && !m_copy.TriggerRise && m_copy.TriggerFall);
    m_both->setChecked(on && m_copy.TriggerRise && m_copy.TriggerFall);
    if (m_threshold->text().toDouble() != m_copy.TriggerLevel || m_threshold->text().isEmpty()) {
        const QSignalBlocker blockEdit(m_threshold);
        m_threshold->setText(QString::number(m_copy.TriggerLevel, 'g', 15));
    }
}

void TriggerWidget::writeBack()
{
    // A changed trigger waits for its edge again.
    m_copy.TriggerFired = false;
    if (m_controller.project().applyTrigger(m_copy)) {
        m_controller.markModified();
        emit _SignalTriggerChanged();
    }
}

void TriggerWidget::edgeChecked(QAction* action, bool checked, bool rise, bool fall)
{
    if (!checked) {
        m_copy.TriggerOn = false;  // the edges stay as they were
        writeBack();
        return;
    }
    for (QAction* other : {m_rising, m_falling, m_both}) {
        if (other != action) {
            const QSignalBlocker block(other);
            other->setChecked(false);
        }
    }
    m_copy.TriggerOn = true;
    m_copy.TriggerRise = rise;
    m_copy.TriggerFall = fall;
    // Armed without a symbol it would wait for ever: take the one the box shows.
    const auto& selected = m_controller.symbols().selected();
    const int index = m_symbols->currentIndex();
    if (!m_copy.TriggerSymbol && index >= 0 && static_cast<std::size_t>(index) < selected.size())
        m_copy.TriggerSymbol = selected[static_cast<std::size_t>(index)];
    writeBack();
}

void TriggerWidget::_SlotOnActionRising(bool checked) { edgeChecked(m_rising, checked, true, false); }
void TriggerWidget::_SlotOnActionFalling(bool checked) { edgeChecked(m_falling, checked, false, true); }
void TriggerWidget::_SlotOnActionBoth(bool checked) { edgeChecked(m_both, checked, true, true); }

void TriggerWidget::_SlotOnCurrentIndexChanged(int index)
{
    const auto& selected = m_controller.symbols().selected();
    if (index < 0 || !m_copy.TriggerOn || static_cast<std::size_t>(index) >= selected.size())
        return;
    Node* symbol = selected[static_cast<std::size_t>(index)];
    if (symbol == m_copy.TriggerSymbol)
        return;
    m_copy.TriggerSymbol = symbol;
    writeBack();
}

void TriggerWidget::_SlotOnTextChanged(const QString& text)
{
    m_copy.TriggerLevel = text.toDouble();
    writeBack();
}
