#pragma once

#include "util/system/windows_api.h"

#include <dbghelp.h>

namespace velmox {

/// The calls of DbgHelp.dll, found at run time; null where the library or the call is missing.
///
/// The library is not made for threads: one at a time may call it.
struct DbgHelp
{
    decltype(&::SymSetOptions) symSetOptions = nullptr;
    decltype(&::SymInitialize) symInitialize = nullptr;
    decltype(&::SymFromAddr) symFromAddr = nullptr;
    decltype(&::SymGetLineFromAddr64) symGetLineFromAddr64 = nullptr;
    decltype(&::SymGetModuleInfo64) symGetModuleInfo64 = nullptr;
    decltype(&::SymFunctionTableAccess64) symFunctionTableAccess64 = nullptr;
    decltype(&::SymGetModuleBase64) symGetModuleBase64 = nullptr;
    decltype(&::StackWalk64) stackWalk64 = nullptr;
    decltype(&::MiniDumpWriteDump) miniDumpWriteDump = nullptr;

    /// Loads the library on the first call, and never lets it go.
    static const DbgHelp &instance();

    bool canWalk() const;
};

} // namespace velmox
