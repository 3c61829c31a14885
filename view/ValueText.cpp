#include "view/ValueText.h"

#include "probe/SampleValue.h"
#include "symbols/Node.h"

namespace valuetext {

double curveValue(const Node& symbol, std::uint64_t slot)
{
    switch (symbol.TypeID) {
    case kTypeFloat: case kTypeDouble: case kTypeBool: case kTypeU8: case kTypeU16: case kTypeU32:
    case kTypeS8: case kTypeS16: case kTypeS32:
        return sampleToDouble(symbol.TypeID, slot);
    case kTypeBitField: {
        const std::uint32_t word = static_cast<std::uint32_t>(slot);
        const std::uint64_t mask = symbol.BitSize >= 32 ? 0xFFFFFFFFu : (std::uint64_t{1} << symbol.BitSize) - 1;
        const std::uint32_t shifted = symbol.BitOffset >= 32 ? 0 : word >> symbol.BitOffset;
        return static_cast<double>(shifted & mask);
    }
    default: return 0.0;
    }
}

QString yResolutionText(std::uint32_t r)
{
    if (r >= 1000000)
        return QStringLiteral("%1M/div").arg(r / 1000000);
    if (r < 1000)
        return QStringLiteral("%1/div").arg(r);
    return QStringLiteral("%1k/div").arg(r / 1000);
}

QString readoutText(const Node& symbol, std::uint64_t slot)
{
    if (symbol.TypeID == kTypeBool)
        return (slot & 0xFF) ? QStringLiteral("true") : QStringLiteral("false");
    return QString::number(curveValue(symbol, slot), 'g', 6);
}

}  // namespace valuetext
