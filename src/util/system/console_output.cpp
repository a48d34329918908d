#include "util/system/console_output.h"

#include "util/system/windows_api.h"

#include <cstdlib>

namespace velmox {

namespace {

// At file scope, as a function for `atexit` takes no argument.
UINT formerCodePage = 0;

void restoreCodePage()
{
    SetConsoleOutputCP(formerCodePage);
}

} // namespace

void showUtf8OnConsole()
{
    DWORD mode = 0;
    const bool isConsole = GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
    if (!isConsole || formerCodePage != 0) {
        return;
    }
    const UINT codePage = GetConsoleOutputCP();
    if (SetConsoleOutputCP(CP_UTF8) != FALSE) {
        formerCodePage = codePage;
        std::atexit(restoreCodePage);
    }
}

} // namespace velmox
