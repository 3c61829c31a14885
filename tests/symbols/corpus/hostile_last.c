/* The unit after the damaged one: still found. */
int intact_after_broken = 5;
struct intact_late {
    unsigned char x;
    unsigned short y;
} intact_late;
