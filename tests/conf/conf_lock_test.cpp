#include "conf/conf_lock.h"

#include <gtest/gtest.h>
#include <mutex>

namespace velmox {
namespace {

TEST(ConfLock, CountsWhatBreaksTheOrder)
{
#ifndef NDEBUG
    GTEST_SKIP() << "a debug build stops at the first";
#endif
    const struct
    {
        ConfLockRank first;
        ConfLockRank second;
        unsigned violations;
    } cases[] = {
        {ConfLockRank::Mapper, ConfLockRank::Mapper, 1},
        {ConfLockRank::Mapper, ConfLockRank::Cache, 1},
        {ConfLockRank::Cache, ConfLockRank::Mapper, 0},
    };
    for (const auto &[first, second, violations] : cases) {
        const unsigned before = ConfLock::orderViolations();
        ConfLock outer(first);
        ConfLock inner(second);
        const std::lock_guard outerGuard(outer);
        const std::lock_guard innerGuard(inner);
        const std::lock_guard again(outer); // which blocks nobody
        EXPECT_EQ(ConfLock::orderViolations() - before, violations) << static_cast<int>(second);
    }
}

} // namespace
} // namespace velmox
