#include "pipeline/input/driver/driver_service.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/system/owned_handle.h"

#include <utility>

namespace velmox {

namespace {

struct ServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type invalid() { return nullptr; }
    static void close(Type handle) { CloseServiceHandle(handle); }
};
using ServiceHandle = OwnedHandle<ServiceHandleTraits>;

constexpr char kManageDriver[] = "manageDriver";
constexpr char kQueryDriverInfo[] = "queryDriverInfo";
constexpr DWORD kQueryRights = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS;

// Logs a failed call with its last error, and is false for the caller to return. `fmt` takes the function,
// the service's name and the error's number: each function has its own wording, which administrators search
// for.
bool failed(const char *fmt, const char *function, const char16_t *name)
{
    const auto error = static_cast<int>(GetLastError());
    monitorLog.log(LogLevel::Error, fmt, function, Str::fromUtf16(name).c_str(), error);
    return false;
}

// The same for a call that names no service.
bool failed(const char *fmt, const char *function)
{
    const auto error = static_cast<int>(GetLastError());
    monitorLog.log(LogLevel::Error, fmt, function, error);
    return false;
}

// Invalid, with the failure logged by `fmt`, when the service cannot be opened.
ServiceHandle openForControl(SC_HANDLE manager, const char16_t *name, const char *fmt, const char *function)
{
    ServiceHandle service(OpenServiceW(manager, asWide(name), SERVICE_ALL_ACCESS));
    if (!service.isValid()) {
        failed(fmt, function, name);
    }
    return service;
}

bool removeUnlessSystem(SC_HANDLE manager, const char16_t *name)
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (!queryDriverInfo(name, installed, running, imagePath)) {
        monitorLog.error("%s - Cannot query driver service!", kManageDriver);
        return false;
    }
    // Whoever has put the driver there by this relative path, such as an installer, has it for the whole
    // system.
    const Str systemLocation = Str::fromFormat("system32\\drivers\\%s.sys", Str::fromUtf16(name).c_str());
    if (imagePath.compareCaseless(systemLocation) == 0) {
        monitorLog.info("Do not uninstall driver in system location");
        return true;
    }
    // A driver that does not stop is removed all the same: the system drops the service once nobody uses it.
    stopDriver(manager, name);
    removeDriver(manager, name);
    return true;
}

bool queryImagePath(SC_HANDLE service, Str &imagePath)
{
    LocalMemory memory;
    DWORD size = 0;
    // The first call only asks how much room the second one needs.
    if (!QueryServiceConfigW(service, nullptr, 0, &size) && GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        memory.reset(LocalAlloc(LPTR, size));
    }
    auto *config = static_cast<QUERY_SERVICE_CONFIGW *>(memory.get());
    if (config == nullptr || !QueryServiceConfigW(service, config, size, &size)) {
        return failed("%s - QueryServiceConfig failed (%d)", kQueryDriverInfo);
    }
    imagePath = Str::fromUtf16(asUtf16(config->lpBinaryPathName));
    return true;
}

// Tells that a check came to nothing, for another driver that stands in the way.
void tellOther(const char *check, const Str &expectedPath, const Str &imagePath, bool running)
{
    monitorLog.error("Driver %s Check for '%s' failed. Another driver - '%s' is already %s.", check,
                     expectedPath.c_str(), imagePath.c_str(),
                     running ? "installed and started" : "installed");
}

} // namespace

const char16_t *chooseDriverName()
{
    // Compared by the system, field by field. For 6.0 it does not matter that Windows tells programs without
    // a manifest 6.2 at most.
    OSVERSIONINFOEXA version = {};
    static_assert(sizeof version == 156);
    version.dwOSVersionInfoSize = sizeof version;
    // Version 6.0 without a service pack, or later: each field has to be as large as here.
    version.dwMajorVersion = 6;
    constexpr DWORD kFields[] = {VER_MAJORVERSION, VER_MINORVERSION, VER_SERVICEPACKMAJOR,
                                 VER_SERVICEPACKMINOR};
    DWORDLONG conditions = 0;
    DWORD mask = 0;
    for (const DWORD field : kFields) {
        conditions = VerSetConditionMask(conditions, field, VER_GREATER_EQUAL);
        mask |= field;
    }
    return VerifyVersionInfoA(&version, mask, conditions) == 1 ? u"velmoxdrv-win6" : u"velmoxdrv";
}

Pathname driverPath(const char16_t *driverName)
{
    constexpr UINT kRoom = 260;
    wchar_t directory[kRoom] = {};
    GetSystemDirectoryW(directory, kRoom);
    return Pathname(asUtf16(directory)).concat(u"\\drivers\\").concat(driverName).concat(u".sys");
}

bool isSafeMode()
{
    constexpr int kSafeMode = 1;
    // 2, safe mode with network, starts drivers of this kind, so it is not refused.
    const int mode = GetSystemMetrics(SM_CLEANBOOT);
    monitorLog.info("Boot Mode is %d", mode);
    return mode == kSafeMode;
}

