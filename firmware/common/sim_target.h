/* Peripherals of the simulated target that the stand-in probe library emulates. */
#ifndef PLOTVIK_SIM_TARGET_H
#define PLOTVIK_SIM_TARGET_H

#include <stdint.h>

/* Microsecond timer of target time (time advances with executed
 * instructions at the core clock, and while the core sleeps). */
#define SIMT_BASE 0x40000000u
/* Target time in microseconds, low 32 bits. Reading it latches the high word. */
#define SIMT_TIME_US (*(volatile uint32_t*)(SIMT_BASE + 0x0u))
/* High 32 bits of the time latched by the last read of SIMT_TIME_US. */
#define SIMT_TIME_US_HI (*(volatile uint32_t*)(SIMT_BASE + 0x4u))
/* Writing a time (low 32 bits, microseconds) lets the core sleep until the
 * timer reaches it; a time already passed returns at once. */
#define SIMT_SLEEP_UNTIL (*(volatile uint32_t*)(SIMT_BASE + 0x8u))
/* Core clock in Hz. */
#define SIMT_CLOCK_HZ (*(volatile uint32_t*)(SIMT_BASE + 0xCu))

static inline uint32_t simt_now_us(void) { return SIMT_TIME_US; }

static inline uint64_t simt_now_us64(void)
{
    uint32_t lo = SIMT_TIME_US;
    return ((uint64_t)SIMT_TIME_US_HI << 32) | lo;
}

/* Sleeps until the target time reaches `us` (compared with wrap-around). */
static inline void simt_sleep_until(uint32_t us)
{
    while ((int32_t)(us - SIMT_TIME_US) > 0) {
        SIMT_SLEEP_UNTIL = us;
    }
}

#endif
