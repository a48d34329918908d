#include "conf/tree/stanza_expansion.h"
#include "util/environment.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(StanzaExpansion, MakesRelativePathsAbsolute)
{
    setEnvironmentVariable(u"VELMOX_TEST_NAME", u"v\u00E9$VELMOX_TEST_NAME");
    setEnvironmentVariable(u"VELMOX_TEST_UNSET", u"");
    struct Case
    {
        const char *name;
        const char *expansion;
    };
    const Case cases[] = {
        {"monitor://./logs", "monitor://C:\\app/logs"},
        {"monitor://.\\logs", "monitor://C:\\app\\logs"},
        {"monitor://\\logs", "monitor://C:\\applogs"},
        {"a://b://.", "a://b://C:\\app"},
        {"monitor://./$VELMOX_TEST_NAME/%VELMOX_TEST_NAME%${VELMOX_TEST_NAME}",
         "monitor://C:\\app/v\u00E9$VELMOX_TEST_NAME/v\u00E9$VELMOX_TEST_NAMEv\u00E9$VELMOX_TEST_NAME"},
        {"x://./$VELMOX_TEST_UNSET $ %% %VELMOX_TEST_NAME ${VELMOX_TEST_NAME",
         "x://C:\\app/$VELMOX_TEST_UNSET $ %% %VELMOX_TEST_NAME ${VELMOX_TEST_NAME"},
        {"monitor:///$VELMOX_TEST_NAME", ""},
        {"monitor://", ""},
        {"./logs", ""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(stanzaExpansion(c.name, Pathname(u"C:\\app")), c.expansion) << c.name;
    }
}

} // namespace
} // namespace velmox
