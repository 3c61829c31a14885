/* Types shared by the C corpus; one variable is defined here so that its
   declaring file is this header. */
#ifndef SHAPES_H
#define SHAPES_H

#include <stdint.h>

typedef uint16_t word_t;
typedef word_t reg16_t;            /* typedef chain */
typedef volatile reg16_t vreg16_t; /* and a qualifier in the chain */

struct inner {
    int8_t a;
    int32_t b;
};

struct outer {
    struct inner in;
    struct inner pair[2];
    union {
        uint32_t word;
        uint8_t bytes[4];
    } u;
    double d;
};

struct flags12 { /* 12 bytes with bit-fields */
    uint32_t mode : 3;
    uint32_t level : 5;
    int32_t delta : 7;
    uint32_t word;
    uint16_t tail : 9;
};

__attribute__((used)) static int header_counter = 3;

#endif
