#include "pipeline/input/driver/driver_service.h"

#include "pipeline/input/diagnostics/monitor_log.h"
#include "util/system/local_memory.h"
#include "util/system/owned_handle.h"

namespace velmox {

namespace {

struct ServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type invalid() { return nullptr; }
    static void close(Type handle) { CloseServiceHandle(handle); }
};
using ServiceHandle = OwnedHandle<ServiceHandleTraits>;

constexpr DWORD kQueryRights = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS;

ServiceHandle openForControl(SC_HANDLE manager, const char16_t *name)
{
    return ServiceHandle(OpenServiceW(manager, asWide(name), SERVICE_ALL_ACCESS));
}

int lastErrorNumber()
{
    return static_cast<int>(GetLastError());
}

int removeUnlessSystem(SC_HANDLE manager, const char16_t *name, const Str &systemLocation)
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (!queryDriverInfo(name, installed, running, imagePath)) {
        monitorLog.error("%s - Cannot query driver service!", "manageDriver");
        return 0;
    }
    if (imagePath.compareCaseless(systemLocation) == 0) {
        monitorLog.info("Do not uninstall driver in system location");
        return 1;
    }
    stopDriver(manager, name);
    removeDriver(manager, name);
    return 1;
}

int runCode(SC_HANDLE manager, const char16_t *name, const char16_t *path, unsigned short code,
            const Str &systemLocation)
{
    switch (code) {
    case kInstallAndStart:
        return installDriver(manager, name, path) && startDriver(manager, name);
    case kStopAndRemove:
        return removeUnlessSystem(manager, name, systemLocation);
    case kStop:
        stopDriver(manager, name);
        return 1;
    default:
        monitorLog.error("%s Unknown control code.", "manageDriver");
        return 0;
    }
}

bool queryImagePath(SC_HANDLE service, Str &imagePath)
{
    LocalMemory memory;
    DWORD size = 0;
    if (!QueryServiceConfigW(service, nullptr, 0, &size) && GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        memory.reset(LocalAlloc(LPTR, size));
    }
    auto *config = static_cast<QUERY_SERVICE_CONFIGW *>(memory.get());
    if (config == nullptr || !QueryServiceConfigW(service, config, size, &size)) {
        monitorLog.error("%s - QueryServiceConfig failed (%d)", "queryDriverInfo", lastErrorNumber());
        return false;
    }
    imagePath = Str::fromUtf16(asUtf16(config->lpBinaryPathName));
    return true;
}

} // namespace

const char16_t *chooseDriverName()
{
    OSVERSIONINFOEXA version = {};
    static_assert(sizeof version == 156);
    version.dwOSVersionInfoSize = sizeof version;
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
    const int mode = GetSystemMetrics(SM_CLEANBOOT);
    monitorLog.info("Boot Mode is %d", mode);
    return mode == kSafeMode;
}

int manageDriver(const char16_t *name, const char16_t *path, unsigned short code)
{
    if (name == nullptr || path == nullptr) {
        monitorLog.error("%s Invalid Driver or Service provided.", "manageDriver");
        return 0;
    }
    const Str systemLocation = Str::fromFormat("system32\\drivers\\%s.sys", Str::fromUtf16(name).c_str());
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager.isValid()) {
        monitorLog.error("%s Open SC Manager failed! Error = %d", "manageDriver", lastErrorNumber());
        return 0;
    }
    return runCode(manager.get(), name, path, code, systemLocation);
}

bool installDriver(SC_HANDLE manager, const char16_t *name, const char16_t *path)
{
    const ServiceHandle service(CreateServiceW(
        manager, asWide(name), asWide(name), SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START,
        SERVICE_ERROR_NORMAL, asWide(path), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (service.isValid()) {
        return true;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_EXISTS) {
        return true;
    }
    monitorLog.error("%s CreateService failed! Error = %d", "installDriver", static_cast<int>(error));
    return false;
}

bool startDriver(SC_HANDLE manager, const char16_t *name)
{
    const ServiceHandle service = openForControl(manager, name);
    if (!service.isValid()) {
        const int error = lastErrorNumber();
        monitorLog.error("%s - OpenService failure for '%s'!  Error = %d", "startDriver",
                         Str::fromUtf16(name).c_str(), error);
        return false;
    }
    if (StartServiceA(service.get(), 0, nullptr)) {
        return true;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_ALREADY_RUNNING) {
        return true;
    }
    monitorLog.error("%s - StartService failure for %s! Error = %d", "startDriver",
                     Str::fromUtf16(name).c_str(), static_cast<int>(error));
    return false;
}

int stopDriver(SC_HANDLE manager, const char16_t *name)
{
    const ServiceHandle service = openForControl(manager, name);
    if (!service.isValid()) {
        const int error = lastErrorNumber();
        monitorLog.error("%s OpenService failed for %s!  Error = %d", "stopDriver",
                         Str::fromUtf16(name).c_str(), error);
        return 0;
    }
    SERVICE_STATUS status = {};
    static_assert(sizeof status == 28);
    if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        const int error = lastErrorNumber();
        monitorLog.error("%s - Service '%s' could not be stopped!  Error = %d", "stopDriver",
                         Str::fromUtf16(name).c_str(), error);
        return 0;
    }
    return 1;
}

int removeDriver(SC_HANDLE manager, const char16_t *name)
{
    const ServiceHandle service = openForControl(manager, name);
    if (!service.isValid()) {
        const int error = lastErrorNumber();
        monitorLog.error("%s - OpenService failure for %s! Error = %d", "removeDriver",
                         Str::fromUtf16(name).c_str(), error);
        return 0;
    }
    if (!DeleteService(service.get())) {
        const int error = lastErrorNumber();
        monitorLog.error("%s - DeleteService failure for %s! Error = %d", "removeDriver",
                         Str::fromUtf16(name).c_str(), error);
        return 0;
    }
    return 1;
}

int queryDriverInfo(const char16_t *name, bool &installed, bool &running, Str &imagePath)
{
    installed = false;
    running = false;
    if (name == nullptr) {
        return 0;
    }
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, kQueryRights));
    if (!manager.isValid()) {
        monitorLog.error("%s - Open SC Manager failed! Error = %d", "queryDriverInfo", lastErrorNumber());
        return 0;
    }
    const ServiceHandle service(OpenServiceW(manager.get(), asWide(name), kQueryRights));
    if (!service.isValid()) {
        return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? 0 : 1;
    }
    installed = true;
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(service.get(), &status)) {
        monitorLog.error("%s - QueryServiceStatus failed with %d", "queryDriverInfo", lastErrorNumber());
        return 0;
    }
    running = status.dwCurrentState == SERVICE_RUNNING;
    return queryImagePath(service.get(), imagePath);
}

} // namespace velmox
