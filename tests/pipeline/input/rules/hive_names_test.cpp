#include "pipeline/input/rules/hive_names.h"

namespace velmox {
namespace {

/// What a conversion by the names of one user makes of each text.
void expectConverted(Str (*convert)(const HiveNames &, const char *),
                     std::initializer_list<std::pair<const char *, const char *>> rows)
{
    HiveNames names;
    names.fill(u"\\REGISTRY\\User\\S-1-5-21-7");
    for (const auto &[before, after] : rows) {
        EXPECT_EQ(convert(names, before), after);
    }
}

TEST(HiveNames, TranslateTheFirstComponentAlone)
{
    expectConverted(
        [](const HiveNames &names, const char *pattern) {
            WideStr hive = WideStr::fromUtf8(pattern);
            names.translateHiveRoot(hive);
            return Str::fromUtf16(hive);
        },
        {
            {R"(HKLM\\Software\\Microsoft)", R"(\\REGISTRY\\MACHINE\\Software\\Microsoft)"},
            {R"(HKEY_USERS\\.*)", R"(\\REGISTRY\\USER\\.*)"},
            {R"(HKCU\\X)", R"(\\REGISTRY\\User\\S-1-5-21-7\\X)"},
            {"HKCC", R"(\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current)"},
            {R"(HKLM\Software)", R"(\\REGISTRY\\MACHINE\Software)"},
            {R"(hklm\\software)", R"(hklm\\software)"},
            {R"(HKLMX\\a)", R"(HKLMX\\a)"},
            {R"(\HKLM\\a)", R"(\HKLM\\a)"},
        });
}

TEST(HiveNames, ShortenTheLongestRootOnce)
{
    expectConverted(
        [](const HiveNames &names, const char *path) {
            Str key = path;
            names.shortenHiveRoot(key);
            return key;
        },
        {
            {R"(\REGISTRY\MACHINE\Software)", R"(HKLM\Software)"},
            {R"(\REGISTRY\User\S-1-5-21-7\Software)", R"(HKCU\Software)"},
            {R"(\REGISTRY\USER\.DEFAULT)", R"(HKU\.DEFAULT)"},
            {R"(\REGISTRY\MACHINE\SYSTEM\CurrentControlSet\Hardware Profiles\Current\a)", R"(HKCC\a)"},
            {R"(HKEY_LOCAL_MACHINE\a)", R"(HKLM\a)"},
            {R"(HKLM\a)", R"(HKLM\a)"},
            {R"(\REGISTRY\MACHINES\a)", R"(HKLMS\a)"},
            {R"(\Registry\Machine\a)", R"(\Registry\Machine\a)"},
        });
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
} // namespace velmox
