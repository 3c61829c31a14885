/* A firmware with three buffers of half a million words: a tree of that size
 * does not fit a small memory limit. */
int huge_a[500000];
int huge_b[500000];
int huge_c[500000];

int main(void)
{
    return huge_a[0] + huge_b[0] + huge_c[0];
}
