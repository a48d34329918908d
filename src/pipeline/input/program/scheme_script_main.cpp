// The script of the scheme WinRegMon, bin\scripts\WinRegMon.exe: tells servers what the monitor is, judges
// stanzas for it, and otherwise is the monitor, by starting bin\velmox-regmon.exe with what it was given
// itself. The monitor passes over arguments that it does not know, so it cannot be asked for these things.

#include "pipeline/input/program/scheme_script.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/process/job_process.h"
#include "util/text/pathname.h"

#include <cstdio>
#include <cwchar>

namespace velmox {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
// In units with the NUL, the longest that Windows can name (Maximum Path Length Limitation).
constexpr DWORD kLongestPath = 32768;

bool isAsked(const wchar_t *const *arguments, const wchar_t *request)
{
    for (const wchar_t *const *argument = arguments + 1; *argument != nullptr; ++argument) {
        if (std::wcscmp(*argument, request) == 0) {
            return true;
        }
    }
    return false;
}

int describe()
{
    std::fputs(kSchemeDescription, stdout);
    return kSuccess;
}

int validate()
{
    Str fault;
    try {
        ConfigXmlStreamingParser parser;
        readXmlFromStdin(parser);
        fault = findFault(parser.stanzas());
    } catch (const std::exception &exception) {
        // A document that cannot be read is a fault to be told like any other.
        fault = exception.what();
    }
    if (fault.empty()) {
        return kSuccess;
    }
    std::fputs(faultDocument(fault).c_str(), stdout);
    return kFailure;
}

/// This file lies in the folder `scripts` next to the monitor.
Pathname monitorPath()
{
    WideStr own(kLongestPath, u'\0');
    const DWORD length =
        GetModuleFileNameW(nullptr, reinterpret_cast<wchar_t *>(own.data()), static_cast<DWORD>(own.size()));
    own.resize(length);
    return Pathname(own).dirname().dirname().join("velmox-regmon.exe");
}

/// The arguments as they were given, with the blanks in front. Taken from the line as a whole, for quoting
/// them anew would not give back every line.
WideStr argumentsAsGiven()
{
    const WideStr line = asUtf16(GetCommandLineW());
    // The program's own name ends at the quote that closes it, or at the first blank.
    const bool isQuoted = line.startsWith(u"\"");
    const std::size_t end = line.view().find_first_of(isQuoted ? u"\"" : u" \t", 1);
    return end == WideStr::npos ? WideStr() : line.substr(end + (isQuoted ? 1 : 0));
}

/// Ctrl-C reaches the monitor as well, which then ends in order; this process only waits for it.
BOOL WINAPI leaveItToTheMonitor(DWORD event)
{
    return event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
}

/// Returns what the monitor returns. When this process is ended from outside the monitor ends too.
int runMonitor()
{
    SetConsoleCtrlHandler(leaveItToTheMonitor, TRUE);
    const Pathname monitor = monitorPath();
    WideStr command = u"\"";
    command.append(monitor).append(u"\"").append(argumentsAsGiven());
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    // The server's own pipes: what the monitor writes never passes through this process.
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    JobProcess process;
    if (!process.start(command, 0, startup)) {
        const Str text = Str::fromLastErrorFormat("Unable to run \"%s\": %m", monitor.toStr().c_str());
        std::fprintf(stderr, "%s\n", text.c_str());
        return kFailure;
    }
    WaitForSingleObject(process.handle(), INFINITE);
    return static_cast<int>(process.exitStatus());
}

} // namespace

} // namespace velmox

int wmain(int, wchar_t **arguments)
{
    if (velmox::isAsked(arguments, L"--scheme")) {
        return velmox::describe();
    }
    if (velmox::isAsked(arguments, L"--validate-arguments")) {
        return velmox::validate();
    }
    return velmox::runMonitor();
}
