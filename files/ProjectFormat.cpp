#include "files/ProjectFormat.h"

#include "base/Text.h"

#include <cmath>
#include <limits>

namespace projectfile {
namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool hasHexPrefix(std::string_view s) { return s.size() >= 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'); }

// Digits in `base` up to the first other character; wraps like the C
// conversions rather than failing on very long texts.
std::optional<std::uint64_t> digits(std::string_view s, int base)
{
    std::uint64_t value = 0;
    std::size_t n = 0;
    for (; n < s.size(); ++n) {
        const int d = hexDigit(s[n]);
        if (d < 0 || d >= base)
            break;
        value = value * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(d);
    }
    if (n == 0)
        return std::nullopt;
    return value;
}

}  // namespace

std::optional<std::uint32_t> parseAddress(std::string_view text)
{
    bool negative = false;
    if (!text.empty() && text[0] == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    if (hasHexPrefix(text))
        text.remove_prefix(2);
    const auto value = digits(text, 16);
    if (!value)
        return std::nullopt;
    const auto address = static_cast<std::uint32_t>(*value);
    return negative ? static_cast<std::uint32_t>(0u - address) : address;
}

std::optional<std::int64_t> parseNumber(std::string_view text)
{
    const auto value = hasHexPrefix(text) ? digits(text.substr(2), 16) : digits(text, 10);
    if (!value)
        return std::nullopt;
    return static_cast<std::int64_t>(*value);
}

std::int32_t deriveTypeId(std::string_view type, std::uint32_t size, bool isSigned)
{
    // Whole-text comparisons with the asterisks: only the exact placeholder
    // names select the special types.
    if (size == 1 && type == "*_Bool*")
        return 5;
    if (size == 4 && type == "*float*")
        return 1;
    if (size == 8 && type == "*double*")
        return 2;
    switch (size) {
    case 1: return isSigned ? 10 : 6;
    case 2: return isSigned ? 11 : 7;
    case 4: return isSigned ? 12 : 8;
    case 8: return isSigned ? 13 : 9;
    default: return 0;
    }
}

std::int64_t truncatedToInteger(double value)
{
    if (std::isnan(value))
        return 0;
    // Limits of 64-bit types (2^64 for unsigned 64-bit) do not fit: saturate.
    constexpr double kMax = 9223372036854775807.0;
    if (value >= kMax)
        return std::numeric_limits<std::int64_t>::max();
    if (value <= -kMax)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(std::trunc(value));
}

std::string formatDouble(double value) { return text::format(64, "%g", value); }

std::string formatAddress(std::uint32_t address) { return text::format(16, "0x%.8X", address); }

}  // namespace projectfile
