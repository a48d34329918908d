#include "pipeline/input/rules/drive_map.h"
#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"

#include <cwchar>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::FailingCall;

Str deviceOfC()
{
    wchar_t device[MAX_PATH];
    EXPECT_NE(QueryDosDeviceW(L"C:", device, MAX_PATH), 0u);
    return Str::fromUtf16(asUtf16(device));
}

TEST(SystemDrives, CarryAPathThereAndBack)
{
    Str pattern = deviceOfC().lowered();
    EXPECT_EQ(systemDrives().deviceToDrive(Str::concat(deviceOfC(), "\\Windows")), "c:\\Windows");
    pattern.replaceAll("\\", "\\\\");
    EXPECT_EQ(systemDrives().translateProcessDrive("C:\\\\Windows"), Str::concat(pattern, "\\\\Windows"));
}

// In a process that has not asked yet.
TEST(SystemDrives, DISABLED_WhatCannotBeAskedIsAskedAgain)
{
    const Str shown = Str::concat(deviceOfC(), "\\x");
    for (const char *function : {"GetLogicalDriveStringsW", "QueryDosDeviceW"}) {
        const FailingCall refused(function, 0, ERROR_ACCESS_DENIED);
        EXPECT_EQ(systemDrives().deviceToDrive(shown), shown) << function;
    }
    {
        const testing::ReplacedCall noRoom(
            "GetLogicalDriveStringsW", +[](DWORD room, wchar_t *drives) {
                std::wmemcpy(drives, L"C:\\\0", 5);
                return room + 1;
            });
        EXPECT_EQ(systemDrives().deviceToDrive(shown), shown);
    }
    // The first drive has been gathered.
    const FailingCall second("QueryDosDeviceW", 0, ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(systemDrives().deviceToDrive(shown), "c:\\x");
    EXPECT_EQ(systemDrives().translateProcessDrive("Z:\\x"), "Z:\\x");
}

TEST(SystemDrives, WhatCannotBeAskedIsAskedAgain)
{
    EXPECT_TRUE(testing::ChildTest("SystemDrives.DISABLED_WhatCannotBeAskedIsAskedAgain", {}).succeeds());
}

} // namespace
} // namespace velmox
