#include "pipeline/input/baseline/baseline_start_points.h"

namespace velmox {
namespace {

using Paths = std::vector<StartPath>;

TEST(BaselineStartPoints, ThePatternsLiteralBeginning)
{
    const struct
    {
        const char *pattern;
        StartPath components;
    } rows[] = {
        {"\\\\registry\\\\machine\\\\software\\\\.*", {"registry", "machine", "software"}},
        {"\\\\registry\\\\machine\\\\soft.*\\\\x", {"registry", "machine"}},
        {"\\\\registry\\\\user\\\\", {"registry", "user", ""}},
        {"\\\\registry\\\\machine\\\\a\\\\?([^\\\\\r\n]+){0,1}", {"registry", "machine", "a"}},
        {"a\\\\\\\\b", {"a", "", "b"}},
        {"\\registry\\machine", {"\\registry\\machine"}},
        {".*", {}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(literalComponents(row.pattern), row.components) << row.pattern;
    }
}

TEST(BaselineStartPoints, AShorterPathCoversTheLongerOnesButForTheOneBehindADroppedOne)
{
    const StartPath a{"a"};
    const StartPath ab{"a", "b"};
    const StartPath ac{"a", "c"};
    const StartPath bc{"b", "c"};
    EXPECT_EQ(withoutCovered({ab, bc, a}), (Paths{a, bc}));
    EXPECT_EQ(withoutCovered({a, a}), (Paths{a}));
    EXPECT_EQ(withoutCovered({a, ab, ac}), (Paths{a, ac}));
    EXPECT_EQ(withoutCovered({ab, ac}), (Paths{ab, ac}));
}

} // namespace
} // namespace velmox
