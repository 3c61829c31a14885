#include "base/Clock.h"

#include <chrono>

namespace clk {

std::uint64_t microseconds()
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<std::chrono::microseconds>(steady_clock::now().time_since_epoch()).count());
}

std::uint64_t milliseconds() { return microseconds() / 1000; }

}  // namespace clk