bool manageDriver(const char16_t *name, const char16_t *path, unsigned short code)
{
    if (name == nullptr || path == nullptr) {
        monitorLog.error("%s Invalid Driver or Service provided.", kManageDriver);
        return false;
    }
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager.isValid()) {
        return failed("%s Open SC Manager failed! Error = %d", kManageDriver);
    }
    switch (code) {
    case kInstallAndStart:
        return installDriver(manager.get(), name, path) && startDriver(manager.get(), name);
    case kStopAndRemove:
        return removeUnlessSystem(manager.get(), name);
    case kStop:
        stopDriver(manager.get(), name);
        return true;
    default:
        monitorLog.error("%s Unknown control code.", kManageDriver);
        return false;
    }
}

bool installDriver(SC_HANDLE manager, const char16_t *name, const char16_t *path)
{
    // Started on demand: after a restart of the machine nothing runs until the program does.
    const ServiceHandle service(CreateServiceW(
        manager, asWide(name), asWide(name), SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START,
        SERVICE_ERROR_NORMAL, asWide(path), nullptr, nullptr, nullptr, nullptr, nullptr));
    // One that an earlier run left behind serves as well.
    return service.isValid() || GetLastError() == ERROR_SERVICE_EXISTS ||
           failed("%s CreateService failed! Error = %d", "installDriver");
}

bool startDriver(SC_HANDLE manager, const char16_t *name)
{
    constexpr char kFunction[] = "startDriver";
    const ServiceHandle service =
        openForControl(manager, name, "%s - OpenService failure for '%s'!  Error = %d", kFunction);
    return service.isValid() &&
           (StartServiceA(service.get(), 0, nullptr) || GetLastError() == ERROR_SERVICE_ALREADY_RUNNING ||
            failed("%s - StartService failure for %s! Error = %d", kFunction, name));
}

bool stopDriver(SC_HANDLE manager, const char16_t *name)
{
    constexpr char kFunction[] = "stopDriver";
    const ServiceHandle service =
        openForControl(manager, name, "%s OpenService failed for %s!  Error = %d", kFunction);
    SERVICE_STATUS status = {};
    return service.isValid() &&
           (ControlService(service.get(), SERVICE_CONTROL_STOP, &status) ||
            failed("%s - Service '%s' could not be stopped!  Error = %d", kFunction, name));
}

bool removeDriver(SC_HANDLE manager, const char16_t *name)
{
    constexpr char kFunction[] = "removeDriver";
    const ServiceHandle service =
        openForControl(manager, name, "%s - OpenService failure for %s! Error = %d", kFunction);
    return service.isValid() && (DeleteService(service.get()) ||
                                 failed("%s - DeleteService failure for %s! Error = %d", kFunction, name));
}

bool queryDriverInfo(const char16_t *name, bool &installed, bool &running, Str &imagePath)
{
    installed = false;
    running = false;
    if (name == nullptr) {
        return false;
    }
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, kQueryRights));
    if (!manager.isValid()) {
        return failed("%s - Open SC Manager failed! Error = %d", kQueryDriverInfo);
    }
    const ServiceHandle service(OpenServiceW(manager.get(), asWide(name), kQueryRights));
    if (!service.isValid()) {
        // A service that is there but may not be looked at counts as one that could be asked: its removal is
        // then tried, and says itself what it fails of.
        return GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST;
    }
    installed = true;
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(service.get(), &status)) {
        return failed("%s - QueryServiceStatus failed with %d", kQueryDriverInfo);
    }
    running = status.dwCurrentState == SERVICE_RUNNING;
    return queryImagePath(service.get(), imagePath);
}

DriverChecks::DriverChecks(const char16_t *driverName, const Pathname &driverImagePath,
                           std::function<bool()> startDriver)
    : driverName_(driverName), driverImagePath_(driverImagePath), startDriver_(std::move(startDriver)),
      expectedPath_(Str::fromFormat("\\??\\%s\\%s.sys", driverImagePath.toStr().c_str(),
                                    Str::fromUtf16(driverName).c_str()))
{
}

bool DriverChecks::checkInstall() const
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (queryDriverInfo(driverName_, installed, running, imagePath)) {
        if ((running || installed) && imagePath.compareCaseless(expectedPath_) == 0) {
            return true;
        }
        if (!manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove)) {
            tellOther("Install", expectedPath_, imagePath, running);
        }
    }
    // Tried whatever stands in the way: it says itself what it fails of.
    return startDriver_();
}

bool DriverChecks::checkStop() const
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (!queryDriverInfo(driverName_, installed, running, imagePath)) {
        return true;
    }
    if (imagePath.compareCaseless(expectedPath_) != 0) {
        monitorLog.error("Another driver '%s' seems to be installed.", imagePath.c_str());
    }
    if (!installed) {
        return true;
    }
    const bool stopped = !running || manageDriver(driverName_, driverImagePath_.c_str(), kStop);
    if (stopped && manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove)) {
        return true;
    }
    tellOther("stop", expectedPath_, imagePath, running);
    return false;
}

} // namespace velmox
