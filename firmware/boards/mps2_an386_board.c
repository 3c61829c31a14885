/* Arm MPS2 with the AN386 image (Cortex-M4 at 25 MHz), as QEMU's mps2-an386
 * machine emulates it: the tick is SysTick on the core clock. */
#include "board.h"

#define CORE_CLOCK_HZ 25000000u

#define SYST_CSR (*(volatile uint32_t*)0xE000E010u)
#define SYST_RVR (*(volatile uint32_t*)0xE000E014u)
#define SYST_CVR (*(volatile uint32_t*)0xE000E018u)

static volatile uint32_t s_tick_ms;

void SysTick_Handler(void)
{
    s_tick_ms = s_tick_ms + 1u;
}

void board_init(void)
{
    SYST_RVR = CORE_CLOCK_HZ / 1000u - 1u;
    SYST_CVR = 0;
    /* Core clock, interrupt, enable. */
    SYST_CSR = 0x7u;
}

void board_wait_tick(uint32_t tick)
{
    while ((int32_t)(tick - s_tick_ms) > 0) {
        __asm volatile("wfi");
    }
}
