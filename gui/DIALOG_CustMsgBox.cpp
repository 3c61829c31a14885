#include "gui/DIALOG_CustMsgBox.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QStyle>
#include <QVBoxLayout>

#include <cstring>

namespace {

constexpr int kIconSize = 64;
constexpr int kTitleMargin = 150;

QString fromStd(const std::string& s) { return QString::fromStdString(s); }

// Button texts are shown as given: "Reparse & Match symbols" keeps its "&"
// instead of turning it into a keyboard mnemonic.
QString buttonText(const std::string& s) { return fromStd(s).replace(QLatin1Char('&'), QStringLiteral("&&")); }

}  // namespace

DIALOG_CustMsgBox::DIALOG_CustMsgBox(const MessageBoxRequest& request, QWidget* parent)
    : QDialog(parent), m_request(request), m_remainingMs(request.timeoutMs > 0 ? request.timeoutMs : 0),
      m_result(request.defaultResult), m_checkState(request.checkState)
{
    setModal(true);
    auto* top = new QHBoxLayout;  // owned by the outer layout

    QStyle::StandardPixmap pixmap = QStyle::SP_CustomBase;
    switch (request.icon) {
    case kIconCritical: pixmap = QStyle::SP_MessageBoxCritical; break;
    case kIconQuestion: pixmap = QStyle::SP_MessageBoxQuestion; break;
    case kIconWarning: pixmap = QStyle::SP_MessageBoxWarning; break;
    case kIconInformation: pixmap = QStyle::SP_MessageBoxInformation; break;
    default: break;
    }
    if (pixmap != QStyle::SP_CustomBase) {
        m_iconLabel = new QLabel(this);
        m_iconLabel->setPixmap(style()->standardIcon(pixmap, nullptr, this).pixmap(kIconSize, kIconSize));
        m_iconLabel->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
        top->addWidget(m_iconLabel);
    }

    // The text lives in a tagged work buffer while the box is open.
    m_work = alloc::make<char>(kWorkBufferSize, "Temp. MsgBox string");
    QString shown;
    if (m_work) {
        const std::size_t n = std::min(request.text.size(), kWorkBufferSize - 1);
        std::memcpy(m_work.get(), request.text.data(), n);
        m_work[n] = '\0';
        shown = QString::fromUtf8(m_work.get(), static_cast<qsizetype>(n));
    } else {
        shown = QStringLiteral("<Insufficient memory for message box>");
    }
    m_textLabel = new QLabel(shown, this);
    m_textLabel->setTextFormat(Qt::PlainText);
    m_textLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_textLabel->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    top->addWidget(m_textLabel, 1);

    auto* outer = new QVBoxLayout(this);  // owned by the dialog
    outer->addLayout(top);
    if (!request.checkText.empty()) {
        m_checkBox = new QCheckBox(fromStd(request.checkText), this);
        m_checkBox->setChecked(request.checkState != 0);
        outer->addWidget(m_checkBox);
    }

    auto* buttons = new QGridLayout;  // owned by the outer layout
    if (!request.button0.empty()) {
        m_button0 = new QPushButton(buttonText(request.button0), this);
        connect(m_button0, &QPushButton::clicked, this, &DIALOG_CustMsgBox::_SlotOnBtn0);
        buttons->addWidget(m_button0, 0, 0);
    }
    if (!request.button1.empty()) {
        m_button1 = new QPushButton(buttonText(request.button1), this);
        connect(m_button1, &QPushButton::clicked, this, &DIALOG_CustMsgBox::_SlotOnBtn1);
        buttons->addWidget(m_button1, 0, 1);
    }
    outer->addLayout(buttons);
    if (QPushButton* def = button(request.defaultResult))
        def->setDefault(true);

    if (request.timeoutMs > 0) {
        connect(&m_timer, &QTimer::timeout, this, &DIALOG_CustMsgBox::_SlotOnTimer);
        m_timer.start(kTickMs);
    }

    adjustSize();
    m_baseWidth = sizeHint().width();
    setFixedHeight(sizeHint().height());
    applyTitle(fromStd(request.caption));

    auto* copy = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_C), this);  // owned by the dialog
    connect(copy, &QShortcut::activated, this, &DIALOG_CustMsgBox::_SlotOnCopy);
}

DIALOG_CustMsgBox::~DIALOG_CustMsgBox() = default;

MessageBoxAnswer DIALOG_CustMsgBox::run(const MessageBoxRequest& request, QWidget* parent)
{
    DIALOG_CustMsgBox box(request, parent);
    box.exec();
    return box.answer();
}

MessageBoxAnswer DIALOG_CustMsgBox::answer() const
{
    return {m_dismissed ? m_request.dismissedValue : m_result, m_checkState};
}

// The title's width plus a margin, so the caption and count-down never get cut.
void DIALOG_CustMsgBox::applyTitle(const QString& title)
{
    setWindowTitle(title);
    const int minimum = fontMetrics().horizontalAdvance(title) + kTitleMargin;
    setFixedWidth(std::max(m_baseWidth, minimum));
}

void DIALOG_CustMsgBox::_SlotOnBtn0()
{
    m_result = 0;
    finish();
}

void DIALOG_CustMsgBox::_SlotOnBtn1()
{
    m_result = 1;
    finish();
}

void DIALOG_CustMsgBox::reject()
{
    m_dismissed = true;
    finish();
}

void DIALOG_CustMsgBox::_SlotOnTimer()
{
    const QString caption = fromStd(m_request.caption);
    if (m_remainingMs < kTickMs + 1) {
        applyTitle(QStringLiteral("%1 (closing now)").arg(caption));
        m_remainingMs = 0;
        finish();
        return;
    }
    m_remainingMs -= kTickMs;
    applyTitle(QStringLiteral("%1 (closing in %2 seconds)").arg(caption).arg(m_remainingMs / 1000 + 1));
}

void DIALOG_CustMsgBox::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    if (m_checkBox)
        m_checkState = m_checkBox->isChecked() ? 1 : 0;
    m_timer.stop();
    m_work.reset();
    QDialog::done(QDialog::Accepted);
}

QString DIALOG_CustMsgBox::copyText() const
{
    const QString rule = QStringLiteral("---------------------------\r\n");
    QString t = rule + fromStd(m_request.caption) + QStringLiteral("\r\n") + rule + fromStd(m_request.text) +
                QStringLiteral("\r\n") + rule;
    for (const std::string* b : {&m_request.button0, &m_request.button1})
        if (!b->empty())
            t += fromStd(*b) + QStringLiteral("   ");
    t += QStringLiteral("\r\n") + rule;
    return t.left(kCopyLimit);
}

void DIALOG_CustMsgBox::_SlotOnCopy()
{
    if (QClipboard* clipboard = QApplication::clipboard())
        clipboard->setText(copyText());
}
