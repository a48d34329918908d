#include "conf/tree/conf_acl.h"

namespace velmox {
namespace {

TEST(PermissionParser, ReadsAndWritesPermissions)
{
    const std::tuple<const char *, ConfAcl::Capabilities, const char *> cases[] = {
        {"", {}, ""},
        {"read : [ admin, power ]", {{"read", {"admin", "power"}}}, "read : [ admin, power ]"},
        {"\tread:[*],write\t:\t[ADMIN] ",
         {{"read", {"*"}}, {"write", {"admin"}}},
         "read : [ * ], write : [ admin ]"},
        {"read : [ a ], read : [ b ]", {{"read", {"a", "b"}}}, "read : [ a, b ]"},
        {"read : [ a%2c%5D, b+c:[ ]", {{"read", {"a,]", "b c:["}}}, "read : [ a%2C%5D, b c%3A%5B ]"},
        {"read : [ b%2Bc, +%09d+ ]", {{"read", {"b+c", " \td "}}}, "read : [ %20\td%20, b%2Bc ]"},
        {"read : [ 100%25 ], ", {{"read", {"100%"}}}, "read : [ 100%25 ]"},
    };
    for (const auto &[text, capabilities, written] : cases) {
        ConfAcl::Capabilities read;
        EXPECT_TRUE(parsePermissions(text, read)) << text;
        EXPECT_EQ(read, capabilities) << text;
        EXPECT_EQ(permissionText(read), written) << text;
    }
}

TEST(PermissionParser, TellsWhereItFailed)
{
    static constexpr const char *kCases[][2] = {
        {"read : x", "Permission parsing failed at 7 in string: read : x"},
        {"read :", "Parsing found an incomplete permission string [1]: read :"},
        {"read : [ a, b", "Parsing found an incomplete permission string [2]: read : [ a, b"},
        {"read [ a ]", "Unparsed terminating characters 'read [ a ]' in: read [ a ]"},
    };
    ConfAcl::Capabilities read;
    for (const auto &[text, warning] : kCases) {
        const CapturedLog log;
        EXPECT_FALSE(parsePermissions(text, read)) << text;
        EXPECT_EQ(log.text(), Str("WARN ConfAcl: ") << warning << "\n");
    }
    // A role that is no text is left out.
    const CapturedLog log;
    read.clear();
    EXPECT_TRUE(parsePermissions("read : [ %ff, a ]", read));
    EXPECT_EQ(read, (ConfAcl::Capabilities{{"read", {"a"}}}));
    EXPECT_EQ(log.text(), "ERROR ConfAcl: Cannot decode role: %ff\n");
}

TEST(ConfAcl, EqualPermissionsAreOneObjectForAsLongAsItIsHeld)
{
    const ConfAclPtr acl = ConfAcl::parse("write:[b,A],read:[*]");
    ASSERT_TRUE(acl);
    for (int i = 0; i < 200; ++i) { // of which none is held
        EXPECT_NE(ConfAcl::parse(Str::fromFormat("read : [ role%d ]", i)), acl);
    }
    EXPECT_EQ(ConfAcl::parse(acl->toStr()), acl);
    EXPECT_EQ(ConfAcl::parse("read : x"), nullptr);
    const std::weak_ptr<const ConfAcl> shortLived = ConfAcl::parse("list : [ x ]");
    EXPECT_TRUE(shortLived.expired());
}

} // namespace
} // namespace velmox
