#include "pipeline/input/rules/hive_names.h"
#include "tests/pipeline/input/registry/registry_test_key.h"
#include "tests/support/captured_log.h"
#include "tests/support/failing_call.h"
#include "tests/support/log_lines.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::FailingCall;

TEST(HiveNames, ReadsTheCurrentUsersPath)
{
    HiveNames names;
    names.initHiveNameKeyMap();
    ASSERT_EQ(names.hiveKeyMap().size(), 12u);
    Str path = Str::fromUtf16(names.hiveKeyMap().at(u"HKCU").regexPath);
    path.replaceAll(R"(\\)", R"(\)");
    EXPECT_TRUE(path.lowered().startsWith(R"(\registry\user\s-1-)")) << path.c_str();
    EXPECT_EQ(names.hiveKeyMap().at(WideStr::fromUtf8(path)).shortName, u"HKCU");
    names.initHiveNameKeyMap();
    EXPECT_EQ(names.hiveKeyMap().size(), 12u);
}

/// What may stand for NtQueryObject: it knows no name, it never has room enough.
LONG WINAPI knowNoName(HANDLE, ULONG, void *, ULONG, ULONG *)
{
    return 0;
}
LONG WINAPI wantMoreRoom(HANDLE, ULONG, void *, ULONG size, ULONG *needed)
{
    *needed = size + 100;
    return static_cast<LONG>(0xC0000004);
}

TEST(HiveNames, StaysEmptyWhenTheUsersPathCannotBeAsked)
{
    const struct
    {
        const char *function;
        std::intptr_t result;
        DWORD error;
        int freed;
        const char *log;
    } rows[] = {
        {"RegOpenCurrentUser", 5, 5, 0, ""},
        {"GetProcAddress", 0, 127, 0,
         "WinRegistryMonitor::initHiveNameKeyMap: Failed to get NtQueryObject function pointer from "
         "ntdll.dll: '%m'"},
        {"GetProcAddress", reinterpret_cast<std::intptr_t>(knowNoName), 0, 0, ""},
        {"GetProcAddress", reinterpret_cast<std::intptr_t>(wantMoreRoom), 0, 1, ""},
        {"VirtualAlloc", 0, 8, 0, ""},
    };
    for (const auto &row : rows) {
        const CapturedLog log;
        HiveNames names;
        const FailingCall refused(row.function, row.result, row.error);
        const FailingCall freed("VirtualFree", TRUE, 0, 0, 0);
        names.initHiveNameKeyMap();
        EXPECT_EQ(refused.failed(), 1) << row.function;
        EXPECT_EQ(freed.calls(), row.freed) << row.function;
        EXPECT_EQ(log.text(), testing::logLines("ERROR velmox-regmon: ", row.log, row.error));
        EXPECT_TRUE(names.hiveKeyMap().empty());
    }
}

/// Puts a key of the test's own in the place of HKEY_LOCAL_MACHINE, for this process.
class LocalMachineStandIn
{
public:
    LocalMachineStandIn() { EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, top_.get()), ERROR_SUCCESS); }
    ~LocalMachineStandIn() { RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr); }

    void select(DWORD number) { key_.setNumber(u"SYSTEM\\Select", u"Current", number); }

private:
    RegistryTestKey key_;
    RegistryKeyHandle top_ = key_.create(u"");
};

Str detected(const char *hive)
{
    HiveNames names;
    names.detectCurrentControlSet(hive);
    return names.currentControlSetPath();
}

TEST(HiveNames, DetectsTheControlSetInUse)
{
    const char hive[] = R"(HKLM\\System\\CurrentControlSet\\Services)";
    const char first[] = R"(\registry\machine\system\controlset001)";
    const char second[] = R"(\registry\machine\system\controlset002)";
    LocalMachineStandIn localMachine;
    EXPECT_EQ(detected(hive), first);
    localMachine.select(1);
    EXPECT_EQ(detected(hive), first);
    localMachine.select(3);
    EXPECT_EQ(detected(hive), second);
    EXPECT_EQ(detected(R"(HKLM\\SYSTEM\\ControlSet001)"), "");
    EXPECT_EQ(detected(R"(HKLM\SYSTEM\CurrentControlSet)"), "");
    for (const char *function : {"RegOpenKeyExA", "RegQueryValueExA"}) {
        const FailingCall refused(function, ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED);
        const FailingCall closed("RegCloseKey", 0, 0, 0, 0);
        EXPECT_EQ(detected(hive), first);
        EXPECT_EQ(closed.calls(), std::string_view(function) == "RegOpenKeyExA" ? 0 : 1);
    }
    HiveNames names;
    names.detectCurrentControlSet(hive);
    localMachine.select(1);
    names.detectCurrentControlSet(hive);
    EXPECT_EQ(names.currentControlSetPath(), second) << "the first hit decided";
}

} // namespace
} // namespace velmox
