#include "companion/program/terminal.h"
#include "util/system/windows_api.h"
#include "util/text/wide_str.h"

#include <cstdlib>
#include <fcntl.h>
#include <io.h>

namespace velmox {

namespace {

UINT formerCodePage = 0;

void restoreCodePage()
{
    SetConsoleOutputCP(formerCodePage);
}

} // namespace

Terminal openTerminal()
{
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    Terminal terminal;
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    DWORD mode = 0;
    if (GetConsoleMode(console, &mode) == FALSE || GetConsoleScreenBufferInfo(console, &info) == FALSE) {
        return terminal;
    }
    formerCodePage = GetConsoleOutputCP();
    if (SetConsoleOutputCP(CP_UTF8) != FALSE) {
        std::atexit(restoreCodePage);
    }
    terminal.width = static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
    // A line as wide as the window would be followed by an empty one.
    terminal.width -= terminal.width > 1 ? 1 : 0;
    terminal.hasColours = SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
    return terminal;
}

int openForReading(const std::string &path)
{
    return _wopen(asWide(WideStr::fromUtf8(path)), _O_RDONLY | _O_BINARY | _O_SEQUENTIAL | _O_NOINHERIT);
}

std::FILE *openForWriting(const std::string &path)
{
    return _wfopen(asWide(WideStr::fromUtf8(path)), L"wb");
}

} // namespace velmox
