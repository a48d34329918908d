#include "pipeline/input/driver/driver_service.h"

namespace velmox {
namespace {

/// A service of the test's own in the place of the driver's; its file does not exist.
class DriverServiceTest : public ::testing::Test
{
protected:
    ~DriverServiceTest() override
    {
        CapturedLog ignored;
        removeDriver(manager_, name_.c_str());
        CloseServiceHandle(manager_);
    }

    void install(const Str &path)
    {
        ASSERT_TRUE(installDriver(manager_, name_.c_str(), WideStr::fromUtf8(path).c_str()));
    }
    int manage(unsigned short code) { return manageDriver(name_.c_str(), u"C:\\velmox\\test.sys", code); }
    bool isInstalled() const
    {
        const SC_HANDLE service = OpenServiceW(manager_, asWide(name_), SERVICE_QUERY_STATUS);
        return service != nullptr && CloseServiceHandle(service);
    }
    /// With the service's name in the place of NAME.
    Str named(Str text) const
    {
        text.replaceAll("NAME", Str::fromUtf16(name_));
        return text;
    }
    Str errors(const std::string &lines) const
    {
        return named(testing::logLines("ERROR velmox-regmon: ", lines));
    }

    const SC_HANDLE manager_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    const WideStr name_ = WideStr::fromUtf8(Str::fromFormat("VelmoxTest-%lu", GetCurrentProcessId()));
};

const std::string kCannotQuery = "manageDriver - Cannot query driver service!";
const std::string kNotStopped = "stopDriver - Service 'NAME' could not be stopped!  Error = 1062";

TEST_F(DriverServiceTest, EachCallThatFailsIsToldAndLeavesNoHandleOpen)
{
    const struct
    {
        unsigned short code;
        const char *function;
        DWORD error;
        int passed, result, closes;
        bool staysInstalled;
        std::string log;
    } rows[] = {
        {1, "OpenSCManagerA", 5, 0, 0, 0, true, "manageDriver Open SC Manager failed! Error = 5"},
        {1, "CreateServiceW", 5, 0, 0, 1, true, "installDriver CreateService failed! Error = 5"},
        {1, "StartServiceA", 1058, 0, 0, 2, true,
         "startDriver - StartService failure for NAME! Error = 1058"},
        {1, "StartServiceA", ERROR_SERVICE_ALREADY_RUNNING, 0, 1, 2, true, ""},
        {2, "OpenServiceW", 5, 0, 1, 4, false, kNotStopped},
        {2, "QueryServiceStatus", 6, 0, 0, 3, true,
         "queryDriverInfo - QueryServiceStatus failed with 6\n" + kCannotQuery},
        {2, "DeleteService", 1072, 0, 1, 5, true,
         kNotStopped + "\nremoveDriver - DeleteService failure for NAME! Error = 1072"},
        {3, "ControlService", 1052, 0, 1, 2, true,
         "stopDriver - Service 'NAME' could not be stopped!  Error = 1052"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(::testing::Message() << row.function << " with " << row.code << ", error " << row.error);
        install("C:\\velmox\\test.sys");
        {
            const CapturedLog log;
            const FailingCall refused(row.function, 0, row.error, row.passed);
            const FailingCall closes("CloseServiceHandle", TRUE, 0, 0, 0);
            EXPECT_EQ(manage(row.code), row.result);
            EXPECT_EQ(refused.failed(), 1);
            EXPECT_EQ(closes.calls(), row.closes);
            EXPECT_EQ(log.text(), errors(row.log));
        }
        EXPECT_EQ(isInstalled(), row.staysInstalled);
    }
}

TEST_F(DriverServiceTest, ServesItsCodesAlone)
{
    const CapturedLog log;
    EXPECT_EQ(manageDriver(nullptr, u"C:\\velmox\\test.sys", 1), 0);
    EXPECT_EQ(manageDriver(name_.c_str(), nullptr, 1), 0);
    EXPECT_EQ(manage(4), 0);
    install(named("SYSTEM32\\Drivers\\NAME.sys"));
    EXPECT_EQ(manage(2), 1);
    EXPECT_TRUE(isInstalled()) << "a file in the system location";
    EXPECT_EQ(log.text(), "ERROR velmox-regmon: manageDriver Invalid Driver or Service provided.\n"
                          "ERROR velmox-regmon: manageDriver Invalid Driver or Service provided.\n"
                          "ERROR velmox-regmon: manageDriver Unknown control code.\n"
                          "INFO velmox-regmon: Do not uninstall driver in system location\n");
}

TEST(DriverService, FollowsTheVersionAndTheBootModeOfTheSystem)
{
    const auto nameFor = [](std::intptr_t isSix) {
        const FailingCall version("VerifyVersionInfoA", isSix, 0);
        return chooseDriverName();
    };
    EXPECT_EQ(WideStr(nameFor(TRUE)), u"velmoxdrv-win6");
    EXPECT_EQ(WideStr(nameFor(FALSE)), u"velmoxdrv");
    EXPECT_EQ(WideStr(nameFor(2)), u"velmoxdrv");
    EXPECT_TRUE(driverPath(u"x").toStr().lowered().endsWith("\\system32\\drivers\\x.sys"));
    for (const int mode : {0, 1, 2}) {
        const CapturedLog log;
        const FailingCall boot("GetSystemMetrics", mode, 0);
        EXPECT_EQ(isSafeMode(), mode == 1);
        EXPECT_EQ(log.text(), Str::fromFormat("INFO velmox-regmon: Boot Mode is %d\n", mode));
    }
}

// For callers beside another installation; the monitor does not check.
TEST_F(DriverServiceTest, ChecksWhoseDriverStandsThere)
{
    constexpr char kOurs[] = "\\??\\c:\\VELMOX\\test.sys\\NAME.sys";
    constexpr char kOther[] = "C:\\other.sys";
    const struct
    {
        bool atStop;
        const char *installed;
        int managersRefused; // behind the first one
        bool result, isStarted;
        std::string log;
    } rows[] = {
        {false, nullptr, 0, true, true, ""},
        {false, kOurs, 0, true, false, ""},
        {false, kOther, 0, true, true, kNotStopped},
        {false, kOther, 1, true, true,
         "manageDriver Open SC Manager failed! Error = 5\nDriver Install Check for "
         "'\\??\\C:\\velmox\\test.sys\\NAME.sys' failed. Another driver - 'C:\\other.sys' is already "
         "installed."},
        {true, kOther, 0, true, false,
         "Another driver 'C:\\other.sys' seems to be installed.\n" + kNotStopped},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        {
            const CapturedLog ignored;
            removeDriver(manager_, name_.c_str());
        }
        if (row.installed != nullptr) {
            install(named(row.installed));
        }
        const CapturedLog log;
        const FailingCall refused("OpenSCManagerA", 0, 5, 1, row.managersRefused);
        bool isStarted = false;
        const DriverChecks checks(name_.c_str(), u"C:\\velmox\\test.sys", [&] { return isStarted = true; });
        EXPECT_EQ(row.atStop ? checks.checkStop() : checks.checkInstall(), row.result);
        EXPECT_EQ(isStarted, row.isStarted);
        EXPECT_EQ(log.text(), errors(row.log));
    }
}

} // namespace
} // namespace velmox
