// Allocation of the program's large blocks (job records, sample buffers, the
// ELF image, the message-box work buffer). Each block carries a tag naming
// its use; a failed allocation tells the user once and yields nothing.
// The checking mode surrounds blocks with a signature and guard bytes and
// reports damage when a block is released.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace alloc {

inline constexpr std::uint32_t kSignature = 0xDEADBEEF;
inline constexpr std::size_t kGuardBytes = 32;
inline constexpr unsigned char kGuardFill = 0xCE;

// Zero-filled block of `size` bytes, or nullptr after showing
// "Failed to allocate 0x%.8X bytes of memory!" captioned "Error".
void* allocate(std::size_t size, const char* tag);
void release(void* block);

// Checking mode: must be switched before the first allocation.
void setChecking(bool on);
bool checking();

struct LiveBlock {
    std::string tag;
    std::size_t size;
};
// Blocks currently allocated (checking mode only; empty otherwise).
std::vector<LiveBlock> liveBlocks();

struct Releaser {
    void operator()(void* p) const { release(p); }
};
// Owning handle for a tagged block of trivially copyable T.
template <typename T>
using Block = std::unique_ptr<T[], Releaser>;

template <typename T>
Block<T> make(std::size_t count, const char* tag)
{
    return Block<T>(static_cast<T*>(allocate(count * sizeof(T), tag)));
}

}  // namespace alloc
