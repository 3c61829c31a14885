/* The simulated target: the tick is the probe library's microsecond timer. */
#include "board.h"
#include "sim_target.h"

void board_init(void) {}

void board_wait_tick(uint32_t tick)
{
    simt_sleep_until(tick * 1000u);
}
