/* Every shape the symbol tree handles, for the C compiler. */
#include "shapes.h"

#include <stdbool.h>

int plain_int = 1;
unsigned int plain_uint = 2;
char plain_char = 'c';
signed char schar = -1;
unsigned char uchar = 1;
short sshort = -2;
unsigned short ushort = 2;
long slong = -3;
float fvalue = 1.5f;
double dvalue = 2.5;
int64_t s64 = -64;
uint64_t u64 = 64;
_Bool cbool = 1;
bool cbool2 = 1;
word_t word_value = 7;
reg16_t chained = 8;
vreg16_t vchained = 9;
const int const_int = 10;
volatile int volatile_int = 11;

int m[2][3] = {{1, 2, 3}, {4, 5, 6}};
uint8_t cube[2][2][2];
struct inner s[3] = {{1, 2}, {3, 4}, {5, 6}};
struct outer nested = {{1, 2}, {{3, 4}, {5, 6}}, {0x01020304}, 1.0};
struct flags12 bits = {1, 2, -3, 4, 5};
union {
    float f;
    uint32_t raw;
} anon_union;

enum color { RED, GREEN, BLUE };
enum color color_value = GREEN;

int* int_ptr = &plain_int;
const char* const_char_ptr = "text";
char* const char_const_ptr = 0;
void* void_ptr = 0;
const void* const_void_ptr = 0;
int* volatile volatile_ptr = 0;
int* __restrict restrict_ptr = 0;
struct inner* struct_ptr = &s[1];
void (*func_ptr)(int, char) = 0;

/* A 34-level nesting. */
#define LEVEL(n, m) struct l##n { int v; struct l##m next; };
struct l34 { int v; };
LEVEL(33, 34) LEVEL(32, 33) LEVEL(31, 32) LEVEL(30, 31) LEVEL(29, 30) LEVEL(28, 29) LEVEL(27, 28)
LEVEL(26, 27) LEVEL(25, 26) LEVEL(24, 25) LEVEL(23, 24) LEVEL(22, 23) LEVEL(21, 22) LEVEL(20, 21)
LEVEL(19, 20) LEVEL(18, 19) LEVEL(17, 18) LEVEL(16, 17) LEVEL(15, 16) LEVEL(14, 15) LEVEL(13, 14)
LEVEL(12, 13) LEVEL(11, 12) LEVEL(10, 11) LEVEL(9, 10) LEVEL(8, 9) LEVEL(7, 8) LEVEL(6, 7)
LEVEL(5, 6) LEVEL(4, 5) LEVEL(3, 4) LEVEL(2, 3) LEVEL(1, 2)
struct l1 deep;

__attribute__((used)) static int file_static = 5;

__attribute__((noinline)) int tick(int step)
{
    static volatile int calls;  /* function-local static */
    int local = step * 2;       /* automatic: never in the tree */
    calls += local;
    return calls;
}

int main(void)
{
    for (;;)
        tick(header_counter + file_static);
}
