/* A firmware with a buffer of one and a half million words: a tree of that size does
 * not fit a small memory limit. */
int huge_buffer[1500000];

int main(void)
{
    return huge_buffer[0];
}
