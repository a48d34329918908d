#include "pipeline/input/drive_map.h"
#include "util/windows_api.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

TEST(SystemDrives, CarryAPathThereAndBack)
{
    wchar_t device[MAX_PATH];
    ASSERT_NE(QueryDosDeviceW(L"C:", device, MAX_PATH), 0u);
    const Str path = Str::concat(Str::fromUtf16(asUtf16(device)), "\\Windows");
    EXPECT_EQ(deviceToDrive(path), "c:\\Windows");

    Str pattern = Str::fromUtf16(asUtf16(device)).lowered();
    pattern.replaceAll("\\", "\\\\");
    EXPECT_EQ(translateProcessDrive("C:\\\\Windows"), Str::concat(pattern, "\\\\Windows"));
}

} // namespace
