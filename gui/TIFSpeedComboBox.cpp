#include "gui/TIFSpeedComboBox.h"

#include <QLineEdit>
#include <QRegularExpressionValidator>

TIFSpeedComboBox::TIFSpeedComboBox(QWidget* parent, const char* slot) : QComboBox(parent)
{
    setEditable(true);
    // A typed speed becomes the custom entry; Qt must not add items of its own.
    setInsertPolicy(QComboBox::NoInsert);
    m_validator = new QRegularExpressionValidator(this);
    lineEdit()->setValidator(m_validator);
    connect(lineEdit(), &QLineEdit::editingFinished, this, &TIFSpeedComboBox::_SlotOnCustSpeedEntered);
    connect(this, &QComboBox::currentIndexChanged, this, &TIFSpeedComboBox::SignalSpeedChanged);
    if (parent && slot)
        connect(this, SIGNAL(SignalSpeedChanged()), parent, slot);
    rebuild();
}

std::int32_t TIFSpeedComboBox::speedHz() const
{
    const int index = currentIndex();
    if (index < 0)
        return -1;
    if (m_customKHz && index == 0)
        return m_customKHz * 1000;
    const int entry = index - offset();
    if (entry >= static_cast<int>(kSpeedsHz.size()))
        return -1;
    return kSpeedsHz[static_cast<std::size_t>(entry)];
}

std::int32_t TIFSpeedComboBox::speedKHz() const { return roundedKHz(speedHz()); }

void TIFSpeedComboBox::setSpeedHz(std::int32_t hz)
{
    if (hz == -1)
        return;
    if (m_customKHz && hz == m_customKHz * 1000) {
        setCurrentIndex(0);
        return;
    }
    for (std::size_t i = 0; i < kSpeedsHz.size(); ++i) {
        if (kSpeedsHz[i] == hz) {
            setCurrentIndex(static_cast<int>(i) + offset());
            return;
        }
    }
    makeCustom(roundedKHz(hz));
}

void TIFSpeedComboBox::setSpeedKHz(std::int32_t khz)
{
    if (khz == -1)
        return;
    if (m_customKHz && khz == m_customKHz) {
        setCurrentIndex(0);
        return;
    }
    for (std::size_t i = 0; i < kSpeedsHz.size(); ++i) {
        if (roundedKHz(kSpeedsHz[i]) == khz) {
            setCurrentIndex(static_cast<int>(i) + offset());
            return;
        }
    }
    makeCustom(khz);
}

void TIFSpeedComboBox::makeCustom(std::int32_t khz)
{
    m_customKHz = khz > 0 ? khz : 0;
    rebuild();
    setCurrentIndex(0);
}

void TIFSpeedComboBox::rebuild()
{
    const std::int32_t keep = speedHz();
    {
        const QSignalBlocker blocker(this);
        clear();
        if (m_customKHz)
            addItem(QString::number(m_customKHz));
        for (const std::int32_t hz : kSpeedsHz)
            addItem(QString::number(roundedKHz(hz)));
    }
    const int digits = static_cast<int>(QString::number(roundedKHz(kSpeedsHz.back())).size());
    m_validator->setRegularExpression(QRegularExpression(QStringLiteral("[0-9]{0,%1}").arg(digits)));
    if (keep != m_customKHz * 1000)
        setSpeedHz(keep);
}

void TIFSpeedComboBox::_SlotOnCustSpeedEntered()
{
    const QString typed = lineEdit()->text().left(16);
    bool ok = false;
    const int khz = typed.toInt(&ok);
    if (!typed.isEmpty() && ok)
        setSpeedKHz(khz);
    else
        setSpeedHz(kSpeedsHz.front());
    // Show the entry now selected, whatever was typed.
    lineEdit()->setText(currentText());
}
