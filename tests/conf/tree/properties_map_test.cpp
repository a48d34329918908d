#include "conf/tree/properties_map.h"

namespace velmox {
namespace {

TEST(PropertiesMap, AnEmptyValueReadsLikeAMissingKey)
{
    PropertiesMap stanza;
    stanza.set("k", "first");
    stanza.set("k", "v");
    stanza.set("empty", "");
    Str out = "untouched";
    EXPECT_FALSE(stanza.tryGet("missing", out) || stanza.tryGet("empty", out));
    EXPECT_EQ(out << stanza.get("missing"), "untouched");
    EXPECT_TRUE(stanza.tryGet("k", out));
    EXPECT_EQ(out, "v");
}

TEST(PropertiesMap, WhatIsNoBooleanDisablesAStanza)
{
    PropertiesMap stanza;
    EXPECT_FALSE(stanza.isDisabled());
    EXPECT_TRUE(stanza.getBool("disabled", true));
    for (const auto &[text, disabled] : {std::pair{"1", true}, {"No", false}, {"2", true}, {"", false}}) {
        stanza.set("disabled", text);
        EXPECT_EQ(stanza.isDisabled(), disabled) << text;
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

} // namespace
} // namespace velmox
