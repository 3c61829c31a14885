// The QTX channel-name parser on arbitrary names: every item it returns has
// a size that fits its type, and an item makes the format valid.
#include "FuzzSupport.h"

#include "probe/QtxFormat.h"
#include "symbols/Node.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string name(reinterpret_cast<const char*>(data), size);
    const QtxFormat f = parseQtxFormat(name);
    FUZZ_CHECK(f.items.empty() || f.valid);
    FUZZ_CHECK(f.items.size() <= size / 2);
    for (const QtxItem& item : f.items) {
        FUZZ_CHECK(item.size == 1 || item.size == 2 || item.size == 4 || item.size == 8);
        FUZZ_CHECK(item.typeId > kTypeNone && item.typeId < kTypeBitField);
        FUZZ_CHECK(!item.name.empty());
    }
    return 0;
}
