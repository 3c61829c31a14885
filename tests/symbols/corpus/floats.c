/* Floating-point variables behind qualifiers and typedef names. */
typedef float gain_t;
typedef volatile gain_t shared_gain_t;

volatile float isr_level = 1.5f;
const float calibration = 2.5f;
gain_t gain = 3.5f;
shared_gain_t shared_gain = 4.5f;
double plain_double = 5.5;
const volatile double cv_double = 6.5;
float plain_float = 7.5f;
volatile int isr_count = 8;
struct filter {
    volatile float state;
    const float coefficients[2];
} filter = {0.0f, {0.25f, 0.75f}};

/* No float arithmetic: the image links without a C library. */
int main(void) { return isr_count; }
