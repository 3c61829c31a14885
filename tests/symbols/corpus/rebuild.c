/* One firmware in two builds for the re-matching tests. The rebuild puts a
 * new variable in front (every later address moves) and turns `counter`
 * from int into long (same size, another type). */
#include <stdint.h>

#ifdef REBUILT
int inserted;
long counter;
#else
int counter;
#endif
unsigned short level;
struct position {
    int x;
    float y;
} pos;
int samples[4];
uint64_t total;

int main(void)
{
    counter++;
    level++;
    pos.x++;
    samples[1]++;
    total++;
    return 0;
}
