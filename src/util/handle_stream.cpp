#include "util/handle_stream.h"

#include <cstdint>
#include <io.h>

namespace velmox {

FileStar streamFromHandle(FileHandle handle, int flags, const char *mode)
{
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle.get()), flags);
    if (descriptor == -1) {
        return FileStar();
    }
    handle.release();
    FileStar file(_fdopen(descriptor, mode));
    if (!file.isOpen()) {
        const DWORD error = GetLastError();
        _close(descriptor);
        SetLastError(error);
    }
    return file;
}

} // namespace velmox
