#include "pipeline/input/rules/hive_names.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

constexpr char16_t kUser[] = u"\\REGISTRY\\User\\S-1-5-21-7";

class HiveNamesTest : public ::testing::Test
{
protected:
    HiveNamesTest() { names_.fill(kUser); }

    HiveNames names_;
};

TEST_F(HiveNamesTest, TranslatesTheFirstComponentAlone)
{
    const std::pair<const char16_t *, const char16_t *> rows[] = {
        {uR"(HKLM\\Software\\Microsoft)", uR"(\\REGISTRY\\MACHINE\\Software\\Microsoft)"},
        {uR"(HKEY_USERS\\.*)", uR"(\\REGISTRY\\USER\\.*)"},
        {uR"(HKCU\\X)", uR"(\\REGISTRY\\User\\S-1-5-21-7\\X)"},
        {u"HKCC", uR"(\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current)"},
        {uR"(HKLM\Software)", uR"(\\REGISTRY\\MACHINE\Software)"},
        {uR"(hklm\\software)", uR"(hklm\\software)"},
        {uR"(HKLMX\\a)", uR"(HKLMX\\a)"},
        {uR"(\\REGISTRY\\MACHINE\\a)", uR"(\\REGISTRY\\MACHINE\\a)"},
        {uR"(\HKLM\\a)", uR"(\HKLM\\a)"},
        {u"", u""},
    };
    for (const auto &[hive, expected] : rows) {
        WideStr text = hive;
        names_.translateHiveRoot(text);
        EXPECT_EQ(text, expected);
    }
}

TEST_F(HiveNamesTest, ShortensTheLongestRootOnce)
{
    const std::pair<const char16_t *, const char16_t *> rows[] = {
        {uR"(\REGISTRY\MACHINE\Software)", uR"(HKLM\Software)"},
        {uR"(\REGISTRY\User\S-1-5-21-7\Software)", uR"(HKCU\Software)"},
        {uR"(\REGISTRY\USER\.DEFAULT)", uR"(HKU\.DEFAULT)"},
        {uR"(\REGISTRY\MACHINE\SYSTEM\CurrentControlSet\Hardware Profiles\Current\a)", uR"(HKCC\a)"},
        {uR"(HKEY_LOCAL_MACHINE\a)", uR"(HKLM\a)"},
        {uR"(HKLM\a)", uR"(HKLM\a)"},
        {uR"(\REGISTRY\MACHINES\a)", uR"(HKLMS\a)"},
        {uR"(\Registry\Machine\a)", uR"(\Registry\Machine\a)"},
        {uR"(\REGISTRY\A\{1})", uR"(\REGISTRY\A\{1})"},
        {u"", u""},
    };
    for (const auto &[path, expected] : rows) {
        Str text = Str::fromUtf16(path);
        names_.shortenHiveRoot(text);
        EXPECT_EQ(text, Str::fromUtf16(expected));
    }
    // An entry that is there already stays: this user's path is also that of all users.
    HiveNames shared;
    Str path = "\\REGISTRY\\USER\\a";
    shared.shortenHiveRoot(path);
    EXPECT_EQ(path, "\\REGISTRY\\USER\\a") << "without names";
    shared.fill(u"\\REGISTRY\\USER");
    shared.shortenHiveRoot(path);
    EXPECT_EQ(path, "HKCU\\a");
}

} // namespace
