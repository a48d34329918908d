#include "pipeline/input/rules/drive_map.h"

namespace velmox {
namespace {

void twoDrives(DriveMappings &out)
{
    out = {{"c:", R"(\device\harddiskvolume1)"}, {"e:", R"(\device\cdrom0)"}};
}

TEST(DriveMap, TranslatesWhatLeadsThere)
{
    DriveMap drives(twoDrives);
    const std::pair<const char *, const char *> patterns[] = {
        {R"(C:\\Windows\\.*)", R"(\\device\\harddiskvolume1\\Windows\\.*)"},
        {"e:", R"(\\device\\cdrom0)"},
        {R"(d:\\x)", R"(d:\\x)"},
        {R"(.*c:\\x)", R"(.*c:\\x)"},
        {"c", "c"},
    };
    for (const auto &[proc, expected] : patterns) {
        EXPECT_EQ(drives.translateProcessDrive(proc), expected);
    }
    const std::pair<const char *, const char *> paths[] = {
        {R"(\Device\HarddiskVolume1\Windows\a.EXE)", R"(c:\Windows\a.EXE)"},
        {R"(\device\cdrom0)", "e:"},
        {R"(\Device\HarddiskVolume10\a)", R"(c:0\a)"},
        {R"(\Device\Harddisk)", R"(\Device\Harddisk)"},
        {"N/A", "N/A"},
    };
    for (const auto &[path, expected] : paths) {
        EXPECT_EQ(drives.deviceToDrive(path), expected);
    }
}

TEST(DriveMap, AsksUntilItHearsOfADrive)
{
    static int calls;
    calls = 0;
    DriveMap drives([](DriveMappings &out) { ++calls == 2 ? twoDrives(out) : void(); });
    EXPECT_EQ(drives.translateProcessDrive("c:x"), "c:x");
    EXPECT_EQ(drives.translateProcessDrive("c:x"), R"(\\device\\harddiskvolume1x)");
    EXPECT_EQ(drives.deviceToDrive(R"(\device\cdrom0\x)"), R"(e:\x)");
    EXPECT_EQ(calls, 2);
}

} // namespace
} // namespace velmox
