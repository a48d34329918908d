#include "pipeline/input/reg_key.h"
#include "tests/pipeline/input/registry_test_key.h"

using namespace velmox;

namespace {

TEST(RegKey, ReadsOneKey)
{
    RegistryTestKey test;
    test.create(u"sub");
    test.create(u"longer name");
    test.setNumber(u"", u"number", 42);

    RegKey key(HKEY_CURRENT_USER, u"HKCU", u"test", test.path());
    ASSERT_TRUE(key.open(KEY_READ));
    DWORD count = 0;
    DWORD longest = 0;
    EXPECT_TRUE(key.queryHiveInfo(count, longest));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(longest, 11u);

    Str name;
    EXPECT_TRUE(key.enumKeyAtIndex(0, longest + 1, name));
    EXPECT_EQ(name, "longer name");
    EXPECT_TRUE(key.enumKeyAtIndex(1, longest + 1, name));
    EXPECT_EQ(name, "sub");
    EXPECT_TRUE(key.enumKeyAtIndex(0, 3, name));
    EXPECT_LE(name.size(), 3u);
    EXPECT_FALSE(key.enumKeyAtIndex(2, longest + 1, name));

    DWORD number = 0;
    DWORD type = 0;
    DWORD length = sizeof number;
    EXPECT_TRUE(key.queryValue(u"number", &type, reinterpret_cast<BYTE *>(&number), &length));
    EXPECT_EQ(number, 42u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_FALSE(key.queryValue(u"missing", &type, reinterpret_cast<BYTE *>(&number), &length));
}

TEST(RegKey, OpensARootItselfAndReportsAMissingKey)
{
    RegKey root(HKEY_CURRENT_USER, u"HKCU", u"", u"");
    EXPECT_TRUE(root.open(KEY_READ));
    DWORD count = 0;
    DWORD longest = 0;
    EXPECT_TRUE(root.queryHiveInfo(count, longest));
    EXPECT_GT(count, 0u);

    RegKey missing(HKEY_CURRENT_USER, u"HKCU", u"missing", u"Software\\VelmoxTest-missing");
    EXPECT_FALSE(missing.open(KEY_READ));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(missing.queryHiveInfo(count, longest));
}

} // namespace
