#include "conf/properties_map.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(PropertiesMap, AnEmptyValueReadsLikeAMissingKey)
{
    PropertiesMap stanza;
    stanza.set("k", "first");
    stanza.set("k", "v");
    stanza.set("empty", "");
    EXPECT_EQ(stanza.get("k"), "v");
    EXPECT_EQ(stanza.get("missing"), "");
    Str out = "untouched";
    EXPECT_FALSE(stanza.tryGet("missing", out));
    EXPECT_FALSE(stanza.tryGet("empty", out));
    EXPECT_EQ(out, "untouched");
    EXPECT_TRUE(stanza.tryGet("k", out));
    EXPECT_EQ(out, "v");
}

TEST(PropertiesMap, Booleans)
{
    struct Case
    {
        const char *text;
        bool dfltFalse, dfltTrue, disabled;
    };
    for (const Case &c : {Case{"1", true, true, true}, Case{"No", false, false, false},
                          Case{"2", false, true, true}, Case{"", false, true, false}}) {
        PropertiesMap stanza;
        stanza.set("disabled", c.text);
        EXPECT_EQ(stanza.getBool("disabled", false), c.dfltFalse) << c.text;
        EXPECT_EQ(stanza.getBool("disabled", true), c.dfltTrue) << c.text;
        EXPECT_EQ(stanza.isDisabled(), c.disabled) << c.text;
    }
    EXPECT_TRUE(PropertiesMap().getBool("missing", true));
    EXPECT_FALSE(PropertiesMap().isDisabled());
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

} // namespace
} // namespace velmox
