/* QTX: up-channels from the firmware to the host through a control block in
 * target RAM that the debug probe finds and drains while the target runs.
 *
 * Layout (little-endian, 32-bit words), found by its 16-byte ID:
 *   offset  0: char id[16]          "PLOTVIK QTX CB" padded with NULs
 *   offset 16: uint32 num_up        number of up-channels that follow
 *   offset 20: uint32 num_down      number of down-channels (0: none yet)
 *   offset 24: qtx_channel up[num_up], 28 bytes each:
 *     +0 name pointer, +4 buffer pointer, +8 size, +12 wr_off, +16 rd_off,
 *     +20 flags, +24 dropped
 * The firmware only advances wr_off, the probe only advances rd_off; the ring
 * is empty when they are equal and holds at most size - 1 bytes.
 */
#ifndef PLOTVIK_QTX_H
#define PLOTVIK_QTX_H

#include <stdint.h>

#ifndef QTX_MAX_UP_CHANNELS
#define QTX_MAX_UP_CHANNELS 2
#endif

#define QTX_ID "PLOTVIK QTX CB"
#define QTX_NAME_MAX 32

typedef struct qtx_channel {
    const char* name;
    uint8_t* buffer;
    uint32_t size;
    volatile uint32_t wr_off;
    volatile uint32_t rd_off;
    uint32_t flags;
    volatile uint32_t dropped;
} qtx_channel;

typedef struct qtx_control_block {
    char id[16];
    uint32_t num_up;
    uint32_t num_down;
    qtx_channel up[QTX_MAX_UP_CHANNELS];
} qtx_control_block;

extern qtx_control_block qtx_cb;

/* Sets up the control block; call once before any other qtx_ function. */
void qtx_init(void);

/* Gives up-channel `index` a name (at most 31 characters, kept by pointer)
 * and a ring buffer. Returns 0, or -1 for a bad index or a buffer below 2 bytes. */
int qtx_config_up(unsigned index, const char* name, void* buffer, uint32_t size);

/* Writes one record into up-channel `index`. Never blocks: when the record
 * does not fit whole, nothing is written, the drop counter grows and 0 is
 * returned; otherwise `len` is returned. */
uint32_t qtx_write(unsigned index, const void* data, uint32_t len);

/* Records dropped so far on up-channel `index`. */
uint32_t qtx_dropped(unsigned index);

#endif
