/* Test firmware: a QTX channel whose format names nothing the host can show
 * ("b2": a size without a type, and no time stamp). A host must start on it
 * and keep sampling without storing anything. The tick counter shows that
 * the target runs. */
#include "qtx.h"
#include "sim_target.h"

#include <stdint.h>

uint32_t g_ticks;

static uint8_t qtx_buffer[256];

int main(void)
{
    qtx_init();
    qtx_config_up(0, "Plotvik_b2", qtx_buffer, sizeof qtx_buffer);
    for (uint32_t t = 1;; ++t) {
        simt_sleep_until(t * 1000u);
        g_ticks = t;
    }
}
