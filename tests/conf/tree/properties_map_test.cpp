#include "conf/ground/conf_lock.h"
#include "conf/tree/properties_map.h"

#include <mutex>

namespace velmox {
namespace {

TEST(PropertiesMap, AnEmptyValueReadsLikeAMissingKey)
{
    PropertiesMap stanza;
    stanza.set("k", "first");
    stanza.set("k", "v");
    stanza.set("empty", "");
    for (const char *key : {"missing", "empty"}) {
        Str out = "untouched";
        EXPECT_FALSE(stanza.tryGet(key, out));
        EXPECT_EQ(out << stanza.get(key), "untouched");
    }
    Str out;
    EXPECT_TRUE(stanza.tryGet("k", out));
    EXPECT_EQ(out, "v");
}

TEST(PropertiesMap, Booleans)
{
    static constexpr struct
    {
        const char *text; ///< null for a missing key
        bool dfltFalse, dfltTrue, disabled;
    } kCases[] = {{"1", true, true, true},
                  {"No", false, false, false},
                  {"2", false, true, true},
                  {"", false, true, false},
                  {nullptr, false, true, false}};
    for (const auto &[text, dfltFalse, dfltTrue, disabled] : kCases) {
        PropertiesMap stanza;
        if (text != nullptr) {
            stanza.set("disabled", text);
        }
        EXPECT_EQ(stanza.getBool("disabled", false), dfltFalse);
        EXPECT_EQ(stanza.getBool("disabled", true), dfltTrue);
        EXPECT_EQ(stanza.isDisabled(), disabled);
    }
}

TEST(PropertiesMap, TheHighestLevelOfItsOwnSpeaksForAStanza)
{
    PropertiesMap stanza;
    stanza.self.app = "self";
    stanza.self.level = 2;
    stanza.self.originStanza = "s";
    stanza.properties["equal"] = {.level = 2, .app = "equal", .originStanza = "s"};
    stanza.properties["inherited"] = {.level = 9, .app = "inherited", .originStanza = "default"};
    EXPECT_EQ(stanza.appName(), "self");
    stanza.properties["higher"] = {.level = 3, .app = "higher", .originStanza = "s"};
    EXPECT_EQ(stanza.appName(), "higher");
    stanza.self.originStanza = "default";
    EXPECT_EQ(stanza.appName(), "inherited");
}

TEST(ConfLock, CountsWhatBreaksTheOrder)
{
#ifndef NDEBUG
    GTEST_SKIP() << "a debug build stops at the first";
#endif
    using enum ConfLockRank;
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
}

} // namespace
} // namespace velmox
