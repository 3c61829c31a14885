// The main window's status bar: frame rate, sample buffer and sample rate.
#pragma once

#include <QStatusBar>

#include <cstdint>

class QLabel;

class StatusBar : public QStatusBar {
    Q_OBJECT

public:
    static constexpr std::uint32_t kRingRecords = 1048576;
    static constexpr std::uint64_t kBytesPerVariable = 8388608;

    explicit StatusBar(QWidget* parent = nullptr);

    // "FPS: <smaller of target and measured>  "
    static QString frameRateText(int target, int measured);
    // "Buffer: 16 MB (1048576 samples), 0 %"
    static QString bufferText(std::size_t selectedVariables, std::uint32_t storedRecords, bool wrapped);
    // "<n> Samples/s", or "<n/1000> kSamples/s" above 999.
    static QString sampleRateText(std::uint32_t samplesPerSecond);

    void setFrameRate(int target, int measured);
    void setBuffer(std::size_t selectedVariables, std::uint32_t storedRecords, bool wrapped);
    void setSampleRate(std::uint32_t samplesPerSecond);

    QLabel* frameRateLabel() const { return m_frameRate; }
    QLabel* bufferLabel() const { return m_buffer; }
    QLabel* sampleRateLabel() const { return m_sampleRate; }

private:
    QLabel* m_frameRate;   // owned by the status bar
    QLabel* m_buffer;      // owned by the status bar
    QLabel* m_sampleRate;  // owned by the status bar
};
