// The editable drop-down of target interface speeds: a fixed list, plus one
// speed the user typed, kept as an extra first entry.
#pragma once

#include <QComboBox>

#include <array>
#include <cstdint>

class QRegularExpressionValidator;

class TIFSpeedComboBox : public QComboBox {
    Q_OBJECT

public:
    // The speeds offered, in Hz.
    static constexpr std::array<std::int32_t, 33> kSpeedsHz{
        1000,    5000,    10000,   20000,   30000,    50000,    100000,   200000,   300000,   400000,   500000,
        600000,  750000,  900000,  1000000, 1334000,  1600000,  2000000,  2667000,  3200000,  4000000,  4800000,
        5334000, 6000000, 8000000, 9600000, 12000000, 15000000, 20000000, 25000000, 30000000, 40000000, 50000000};

    // With a parent and a slot signature (SLOT(...)), SignalSpeedChanged is
    // connected to that slot of the parent.
    explicit TIFSpeedComboBox(QWidget* parent = nullptr, const char* slot = nullptr);

    // The selected speed, -1 when nothing is selected.
    std::int32_t speedHz() const;
    std::int32_t speedKHz() const;
    void setSpeedHz(std::int32_t hz);
    void setSpeedKHz(std::int32_t khz);
    // The typed speed in kHz, 0 when there is none.
    std::int32_t customSpeedKHz() const { return m_customKHz; }

signals:
    void SignalSpeedChanged();

private slots:
    void _SlotOnCustSpeedEntered();

private:
    static std::int32_t roundedKHz(std::int32_t hz) { return hz < 0 ? -1 : (hz + 500) / 1000; }
    void rebuild();
    void makeCustom(std::int32_t khz);
    int offset() const { return m_customKHz ? 1 : 0; }

    std::int32_t m_customKHz = 0;
    QRegularExpressionValidator* m_validator = nullptr;  // owned by the box
};
