#include "util/crash/mini_dump.h"

#include "util/crash/dbg_help.h"
#include "util/system/owned_handle.h"

namespace velmox {

bool writeMiniDump(const wchar_t *path, DWORD threadId, EXCEPTION_POINTERS *exception)
{
    const DbgHelp &dbgHelp = DbgHelp::instance();
    if (dbgHelp.miniDumpWriteDump == nullptr) {
        return false;
    }
    const FileHandle file(
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid()) {
        return false;
    }
    MINIDUMP_EXCEPTION_INFORMATION information{threadId, exception, FALSE};
    return dbgHelp.miniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), MiniDumpNormal,
                                     &information, nullptr, nullptr);
}

} // namespace velmox
