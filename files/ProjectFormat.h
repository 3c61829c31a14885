// Value conversions of the project file that the reader and writer share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace projectfile {

// Declared file version; readers warn about anything from 1.2 on.
inline constexpr int kFileVersionMajor = 1;
inline constexpr int kFileVersionMinor = 1;

// Address: optional '-', optional "0x"/"0X", then hexadecimal digits up to
// the first other character. Empty when there is no digit.
std::optional<std::uint32_t> parseAddress(std::string_view text);
// Size and TypeID: decimal digits, or "0x"/"0X" and hexadecimal digits.
std::optional<std::int64_t> parseNumber(std::string_view text);
// Type id from the type text, size and signedness, for files without TypeID.
std::int32_t deriveTypeId(std::string_view type, std::uint32_t size, bool isSigned);
// Doubles that the format stores as integers are cut toward zero.
std::int64_t truncatedToInteger(double value);
// "%g"
std::string formatDouble(double value);
// "0x%.8X"
std::string formatAddress(std::uint32_t address);

}  // namespace projectfile
