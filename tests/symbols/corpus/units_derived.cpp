#include "units.h"

namespace app {
void Active::post(int e)
{
    prio = static_cast<uint8_t>(e);
    Queue::post(e);
}

struct Holder {
    Queue queue;
    Outer::Nested nested;
    Queue pair[2];
    uint8_t tag = 9;
};

Active active;
Holder holder;
Queue lone;
}  // namespace app

other::Queue other_queue;

int main()
{
    for (;;)
        app::active.post(1);
}

extern "C" void _start()
{
    main();
    for (;;) {
    }
}
