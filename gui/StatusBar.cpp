#include "gui/StatusBar.h"

#include "base/Text.h"

#include <QLabel>

#include <algorithm>

StatusBar::StatusBar(QWidget* parent)
    : QStatusBar(parent), m_frameRate(new QLabel(this)), m_buffer(new QLabel(this)), m_sampleRate(new QLabel(this))
{
    addPermanentWidget(m_frameRate);
    addPermanentWidget(m_buffer);
    addPermanentWidget(m_sampleRate);
    setFrameRate(0, 0);
    setBuffer(0, 0, false);
    setSampleRate(0);
}

QString StatusBar::frameRateText(int target, int measured)
{
    return QString::fromStdString(text::format(64, "FPS: %d  ", std::min(target, measured)));
}

QString StatusBar::bufferText(std::size_t selectedVariables, std::uint32_t storedRecords, bool wrapped)
{
    std::uint64_t size = selectedVariables * kBytesPerVariable;
    const char* unit = "Byte";
    if (size > 1024) {
        size /= 1024;
        unit = "KB";
        if (size > 1024) {
            size /= 1024;
            unit = "MB";
        }
    }
    const std::uint64_t fill = wrapped ? 100 : std::uint64_t{storedRecords} * 100 / kRingRecords;
    return QString::fromStdString(text::format(128, "Buffer: %d %s (%d samples), %d %%", static_cast<int>(size), unit,
                                               static_cast<int>(kRingRecords), static_cast<int>(std::min<std::uint64_t>(fill, 100))));
}

QString StatusBar::sampleRateText(std::uint32_t samplesPerSecond)
{
    if (samplesPerSecond > 999)
        return QString::fromStdString(text::format(64, "%d kSamples/s", static_cast<int>(samplesPerSecond / 1000)));
    return QString::fromStdString(text::format(64, "%d Samples/s", static_cast<int>(samplesPerSecond)));
}

void StatusBar::setFrameRate(int target, int measured) { m_frameRate->setText(frameRateText(target, measured)); }

void StatusBar::setBuffer(std::size_t selectedVariables, std::uint32_t storedRecords, bool wrapped)
{
    m_buffer->setText(bufferText(selectedVariables, storedRecords, wrapped));
}

void StatusBar::setSampleRate(std::uint32_t samplesPerSecond) { m_sampleRate->setText(sampleRateText(samplesPerSecond)); }
