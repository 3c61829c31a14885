/* Raw material for the damaged corpus: the generator (HostileElf.cpp) rewires
 * the debug information of the variables below that are not named intact_*. */

/* left and right become the structure itself: it contains itself twice. */
struct knot {
    int left;
    int right;
    int value;
};
struct knot knot_var;

/* loop_t comes to name itself; ring_t comes to name the const before it. */
typedef int loop_t;
loop_t looped;
loop_t looped_array[4];
typedef int ring_t;
const ring_t ring = 3;

/* Bounds raised: past the 32-bit address space, and past every node budget. */
unsigned char wide[70000];
unsigned int bulk[70000];

/* Type references that come to point past the unit, or into its header. */
int dangling_far;
int dangling_near;
struct holder {
    int kept;
    int lost;
} holder_var;

/* A zero-length array (a GNU extension): an ordinary row, not a cut one. */
int empty_run[0];

int intact_counter = 1;
struct intact_pair {
    int a;
    short b;
} intact_pair;
int intact_table[4];
float intact_gain = 0.5f;

int main(void)
{
    return intact_counter + knot_var.value + looped + ring + wide[0] + (int)bulk[0] + dangling_far + dangling_near +
           holder_var.kept + looped_array[0];
}
