#include "pipeline/input/drive_map.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

void twoDrives(DriveMappings &out)
{
    out = {{"c:", R"(\device\harddiskvolume1)"}, {"e:", R"(\device\cdrom0)"}};
}

TEST(DriveMap, TranslatesALeadingDriveOfAPattern)
{
    DriveMap drives(twoDrives);
    EXPECT_EQ(drives.translateProcessDrive(R"(C:\\Windows\\.*)"),
              R"(\\device\\harddiskvolume1\\Windows\\.*)");
    EXPECT_EQ(drives.translateProcessDrive("e:"), R"(\\device\\cdrom0)");
    EXPECT_EQ(drives.translateProcessDrive(R"(d:\\x)"), R"(d:\\x)");
    EXPECT_EQ(drives.translateProcessDrive(R"(.*c:\\x)"), R"(.*c:\\x)");
    EXPECT_EQ(drives.translateProcessDrive("c"), "c");
}

TEST(DriveMap, ShowsALeadingDeviceAsItsDrive)
{
    DriveMap drives(twoDrives);
    EXPECT_EQ(drives.deviceToDrive(R"(\Device\HarddiskVolume1\Windows\a.EXE)"), R"(c:\Windows\a.EXE)");
    EXPECT_EQ(drives.deviceToDrive(R"(\device\cdrom0)"), "e:");
    EXPECT_EQ(drives.deviceToDrive(R"(\Device\HarddiskVolume10\a)"), R"(c:0\a)");
    EXPECT_EQ(drives.deviceToDrive(R"(\Device\Harddisk)"), R"(\Device\Harddisk)");
    EXPECT_EQ(drives.deviceToDrive("N/A"), "N/A");
}

TEST(DriveMap, AsksUntilItHearsOfADrive)
{
    static int calls;
    calls = 0;
    DriveMap drives([](DriveMappings &out) {
        if (++calls == 2) {
            twoDrives(out);
        }
    });
    EXPECT_EQ(drives.translateProcessDrive("c:x"), "c:x");
    EXPECT_EQ(drives.translateProcessDrive("c:x"), R"(\\device\\harddiskvolume1x)");
    EXPECT_EQ(drives.deviceToDrive(R"(\device\cdrom0\x)"), R"(e:\x)");
    EXPECT_EQ(calls, 2);
}

} // namespace
