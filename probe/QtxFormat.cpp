#include "probe/QtxFormat.h"

#include "base/Text.h"
#include "symbols/Node.h"

QtxFormat parseQtxFormat(const std::string& channelName)
{
    QtxFormat f;
    const auto underscore = channelName.find('_');
    if (underscore == std::string::npos)
        return f;
    const std::string format = channelName.substr(underscore + 1);
    for (std::size_t i = 0; i + 1 < format.size(); i += 2) {
        const char letter = text::foldAscii(format[i]);
        const char digit = format[i + 1];
        const int size = (digit >= '0' && digit <= '9') ? digit - '0' : -1;
        auto add = [&](const char* kind, std::int32_t typeId, bool isSigned) {
            f.items.push_back({text::format(64, "%d Byte %s QTX Data", size, kind), static_cast<std::uint32_t>(size),
                               typeId, isSigned});
        };
        switch (letter) {
        case 't':
            f.withTimeStamp = true;
            break;
        case 'b':
            f.valid = true;  // counts as a format even with a size it cannot take
            if (size == 1)
                add("bool", kTypeBool, false);
            break;
        case 'f':
            f.valid = true;
            if (size == 4)
                add("float", kTypeFloat, true);
            else if (size == 8)
                add("float", kTypeDouble, true);
            break;
        case 'u':
        case 'i': {
            f.valid = true;
            const bool s = letter == 'i';
            const std::int32_t base = s ? kTypeS8 : kTypeU8;
            switch (size) {
            case 1: add(s ? "signed" : "unsigned", base, s); break;
            case 2: add(s ? "signed" : "unsigned", base + 1, s); break;
            case 4: add(s ? "signed" : "unsigned", base + 2, s); break;
            case 8: add(s ? "signed" : "unsigned", base + 3, s); break;
            default: break;
            }
            break;
        }
        default:
            break;
        }
    }
    return f;
}
