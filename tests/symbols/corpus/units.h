// Classes with virtual functions: gcc writes each one's definition only in
// the unit that defines its first virtual function (units_base.cpp); the
// other unit (units_derived.cpp) gets declarations.
#include <stdint.h>

namespace app {
class Queue {
public:
    virtual void post(int e);
    uint16_t head = 0;
    uint16_t tail = 0;
    uint32_t used = 0;
};

class Outer {
public:
    class Nested {
    public:
        virtual void poll();
        int32_t level = 7;
    };
    virtual void run();
    uint8_t state = 1;
};

class Active : public Queue {
public:
    void post(int e) override;
    uint8_t prio = 3;
};
}  // namespace app

// Same class name in another namespace, of another size.
namespace other {
class Queue {
public:
    virtual void post(int e);
    uint8_t flag = 1;
    uint32_t slots[3] = {};
};
}  // namespace other
