/* Minimal start-up for corpus images linked without the C library. */
extern int main(void);
void _start(void)
{
    main();
    for (;;) {
    }
}
