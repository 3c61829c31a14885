/* What the demo firmware needs from the board it runs on: a millisecond tick. */
#ifndef PLOTVIK_BOARD_H
#define PLOTVIK_BOARD_H

#include <stdint.h>

/* Starts the board's tick; tick 0 is now. */
void board_init(void);

/* Returns once the board's tick has reached `tick` milliseconds (compared
 * with wrap-around), sleeping meanwhile. */
void board_wait_tick(uint32_t tick);

#endif
