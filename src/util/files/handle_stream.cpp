#include "util/files/handle_stream.h"

#include "util/system/last_error_keeper.h"

#include <cerrno>
#include <cstdint>
#include <io.h>

namespace velmox {

namespace {

/// The run-time library tells its failures by errno alone; Wine's says nothing when its tables are full.
void setLastErrorFromErrno()
{
    constexpr struct
    {
        int number;
        DWORD error;
    } kErrors[] = {
        {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
        {0, ERROR_TOO_MANY_OPEN_FILES},
        {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
        {EBADF, ERROR_INVALID_HANDLE},
    };
    const int number = errno;
    SetLastError(ERROR_INVALID_PARAMETER);
    for (const auto &row : kErrors) {
        if (row.number == number) {
            SetLastError(row.error);
        }
    }
}

} // namespace

FileStar streamFromHandle(FileHandle handle, int flags, const char *mode)
{
    errno = 0;
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle.get()), flags);
    if (descriptor == -1) {
        setLastErrorFromErrno();
        return FileStar();
    }
    handle.release();
    FileStar file(_fdopen(descriptor, mode));
    if (!file.isOpen()) {
        setLastErrorFromErrno();
        const LastErrorKeeper keeper;
        _close(descriptor);
    }
    return file;
}

} // namespace velmox
