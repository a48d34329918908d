#include "pipeline/input/rules/hive_names.h"
#include "tests/pipeline/input/registry/registry_test_key.h"

namespace velmox {
namespace {

TEST(HiveNames, ReadsTheCurrentUsersPath)
{
    HiveNames names;
    names.initHiveNameKeyMap();
    ASSERT_EQ(names.hiveKeyMap().size(), 12u);
    Str path = Str::fromUtf16(names.hiveKeyMap().at(u"HKCU").regexPath);
    path.replaceAll(R"(\\)", R"(\)");
    EXPECT_TRUE(path.lowered().startsWith(R"(\registry\user\s-1-)")) << path.c_str();
    EXPECT_EQ(names.hiveKeyMap().at(WideStr::fromUtf8(path)).shortName, u"HKCU");
    HiveNames none;
    const FailingCall refused("RegOpenCurrentUser", ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED);
    none.initHiveNameKeyMap();
    EXPECT_TRUE(none.hiveKeyMap().empty());
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
    HiveNames names;
    names.detectCurrentControlSet(hive);
    localMachine.select(1);
    names.detectCurrentControlSet(hive);
    EXPECT_EQ(names.currentControlSetPath(), second) << "the first hit decided";
}

} // namespace
} // namespace velmox
