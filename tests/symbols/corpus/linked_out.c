/* Linked with --gc-sections: what nothing uses is removed, yet its debug
   information stays, at address 0. The vector table really is at 0, as a
   file-scope variable (VECTORS 1), a function's static (2) or a C++
   namespace member (3, in linked_out.cpp). */
#include <stdint.h>

extern int cpp_entry(int x);

#if VECTORS == 1
__attribute__((section(".vectors"), used)) const uint32_t vector_table[4] = {0x20010000u, 0x101u, 0, 0};
#elif VECTORS == 2
const uint32_t* boot_vectors(void)
{
    __attribute__((section(".vectors"), used)) static const uint32_t table[4] = {0x20010000u, 0x101u, 0, 0};
    return table;
}
#endif

uint32_t kept_counter;
uint32_t dropped_counter;
struct pair {
    uint16_t a, b;
};
struct pair dropped_pair[3];
static uint8_t dropped_static = 4;
static uint8_t kept_static = 5;

int unused_fn(int x)
{
    static int calls;
    calls += x + dropped_static;
    return calls + (int)dropped_counter + dropped_pair[0].a;
}

int used_fn(int x)
{
    static int hits;
    hits += x + kept_static;
    return hits;
}

int main(void)
{
    for (;;)
        kept_counter += (uint32_t)(used_fn(1) + cpp_entry(2));
}
