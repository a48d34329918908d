#include "testbed/driver_service.h"

#include <chrono>
#include <string>
#include <system_error>
#include <thread>

namespace velmox::testbed {

namespace {

constexpr const wchar_t *kServiceName = L"velmoxdrv-win6";
constexpr const wchar_t *kBuiltFile = L"" VELMOX_TEST_DRIVER_FILE;
constexpr const wchar_t *kSystemLocation = L"system32\\drivers\\velmoxdrv-win6.sys";
constexpr const wchar_t *kSwitchKey = L"Software\\VelmoxTestbed";

[[noreturn]] void fail(DWORD error, const char *what)
{
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

/// Throws unless the call whose result this is succeeded, or failed with the one error that does not matter.
void check(bool succeeded, const char *what, DWORD harmlessError = ERROR_SUCCESS)
{
    if (succeeded)
        return;
    const DWORD error = GetLastError();
    if (error != harmlessError)
        fail(error, what);
}

std::wstring installedFile()
{
    wchar_t directory[MAX_PATH];
    check(GetSystemDirectoryW(directory, MAX_PATH) != 0, "GetSystemDirectoryW");
    return std::wstring(directory) + L"\\drivers\\" + kServiceName + L".sys";
}

ServiceHandle openManager()
{
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    check(manager.isValid(), "OpenSCManagerW");
    return manager;
}

/// Not valid if there is no such service.
ServiceHandle findService()
{
    const ServiceHandle manager = openManager();
    ServiceHandle service(OpenServiceW(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
    check(service.isValid(), "OpenServiceW", ERROR_SERVICE_DOES_NOT_EXIST);
    return service;
}

ServiceHandle createService()
{
    const ServiceHandle manager = openManager();
    ServiceHandle service(CreateServiceW(manager.get(), kServiceName, kServiceName, SERVICE_ALL_ACCESS,
                                         SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                         installedFile().c_str(), nullptr, nullptr, nullptr, nullptr,
                                         nullptr));
    check(service.isValid(), "CreateServiceW");
    return service;
}

void changePath(const ServiceHandle &service, const wchar_t *path)
{
    check(ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, path,
                               nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
          "ChangeServiceConfigW");
}

void stop(const ServiceHandle &service)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    SERVICE_STATUS status = {};
    check(ControlService(service.get(), SERVICE_CONTROL_STOP, &status), "ControlService",
          ERROR_SERVICE_NOT_ACTIVE);
    while (QueryServiceStatus(service.get(), &status) && status.dwCurrentState != SERVICE_STOPPED) {
        if (std::chrono::steady_clock::now() > deadline)
            fail(ERROR_TIMEOUT, "stopping the driver");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace

void placeDriverFile()
{
    // A prefix may hold its Windows files as links into another: the old one is taken away, not written over.
    DeleteFileW(installedFile().c_str());
    check(CopyFileW(kBuiltFile, installedFile().c_str(), FALSE), "copying the driver");
}

ServiceHandle openDriverService()
{
    ServiceHandle service = findService();
    if (!service.isValid())
        return createService();
    changePath(service, installedFile().c_str());
    return service;
}

void startDriverService()
{
    const ServiceHandle service = openDriverService();
    placeDriverFile();
    check(StartServiceW(service.get(), 0, nullptr), "StartServiceW", ERROR_SERVICE_ALREADY_RUNNING);
}

void keepDriverService()
{
    changePath(findService(), kSystemLocation);
}

void stopDriverService()
{
    stop(findService());
}

void removeDriverService()
{
    const ServiceHandle service = findService();
    if (!service.isValid())
        return;
    stop(service);
    check(DeleteService(service.get()), "DeleteService", ERROR_SERVICE_MARKED_FOR_DELETE);
}

bool isDriverServiceInstalled()
{
    return findService().isValid();
}

void setLiveAtStart(bool live)
{
    const DWORD value = live;
    const LSTATUS error =
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSwitchKey, L"Live", REG_DWORD, &value, sizeof value);
    if (error != ERROR_SUCCESS)
        fail(static_cast<DWORD>(error), "RegSetKeyValueW");
}

} // namespace velmox::testbed
