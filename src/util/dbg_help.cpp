#include "util/dbg_help.h"

namespace velmox {

namespace {

template <class Function>
void find(HMODULE library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(library, name)));
}

DbgHelp load()
{
    DbgHelp calls;
    const HMODULE library = LoadLibraryW(L"DbgHelp.dll");
    if (library == nullptr) {
        return calls;
    }
    find(library, "SymSetOptions", calls.symSetOptions);
    find(library, "SymInitialize", calls.symInitialize);
    find(library, "SymFromAddr", calls.symFromAddr);
    find(library, "SymGetLineFromAddr64", calls.symGetLineFromAddr64);
    find(library, "SymGetModuleInfo64", calls.symGetModuleInfo64);
    find(library, "SymFunctionTableAccess64", calls.symFunctionTableAccess64);
    find(library, "SymGetModuleBase64", calls.symGetModuleBase64);
    find(library, "StackWalk64", calls.stackWalk64);
    find(library, "MiniDumpWriteDump", calls.miniDumpWriteDump);
    return calls;
}

} // namespace

const DbgHelp &DbgHelp::instance()
{
    static const DbgHelp calls = load();
    return calls;
}

bool DbgHelp::canWalk() const
{
    return symSetOptions && symInitialize && symFromAddr && symGetLineFromAddr64 && symGetModuleInfo64 &&
           symFunctionTableAccess64 && symGetModuleBase64 && stackWalk64;
}

} // namespace velmox
