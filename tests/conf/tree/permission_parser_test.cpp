#include "conf/tree/permission_parser.h"
#include "tests/support/captured_log.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(PermissionParser, ReadsAndWritesPermissions)
{
    struct Case
    {
        const char *text;
        ConfAcl::Capabilities capabilities;
        const char *written;
    };
    const Case cases[] = {
        {"", {}, ""},
        {"  \t", {}, ""},
        {"read : [ admin, power ]", {{"read", {"admin", "power"}}}, "read : [ admin, power ]"},
        {"\tread:[*],write\t:\t[ADMIN] ",
         {{"read", {"*"}}, {"write", {"admin"}}},
         "read : [ * ], write : [ admin ]"},
        {"read : [ a ], read : [ b ]", {{"read", {"a", "b"}}}, "read : [ a, b ]"},
        {"read : [ a%2c%5D, b+c:[ ]", {{"read", {"a,]", "b c:["}}}, "read : [ a%2C%5D, b c%3A%5B ]"},
        {"read : [ b%2Bc, +%09d+ ]", {{"read", {"b+c", " \td "}}}, "read : [ %20\td%20, b%2Bc ]"},
        {"read : [ 100%25 ], ", {{"read", {"100%"}}}, "read : [ 100%25 ]"},
    };
    for (const Case &c : cases) {
        ConfAcl::Capabilities read;
        EXPECT_TRUE(parsePermissions(c.text, read)) << c.text;
        EXPECT_EQ(read, c.capabilities) << c.text;
        EXPECT_EQ(permissionText(read), c.written) << c.text;
        ConfAcl::Capabilities again;
        EXPECT_TRUE(parsePermissions(c.written, again)) << c.text;
        EXPECT_EQ(again, c.capabilities) << c.text;
    }
}

TEST(PermissionParser, TellsWhereItFailed)
{
    struct Case
    {
        const char *text;
        const char *warning;
    };
    const Case cases[] = {
        {"read : x", "Permission parsing failed at 7 in string: read : x"},
        {"read : [ a ] x", "Permission parsing failed at 13 in string: read : [ a ] x"},
        {"read :", "Parsing found an incomplete permission string [1]: read :"},
        {"read : [ a, b", "Parsing found an incomplete permission string [2]: read : [ a, b"},
        {"read : [ a ], bad", "Unparsed terminating characters ' bad' in: read : [ a ], bad"},
        {"read [ a ]", "Unparsed terminating characters 'read [ a ]' in: read [ a ]"},
    };
    for (const Case &c : cases) {
        const testing::CapturedLog log;
        ConfAcl::Capabilities read;
        EXPECT_FALSE(parsePermissions(c.text, read)) << c.text;
        EXPECT_EQ(log.text(), Str("WARN ConfAcl: ") << c.warning << "\n");
    }
}

TEST(PermissionParser, LeavesOutARoleThatIsNoText)
{
    const testing::CapturedLog log;
    ConfAcl::Capabilities read;
    EXPECT_TRUE(parsePermissions("read : [ %ff, a ]", read));
    EXPECT_EQ(read, (ConfAcl::Capabilities{{"read", {"a"}}}));
    EXPECT_EQ(log.text(), "ERROR ConfAcl: Cannot decode role: %ff\n");
}

} // namespace
} // namespace velmox
