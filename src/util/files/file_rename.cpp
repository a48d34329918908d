#include "util/files/file_rename.h"

#include "util/files/file_system.h"
#include "util/system/windows_api.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr unsigned kTransientErrors[] = {
    ERROR_TOO_MANY_OPEN_FILES, ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY,
    ERROR_OUTOFMEMORY,         ERROR_NOT_READY,     ERROR_WRITE_FAULT,
    ERROR_READ_FAULT,          ERROR_GEN_FAILURE,   ERROR_SHARING_VIOLATION,
    ERROR_LOCK_VIOLATION,      ERROR_NETWORK_BUSY,  ERROR_ADAP_HDW_ERR,
    ERROR_BAD_NET_RESP,        ERROR_UNEXP_NET_ERR, ERROR_BAD_REM_ADAP,
    ERROR_SHARING_PAUSED,      ERROR_REQ_NOT_ACCEP, ERROR_OUT_OF_STRUCTURES,
    ERROR_NET_WRITE_FAULT,     ERROR_NO_PROC_SLOTS, ERROR_NO_MORE_SEARCH_HANDLES,
};

bool isTransient(unsigned error)
{
    return std::ranges::find(kTransientErrors, error) != std::end(kTransientErrors);
}

} // namespace

Str RetryResult::toStr() const
{
    Str text;
    text << operation << (succeeded ? " succeeded in " : " failed in ") << attempts
         << " attempt(s) made between " << firstTime.toStr() << " and " << lastTime.toStr();
    if (!succeeded) {
        text << " [status code: " << statusCode << "]";
    }
    return text;
}

bool renameWithRetries(const Pathname &from, RetryResult &result, const Pathname &to, unsigned attempts,
                       unsigned sleepMs)
{
    result = RetryResult();
    for (;;) {
        ++result.attempts;
        result.lastTime = Timeval::now();
        if (result.attempts == 1) {
            result.firstTime = result.lastTime;
        }
        result.succeeded = moveFile(from, to);
        if (result.succeeded) {
            result.statusCode = 0;
            return true;
        }
        result.statusCode = GetLastError();
        if (!isTransient(result.statusCode) || result.attempts >= attempts) {
            SetLastError(result.statusCode);
            return false;
        }
        Sleep(sleepMs);
    }
}

} // namespace velmox
