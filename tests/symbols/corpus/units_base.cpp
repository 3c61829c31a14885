#include "units.h"

namespace app {
void Queue::post(int e) { used += static_cast<uint32_t>(e); }
void Outer::run() { ++state; }
void Outer::Nested::poll() { ++level; }
Queue base_queue;
}  // namespace app

void other::Queue::post(int e) { flag = static_cast<uint8_t>(e); }
