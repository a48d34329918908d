#include "conf/tree/conf_acl.h"
#include "conf/tree/stanza_expansion.h"
#include "util/environment.h"

namespace velmox {
namespace {

TEST(ConfAcl, EqualPermissionsAreOneObjectForAsLongAsItIsHeld)
{
    const ConfAclPtr acl = ConfAcl::parse("write:[b,A],read:[*]");
    ASSERT_TRUE(acl);
    EXPECT_EQ(acl->toStr(), "read : [ * ], write : [ a, b ]");
    EXPECT_EQ(ConfAcl::parse(acl->toStr()), acl);
    EXPECT_NE(ConfAcl::parse("read : [ * ]"), acl);
    EXPECT_EQ(ConfAcl::parse(""), ConfAcl::parse(" "));
    EXPECT_EQ(ConfAcl::parse("read : x"), nullptr);

    const std::weak_ptr<const ConfAcl> shortLived = ConfAcl::parse("list : [ x ]");
    EXPECT_TRUE(shortLived.expired());
    for (int i = 0; i < 200; ++i) {
        ConfAcl::parse(Str::fromFormat("read : [ role%d ]", i));
    }
    EXPECT_EQ(ConfAcl::parse("read : [ * ], write : [ a, b ]"), acl);
}

TEST(StanzaExpansion, MakesRelativePathsAbsolute)
{
    setEnvironmentVariable(u"VELMOX_TEST_NAME", u"v\u00E9$VELMOX_TEST_NAME");
    setEnvironmentVariable(u"VELMOX_TEST_UNSET", u"");
    static constexpr const char *kCases[][2] = {
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
    for (const auto &[name, expansion] : kCases) {
        EXPECT_EQ(stanzaExpansion(name, Pathname(u"C:\\app")), expansion) << name;
    }
}

} // namespace
} // namespace velmox
