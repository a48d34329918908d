#include "companion/events/terminal.h"
#include "util/system/console_output.h"
#include "util/system/owned_handle.h"
#include "util/system/windows_api.h"
#include "util/text/wide_str.h"

#include <fcntl.h>
#include <io.h>

namespace velmox {

namespace {

/// Asks for what tells one file from all others: the volume's serial number and the file's index on it. False
/// for what is no file on a disk.
bool identify(const std::string &path, BY_HANDLE_FILE_INFORMATION &out)
{
    if (path == "-") {
        const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
        return GetFileType(input) == FILE_TYPE_DISK && GetFileInformationByHandle(input, &out) != FALSE;
    }
    // No access is asked for, so that it works beside whoever has the file open, whatever he shares.
    const FileHandle file(CreateFileW(asWide(WideStr::fromUtf8(path)), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file.isValid() && GetFileType(file.get()) == FILE_TYPE_DISK &&
           GetFileInformationByHandle(file.get(), &out) != FALSE;
}

} // namespace

bool isSameFile(const std::string &path, const std::string &other)
{
    BY_HANDLE_FILE_INFORMATION one = {};
    BY_HANDLE_FILE_INFORMATION two = {};
    return identify(path, one) && identify(other, two) &&
           one.dwVolumeSerialNumber == two.dwVolumeSerialNumber && one.nFileIndexHigh == two.nFileIndexHigh &&
           one.nFileIndexLow == two.nFileIndexLow;
}

Terminal openTerminal()
{
    // As text, the run-time library would drop each CR that is read, end the input at a Ctrl-Z, and write a
    // CR in front of each LF.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    Terminal terminal;
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    DWORD mode = 0;
    // Both fail for a file or a pipe.
    if (GetConsoleMode(console, &mode) == FALSE || GetConsoleScreenBufferInfo(console, &info) == FALSE) {
        return terminal;
    }
    showUtf8OnConsole();
    terminal.width = static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
    // A console wraps as soon as the last column is filled: a line as wide as the window would be followed by
    // an empty one.
    terminal.width -= terminal.width > 1 ? 1 : 0;
    // Refused by consoles older than Windows 10, which would show the escape sequences.
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
