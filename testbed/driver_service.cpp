#include "testbed/driver_service.h"

#include "util/owned_handle.h"

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

struct ServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type invalid() { return nullptr; }
    static void close(Type handle) { CloseServiceHandle(handle); }
};
using ServiceHandle = OwnedHandle<ServiceHandleTraits>;

[[noreturn]] void fail(DWORD error, const char *what)
{
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

void check(bool succeeded, const char *what)
{
    if (!succeeded)
        fail(GetLastError(), what);
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
ServiceHandle openService()
{
    const ServiceHandle manager = openManager();
    ServiceHandle service(OpenServiceW(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
    if (!service.isValid()) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_DOES_NOT_EXIST)
            fail(error, "OpenServiceW");
    }
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

void waitUntilStopped(const ServiceHandle &service)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    SERVICE_STATUS status = {};
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

void removeDriverFile()
{
    if (!DeleteFileW(installedFile().c_str())) {
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND)
            fail(error, "removing the driver");
    }
}

void startDriverService()
{
    ServiceHandle service = openService();
    if (service.isValid())
        changePath(service, installedFile().c_str());
    else
        service = createService();
    placeDriverFile();
    if (!StartServiceW(service.get(), 0, nullptr)) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_ALREADY_RUNNING)
            fail(error, "StartServiceW");
    }
}

void keepDriverService()
{
    changePath(openService(), kSystemLocation);
}

void removeDriverService()
{
    const ServiceHandle service = openService();
    if (!service.isValid())
        return;
    SERVICE_STATUS status = {};
    if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_NOT_ACTIVE)
            fail(error, "ControlService");
    }
    waitUntilStopped(service);
    if (!DeleteService(service.get())) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_MARKED_FOR_DELETE)
            fail(error, "DeleteService");
    }
}

bool isDriverServiceInstalled()
{
    return openService().isValid();
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
