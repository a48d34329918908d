#include "util/crash/dbg_help.h"

#include "util/system/library_routine.h"

namespace velmox {

namespace {

DbgHelp load()
{
    DbgHelp calls;
    const HMODULE library = LoadLibraryW(L"DbgHelp.dll");
    if (library == nullptr) {
        return calls;
    }
    findRoutine(library, "SymSetOptions", calls.symSetOptions);
    findRoutine(library, "SymInitialize", calls.symInitialize);
    findRoutine(library, "SymFromAddr", calls.symFromAddr);
    findRoutine(library, "SymGetLineFromAddr64", calls.symGetLineFromAddr64);
    findRoutine(library, "SymGetModuleInfo64", calls.symGetModuleInfo64);
    findRoutine(library, "SymFunctionTableAccess64", calls.symFunctionTableAccess64);
    findRoutine(library, "SymGetModuleBase64", calls.symGetModuleBase64);
    findRoutine(library, "StackWalk64", calls.stackWalk64);
    findRoutine(library, "MiniDumpWriteDump", calls.miniDumpWriteDump);
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
