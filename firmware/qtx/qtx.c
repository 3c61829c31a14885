#include "qtx.h"

#include <string.h>

qtx_control_block qtx_cb;

#define QTX_BARRIER() __asm volatile("dmb" ::: "memory")

void qtx_init(void)
{
    /* The ID's first byte is written last: a probe that finds the ID sees a
     * complete block, and the flash image never holds the whole ID. */
    memset(&qtx_cb, 0, sizeof qtx_cb);
    qtx_cb.num_up = QTX_MAX_UP_CHANNELS;
    qtx_cb.num_down = 0;
    static const char tail[] = "LOTVIK QTX CB";
    memcpy(&qtx_cb.id[1], tail, sizeof tail);
    QTX_BARRIER();
    ((volatile char*)qtx_cb.id)[0] = 'P';
}

int qtx_config_up(unsigned index, const char* name, void* buffer, uint32_t size)
{
    if (index >= QTX_MAX_UP_CHANNELS || buffer == 0 || size < 2) {
        return -1;
    }
    qtx_channel* ch = &qtx_cb.up[index];
    ch->size = 0; /* a channel of size 0 is idle while it is being changed */
    QTX_BARRIER();
    ch->buffer = (uint8_t*)buffer;
    ch->wr_off = 0;
    ch->rd_off = 0;
    ch->dropped = 0;
    ch->flags = 0;
    ch->name = name;
    QTX_BARRIER();
    ch->size = size;
    return 0;
}

uint32_t qtx_write(unsigned index, const void* data, uint32_t len)
{
    if (index >= QTX_MAX_UP_CHANNELS) {
        return 0;
    }
    qtx_channel* ch = &qtx_cb.up[index];
    const uint32_t size = ch->size;
    if (size == 0) {
        return 0;
    }
    const uint32_t wr = ch->wr_off;
    const uint32_t rd = ch->rd_off;
    const uint32_t used = wr >= rd ? wr - rd : size - (rd - wr);
    const uint32_t room = size - 1 - used;
    if (len > room || len == 0) {
        if (len != 0) {
            ch->dropped = ch->dropped + 1;
        }
        return 0;
    }
    const uint8_t* src = (const uint8_t*)data;
    uint32_t first = size - wr;
    if (first > len) {
        first = len;
    }
    memcpy(ch->buffer + wr, src, first);
    memcpy(ch->buffer, src + first, len - first);
    QTX_BARRIER();
    uint32_t next = wr + len;
    if (next >= size) {
        next -= size;
    }
    ch->wr_off = next;
    return len;
}

uint32_t qtx_dropped(unsigned index)
{
    return index < QTX_MAX_UP_CHANNELS ? qtx_cb.up[index].dropped : 0;
}
