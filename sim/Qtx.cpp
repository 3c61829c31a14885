#include "sim/Qtx.h"

#include <algorithm>
#include <cstring>

namespace sim::qtx {

uint32_t scan(const Ranges& ranges, const Read& read, uint32_t chunk)
{
    std::vector<uint8_t> mem;
    for (const auto& [address, size] : ranges) {
        mem.assign(size, 0);
        uint32_t got = 0;
        while (got < size) {
            const uint32_t n = std::min(chunk, size - got);
            if (!read(address + got, mem.data() + got, n))
                break;
            got += n;
        }
        for (uint32_t off = 0; off + kHeader <= got; off += 4) {
            if (std::memcmp(mem.data() + off, kId, sizeof kId) != 0)
                continue;
            uint32_t numUp = 0;
            uint32_t numDown = 0;
            std::memcpy(&numUp, mem.data() + off + 16, 4);
            std::memcpy(&numDown, mem.data() + off + 20, 4);
            if (numUp <= kMaxChannels && numDown <= kMaxChannels)
                return address + off;
        }
    }
    return 0;
}

int channels(uint32_t cb, uint32_t direction, const Read& read)
{
    uint32_t n = 0;
    if (direction > TARVO_QTX_DIR_DOWN || !read(cb + (direction == TARVO_QTX_DIR_UP ? 16 : 20), &n, 4))
        return -1;
    return static_cast<int>(std::min(n, kMaxChannels));
}

bool channel(uint32_t cb, uint32_t index, const Read& read, uint32_t (&words)[7])
{
    const int n = upChannels(cb, read);
    if (n < 0 || index >= static_cast<uint32_t>(n))
        return false;
    return read(cb + kHeader + index * kChannelSize, words, sizeof words);
}

std::string channelName(uint32_t namePointer, const Read& read)
{
    char name[32] = {};
    if (namePointer == 0)
        return {};
    // One read where the target allows it; byte by byte near the end of memory.
    if (!read(namePointer, name, sizeof name - 1)) {
        for (uint32_t i = 0; i + 1 < sizeof name; ++i) {
            if (!read(namePointer + i, &name[i], 1))
                break;
        }
    }
    name[sizeof name - 1] = '\0';
    return std::string(name, strnlen(name, sizeof name));
}

bool describe(uint32_t cb, TARVO_QTX_CHANNEL_DESC& desc, const Read& read)
{
    uint32_t words[7];
    if (desc.Direction != TARVO_QTX_DIR_UP || desc.BufferIndex < 0
        || !channel(cb, static_cast<uint32_t>(desc.BufferIndex), read, words))
        return false;
    const std::string name = channelName(words[0], read);
    std::memset(desc.acName, 0, sizeof desc.acName);
    std::memcpy(desc.acName, name.data(), std::min(name.size(), sizeof desc.acName - 1));
    desc.SizeOfBuffer = words[2];
    desc.Flags = words[5];
    return true;
}

int drain(uint32_t cb, uint32_t index, char* dst, uint32_t max, const Read& read, const Write& write,
          const std::function<bool(uint32_t, uint32_t)>& valid)
{
    uint32_t ch[7];
    if (!channel(cb, index, read, ch))
        return -1;
    const uint32_t buffer = ch[1];
    const uint32_t size = ch[2];
    const uint32_t wr = ch[3];
    const uint32_t rd = ch[4];
    if (size == 0)
        return 0; // channel being set up
    if (wr >= size || rd >= size || (valid && !valid(buffer, size)))
        return -1;
    const uint32_t avail = wr >= rd ? wr - rd : size - rd + wr;
    const uint32_t n = std::min({avail, max, uint32_t(0x7FFFFFFF)});
    if (n == 0)
        return 0;
    const uint32_t first = std::min(n, size - rd);
    if (!read(buffer + rd, dst, first) || (n > first && !read(buffer, dst + first, n - first)))
        return -1;
    const uint32_t next = (rd + n) % size;
    if (!write(cb + kHeader + index * kChannelSize + 16, &next, 4))
        return -1;
    return static_cast<int>(n);
}

} // namespace sim::qtx
