// Every C++ shape the symbol tree handles: namespaces, classes with bases,
// static members, bool, function-local statics.
#include <stdint.h>

namespace motor {
int speed = 5;
namespace detail {
uint32_t ticks = 6;
}
}  // namespace motor

class Base {
public:
    int32_t id = 1;
    uint8_t kind = 2;
};

class Derived : public Base {
public:
    float gain = 0.5f;
    static int instances;
    bool enabled = true;
};
int Derived::instances = 4;

struct Point {
    int16_t x, y;
};

class Shape {
public:
    Point corners[2][2];
    Derived part;
};

struct Flags {
    uint8_t on : 1;
    uint8_t mode : 3;
    int8_t level : 4;
};

Derived derived;
Shape shape;
Flags flags = {1, 2, -3};
bool cpp_bool = true;
int64_t big = -1;
uint64_t ubig = 1;
double ratio = 0.25;
const volatile int* cv_ptr = nullptr;
typedef Point point_t;
point_t points[4];

__attribute__((noinline)) int counter(int step)
{
    static int total;  // function-local static
    total += step;
    return total;
}

int main()
{
    for (;;)
        counter(motor::speed + static_cast<int>(motor::detail::ticks));
}
