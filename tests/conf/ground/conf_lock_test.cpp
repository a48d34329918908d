#include "conf/ground/conf_lock.h"
#include "tests/support/captured_log.h"

#include <mutex>

namespace velmox {
namespace {

TEST(ConfLock, CountsWhatBreaksTheOrder)
{
    using enum ConfLockRank;
    const testing::CapturedLog log;
    for (const auto &[first, second, violations] :
         {std::tuple(Mapper, Mapper, 1u), {Mapper, Cache, 1u}, {Cache, Mapper, 0u}}) {
        const unsigned before = ConfLock::orderViolations();
        ConfLock outer(first);
        ConfLock inner(second);
        const std::lock_guard outerGuard(outer);
        const std::lock_guard innerGuard(inner);
        const std::lock_guard again(outer); // which blocks nobody
        EXPECT_EQ(ConfLock::orderViolations() - before, violations) << static_cast<int>(second);
    }
    EXPECT_EQ(log.text(), "ERROR ConfLock: Lock of rank 70 taken while holding one of rank 70\n"
                          "ERROR ConfLock: Lock of rank 20 taken while holding one of rank 70\n");
}

} // namespace
} // namespace velmox
