#include "util/time/clock.h"

#include "util/system/windows_api.h"

namespace velmox {

namespace {

class TickClock : public Clock
{
public:
    std::uint64_t milliseconds() override { return GetTickCount64(); }
};

} // namespace

Clock &Clock::system()
{
    static TickClock clock;
    return clock;
}

} // namespace velmox
