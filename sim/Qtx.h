// The QTX control block as the firmware library lays it out in target RAM
// (firmware/qtx/qtx.h), read and drained through any memory access: the
// simulated target's or a GDB server's.
#pragma once

#include "probe/TarvoApi.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace sim::qtx {

constexpr char kId[16] = "PLOTVIK QTX CB";
constexpr uint32_t kHeader = 24;      // id, num_up, num_down
constexpr uint32_t kChannelSize = 28; // name, buffer, size, wr_off, rd_off, flags, dropped
constexpr uint32_t kMaxChannels = 16;

using Read = std::function<bool(uint32_t address, void* dst, uint32_t size)>;
using Write = std::function<bool(uint32_t address, const void* src, uint32_t size)>;
using Ranges = std::vector<std::pair<uint32_t, uint32_t>>; // address, size

// Finds the control block (word-aligned) in the ranges: its address, 0 = none.
// Ranges are read in pieces of at most `chunk` bytes; a piece that cannot
// be read ends the search of its range.
uint32_t scan(const Ranges& ranges, const Read& read, uint32_t chunk = 0xFFFFFFFFu);

// Channels of a direction (TARVO_QTX_DIR_UP or _DOWN) the block at `cb`
// announces, at most kMaxChannels; -1 = unreadable or no such direction.
int channels(uint32_t cb, uint32_t direction, const Read& read);
inline int upChannels(uint32_t cb, const Read& read) { return channels(cb, TARVO_QTX_DIR_UP, read); }

// The seven words of up-channel `index`; false when it does not exist.
bool channel(uint32_t cb, uint32_t index, const Read& read, uint32_t (&words)[7]);

// The channel's name, read from the target (at most 31 characters).
std::string channelName(uint32_t namePointer, const Read& read);

// Fills the name, size and flags of the up-channel `desc` asks for; false
// when it asks for a down-channel or a channel that does not exist, or the
// target cannot be read.
bool describe(uint32_t cb, TARVO_QTX_CHANNEL_DESC& desc, const Read& read);

// Moves up to `max` bytes out of up-channel `index` and advances its read
// offset: bytes moved, or -1 when the channel is broken or unreadable.
// `valid` vets the ring buffer's range before it is read.
int drain(uint32_t cb, uint32_t index, char* dst, uint32_t max, const Read& read, const Write& write,
          const std::function<bool(uint32_t, uint32_t)>& valid = {});

} // namespace sim::qtx
