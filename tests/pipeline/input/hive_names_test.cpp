#include "pipeline/input/hive_names.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

constexpr char16_t kUser[] = u"\\REGISTRY\\User\\S-1-5-21-7";

HiveNames namesOf(const char16_t *currentUserPath)
{
    HiveNames names;
    names.fill(currentUserPath);
    return names;
}

Str translated(const HiveNames &names, const char *hive)
{
    WideStr text = WideStr::fromUtf8(hive);
    names.translateHiveRoot(text);
    return Str::fromUtf16(text);
}

Str shortened(const HiveNames &names, const char *path)
{
    WideStr text = WideStr::fromUtf8(path);
    names.shortenHiveRoot(text);
    return Str::fromUtf16(text);
}

TEST(HiveNames, HoldsThreeNamesOfEachRoot)
{
    const HiveNames names = namesOf(kUser);
    ASSERT_EQ(names.hiveKeyMap().size(), 12u);
    const HiveKeyInfo &user = names.hiveKeyMap().at(kUser);
    EXPECT_EQ(user.shortName, u"HKCU");
    EXPECT_EQ(user.regexPath, u"\\\\REGISTRY\\\\User\\\\S-1-5-21-7");
    EXPECT_EQ(user.rootKey, 0xFFFFFFFF80000001);
    EXPECT_EQ(user.hiveClass, 1u);
    EXPECT_TRUE(user.basePath.empty());
    const HiveKeyInfo &config = names.hiveKeyMap().at(u"HKEY_CURRENT_CONFIG");
    EXPECT_EQ(config.rootKey & 0xFFFFFFFF, 0x80000005);
    EXPECT_EQ(config.hiveClass, 2u);
    EXPECT_EQ(config.regexPath,
              u"\\\\REGISTRY\\\\MACHINE\\\\SYSTEM\\\\CurrentControlSet\\\\Hardware Profiles\\\\Current");
    EXPECT_EQ(names.hiveKeyMap().at(u"HKU").hiveClass, 1u);
    EXPECT_EQ(names.hiveKeyMap().at(u"HKLM").hiveClass, 2u);

    // An entry that is there already stays: this user's path is also that of all users.
    const HiveNames shared = namesOf(u"\\REGISTRY\\USER");
    EXPECT_EQ(shared.hiveKeyMap().size(), 11u);
    EXPECT_EQ(shared.hiveKeyMap().at(u"\\REGISTRY\\USER").shortName, u"HKCU");
}

TEST(HiveNames, TranslatesTheFirstComponentAlone)
{
    const HiveNames names = namesOf(kUser);
    const std::pair<const char *, const char *> cases[] = {
        {R"(HKLM\\Software\\Microsoft)", R"(\\REGISTRY\\MACHINE\\Software\\Microsoft)"},
        {R"(HKEY_USERS\\.*)", R"(\\REGISTRY\\USER\\.*)"},
        {R"(HKCU\\X)", R"(\\REGISTRY\\User\\S-1-5-21-7\\X)"},
        {"HKLM", R"(\\REGISTRY\\MACHINE)"},
        {R"(HKLM\Software)", R"(\\REGISTRY\\MACHINE\Software)"},
        {R"(hklm\\software)", R"(hklm\\software)"},
        {R"(HKLMX\\a)", R"(HKLMX\\a)"},
        {R"(\\REGISTRY\\MACHINE\\a)", R"(\\REGISTRY\\MACHINE\\a)"},
        {R"(\HKLM\\a)", R"(\HKLM\\a)"},
        {".*", ".*"},
        {"", ""},
    };
    for (const auto &[hive, expected] : cases) {
        EXPECT_EQ(translated(names, hive), expected) << hive;
    }
    EXPECT_EQ(translated(HiveNames(), R"(HKLM\\a)"), R"(HKLM\\a)");
}

TEST(HiveNames, ShortensTheLongestRootOnce)
{
    const HiveNames names = namesOf(kUser);
    const std::pair<const char *, const char *> cases[] = {
        {R"(\REGISTRY\MACHINE\Software)", R"(HKLM\Software)"},
        {R"(\REGISTRY\User\S-1-5-21-7\Software)", R"(HKCU\Software)"},
        {R"(\REGISTRY\USER\.DEFAULT)", R"(HKU\.DEFAULT)"},
        {R"(\REGISTRY\MACHINE\SYSTEM\CurrentControlSet\Hardware Profiles\Current\a)", R"(HKCC\a)"},
        {R"(HKEY_LOCAL_MACHINE\a)", R"(HKLM\a)"},
        {R"(HKLM\a)", R"(HKLM\a)"},
        {R"(\REGISTRY\MACHINE)", "HKLM"},
        {R"(\REGISTRY\MACHINES\a)", R"(HKLMS\a)"},
        {R"(\Registry\Machine\a)", R"(\Registry\Machine\a)"},
        {R"(\REGISTRY\A\{1})", R"(\REGISTRY\A\{1})"},
        {"", ""},
    };
    for (const auto &[path, expected] : cases) {
        EXPECT_EQ(shortened(names, path), expected) << path;
    }
    EXPECT_EQ(shortened(HiveNames(), R"(\REGISTRY\MACHINE\a)"), R"(\REGISTRY\MACHINE\a)");
}

} // namespace
