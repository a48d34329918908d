#include "util/crash/crash_file.h"

#include <stdio.h>
#include <vector>

namespace velmox {

namespace {

WideStr programPath()
{
    std::vector<wchar_t> path(32768);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return WideStr(asUtf16(path.data()), length);
}

} // namespace

Pathname crashFileStem(const Pathname &folder)
{
    WideStr name = programPath();
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == u'.' || name[i] == u':' || name[i] == u'\\') {
            name[i] = u'_';
        }
    }
    Pathname stem = folder;
    stem.append(name.c_str(), name.size());
    return stem;
}

CrashFile::CrashFile(const char16_t *stem, const SYSTEMTIME &localTime)
{
    if (stem == nullptr) {
        return;
    }
    const int length = _snwprintf(path_, kMostPathUnits, L"%ls_crash-%04d-%02d-%02d-%02d-%02d-%02d.log",
                                  asWide(stem), localTime.wYear, localTime.wMonth, localTime.wDay,
                                  localTime.wHour, localTime.wMinute, localTime.wSecond);
    if (length > 0 && length < static_cast<int>(kMostPathUnits)) {
        file_.reset(CreateFileW(path_, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
}

void CrashFile::put(const char *bytes, std::size_t length)
{
    DWORD written = 0;
    WriteFile(file_.isValid() ? file_.get() : GetStdHandle(STD_ERROR_HANDLE), bytes,
              static_cast<DWORD>(length), &written, nullptr);
}

} // namespace velmox
