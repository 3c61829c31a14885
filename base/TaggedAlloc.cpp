#include "base/TaggedAlloc.h"

#include "base/Report.h"
#include "base/Text.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace alloc {
namespace {

// Header in front of each block in checking mode. Kept 16-byte aligned so the
// payload keeps malloc's alignment.
struct alignas(16) Header {
    std::uint32_t signature;
    std::size_t size;
    const char* tag;
    Header* prev;
    Header* next;
};

bool g_checking = false;
std::mutex g_listMutex;
Header* g_first = nullptr;

void reportFailure(std::size_t size)
{
    report::error(text::format(256, "Failed to allocate 0x%.8X bytes of memory!", static_cast<unsigned>(size)));
}

}  // namespace

void setChecking(bool on) { g_checking = on; }
bool checking() { return g_checking; }

void* allocate(std::size_t size, const char* tag)
{
    if (!g_checking) {
        void* p = std::calloc(1, size ? size : 1);
        if (!p)
            reportFailure(size);
        return p;
    }
    auto* raw = static_cast<unsigned char*>(std::malloc(sizeof(Header) + size + kGuardBytes));
    if (!raw) {
        reportFailure(size);
        return nullptr;
    }
    auto* h = reinterpret_cast<Header*>(raw);
    h->signature = kSignature;
    h->size = size;
    h->tag = tag ? tag : "";
    unsigned char* payload = raw + sizeof(Header);
    std::memset(payload, 0, size);
    std::memset(payload + size, kGuardFill, kGuardBytes);
    std::lock_guard lock(g_listMutex);
    h->prev = nullptr;
    h->next = g_first;
    if (g_first)
        g_first->prev = h;
    g_first = h;
    return payload;
}

void release(void* block)
{
    if (!block)
        return;
    if (!g_checking) {
        std::free(block);
        return;
    }
    auto* payload = static_cast<unsigned char*>(block);
    auto* h = reinterpret_cast<Header*>(payload - sizeof(Header));
    if (h->signature != kSignature) {
        report::error("Wrong alloc signature in memory block !");
        return;  // not ours: freeing it could corrupt the heap
    }
    int overflowed = 0;
    for (std::size_t i = 0; i < kGuardBytes; ++i)
        if (payload[h->size + i] != kGuardFill)
            overflowed = static_cast<int>(i) + 1;
    if (overflowed)
        report::error(text::format(256, "Buffer overflow in memory block. %d bytes overflowed.", overflowed));
    {
        std::lock_guard lock(g_listMutex);
        if (h->prev)
            h->prev->next = h->next;
        else
            g_first = h->next;
        if (h->next)
            h->next->prev = h->prev;
    }
    std::memset(payload, kGuardFill, h->size);
    h->signature = 0;
    std::free(h);
}

std::vector<LiveBlock> liveBlocks()
{
    std::vector<LiveBlock> out;
    std::lock_guard lock(g_listMutex);
    for (Header* h = g_first; h; h = h->next)
        out.push_back({h->tag, h->size});
    return out;
}

}  // namespace alloc
