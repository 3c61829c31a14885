// The C++ half of linked_out.c: namespace members by their linkage names,
// and function statics.
#include <stdint.h>

#if VECTORS == 3
namespace boot {
extern const uint32_t vectors[4];
__attribute__((section(".vectors"), used)) const uint32_t vectors[4] = {0x20010000u, 0x101u, 0, 0};
}  // namespace boot
#endif

namespace gc {
uint32_t kept_ns = 1;
uint32_t dropped_ns = 2;
struct Config {
    uint16_t rate;
    uint8_t mode;
};
Config dropped_config;

int unused_member(int x)
{
    static int count;
    count += x;
    return count + static_cast<int>(dropped_ns) + dropped_config.rate;
}

int used_member(int x)
{
    static int seen;
    seen += x;
    return seen + static_cast<int>(kept_ns);
}
}  // namespace gc

extern "C" int cpp_entry(int x) { return gc::used_member(x); }
