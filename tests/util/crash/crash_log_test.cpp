#include "tests/support/function_thread.h"
#include "util/crash/crash_log.h"
#include "util/crash/crash_notes.h"
#include "util/thread/thread_primitives.h"

#include <dbghelp.h>

namespace velmox {
namespace {

void violate()
{
    SetLastError(1234);
    static volatile std::uintptr_t address = 0x10;
    *reinterpret_cast<volatile int *>(address) = 1;
}

void throwSomething()
{
    throwThreadException(ERROR_ACCESS_DENIED, "thrown on purpose: %s", "text");
}

void violateInHandler()
{
    try {
        throwSomething();
    } catch (const std::exception &) {
        violate();
    }
}

int overflow(int depth)
{
    volatile char block[4096];
    block[depth % 4096] = 1;
    return depth < 1'000'000'000 ? overflow(depth + 1) + block[0] : 0;
}

/// The run-time library that lets itself be told of a handler in Wine as well.
HMODULE runTimeLibrary()
{
    return LoadLibraryW(L"ucrtbase.dll");
}

void passBadArgument()
{
    errno_t (*copy)(char *, std::size_t, const char *) = nullptr;
    if (findRoutine(runTimeLibrary(), "strcpy_s", copy)) {
        std::printf("went on with %d\n", copy(nullptr, 0, "text"));
    }
}

constexpr std::pair<std::string_view, void (*)()> kWays[] = {
    {"violation", violate},           {"exception", throwSomething}, {"overflow", [] { overflow(0); }},
    {"badargument", passBadArgument}, {"handler", violateInHandler}, {"nohelp", violate},
};

void die(std::string_view name)
{
    const ScopedPerThreadCrashLogStringNotation outer("outer note %d", 1);
    {
        const ScopedPerThreadCrashLogStringNotation gone("note that is gone");
    }
    const ScopedPerThreadCrashLogStringNotation inner("inner note of %s", name.data());
    for (const auto &[way, act] : kWays) {
        if (name.ends_with(way)) {
            act();
        }
    }
}

/// The argument is "WAY FOLDER", with "-" for a crash log that is not armed.
TEST(CrashChild, DISABLED_Dies)
{
    ensureMainThread();
    StrVector words;
    const Str argument = ChildTest::argument().toStr();
    StrSegment(argument).splitInto(words, " ", 1);
    if (words[0] == "badargument") {
        runTimeLibrary();
    }
    if (words[0] == "nohelp") {
        new FailingCall("LoadLibraryW", 0, ERROR_MOD_NOT_FOUND);
    }
    if (words[1] != "-") {
        armCrashLog(Pathname::fromUtf8(words[1]));
    }
    if (words[0].startsWith("main-")) {
        die(words[0].view());
    } else {
        FunctionThread worker([&] { die(words[0].view()); }, "dying worker");
        worker.start();
        worker.join();
    }
}

/// The child's death, and what it left behind.
struct Death
{
    explicit Death(const char *way, const char *elsewhere = nullptr)
        : child("CrashChild.DISABLED_Dies", Pathname(WideStr::fromUtf8(way))
                                                .concat(" ")
                                                .concat(elsewhere ? Str(elsewhere) : folder.path().toStr())),
          exitCode(child.exitCode()), output(child.output()), files(readTree(folder.path()))
    {
    }
    Str log() const { return files.empty() ? Str() : files.begin()->second; }

    ScopedFolder folder;
    ChildTest child;
    DWORD exitCode;
    Str output;
    FileTree files;
};

/// The code of the exception that a dump holds; 0 if it holds none.
DWORD dumpedCode(const Str &dump)
{
    const auto at = [&](RVA offset) { return static_cast<const void *>(dump.data() + offset); };
    const auto &header = *static_cast<const MINIDUMP_HEADER *>(at(0));
    const auto *entry = static_cast<const MINIDUMP_DIRECTORY *>(at(header.StreamDirectoryRva));
    for (const auto *end = entry + header.NumberOfStreams; entry != end; ++entry) {
        if (entry->StreamType == ExceptionStream) {
            return static_cast<const MINIDUMP_EXCEPTION_STREAM *>(at(entry->Location.Rva))
                ->ExceptionRecord.ExceptionCode;
        }
    }
    return 0;
}

TEST(CrashLog, TellsHowTheProcessDied)
{
    constexpr auto kViolation = static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION);
    const StrVector thrown = {
        "velmox::ThreadException -> velmox::BaseException -> std::exception\r\n what(): "
        "thrown on purpose: text\r\n"};
    const StrVector violated = {"Access violation (0xC0000005)",
                                "cannot write at address [0x0000000000000010]"};
    const std::tuple<const char *, const char *, DWORD, StrVector> cases[] = {
        {"main-handler", "Main Thread", kViolation, violated},
        {"nohelp", "dying worker", kViolation, violated},
        {"exception", "dying worker", 3, thrown},
        {"overflow", "dying worker", EXCEPTION_STACK_OVERFLOW, {"Stack overflow (0xC00000FD)"}},
    };
    for (const auto &[way, thread, exitCode, told] : cases) {
        const bool hasDump = way[0] != 'n';
        const Death death(way);
        const Str log = death.log();
        EXPECT_EQ(death.exitCode, exitCode) << way;
        ASSERT_EQ(death.files.size(), hasDump ? 2u : 1u) << death.output.c_str();
        EXPECT_THAT(log.c_str(), StartsWith("[build 4711] "));
        expectInOrder(log, told);
        expectInOrder(log, {Str::fromFormat(" Crashing thread: %s\r\n", thread), "RIP [0x",
                            "\r\n OS: Windows\r\n Arch: x86-64\r\n\r\n Backtrace:\r\n",
                            std::string_view(way) == "nohelp" ? "  not available" : "  [0x", thread,
                            "inner note of ", "outer note 1\r\n", " Command line: ", way,
                            exitCode == kViolation ? " Last error: 1234\r\n" : " Last error: ",
                            thread[0] == 'M' ? "Threads running: 1\r\n" : "Threads running: 2\r\n",
                            " CPU: ", "terminating...\r\n", hasDump ? " Crash dump written to: " : ""});
        EXPECT_THAT(log.c_str(), Not(HasSubstr("note that is gone")));
        EXPECT_EQ(log.contains("thrown on purpose"), exitCode == 3) << way;
        if (!hasDump) {
            EXPECT_THAT(log.c_str(), Not(HasSubstr("Crash dump")));
            continue;
        }
        const auto &[name, dump] = *std::next(death.files.begin());
        EXPECT_THAT(death.files.begin()->first.c_str(),
                    ContainsRegex("^\\w__.*_util-tests_exe_crash-"
                                  "\\d\\d\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d\\.log$"));
        EXPECT_EQ(name, Str::concat(death.files.begin()->first, ".dmp"));
        EXPECT_TRUE(exitCode == 3 ? dumpedCode(dump) != 0 : dumpedCode(dump) == exitCode) << way;
    }
}

TEST(CrashLog, GoesToStandardErrorWithoutAFile)
{
    for (const char *folder : {"-", "C:\\absent"}) {
        const Death death("violation", folder);
        EXPECT_EQ(death.exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
        expectInOrder(death.output, {"[build 4711] ", "Access violation", "inner note", "terminating...\n"});
        EXPECT_THAT(death.output.c_str(), Not(HasSubstr("Crash dump"))) << folder;
    }
}

TEST(CrashLog, LogsBadArgumentsAndGoesOn)
{
    const Death death("badargument");
    EXPECT_EQ(death.exitCode, 0u);
    expectInOrder(death.output, {" Line='", Str::fromFormat("'\nwent on with %d\n", EINVAL)});
    EXPECT_TRUE(death.files.empty());
}

TEST(CrashLog, LiesUnderTheInstallation)
{
    const ScopedVariable none(u"VELMOX_HOME", u"");
    EXPECT_EQ(crashLogFolder(), u".");
    const ScopedVariable home(u"VELMOX_HOME", u"C:\\prod");
    EXPECT_EQ(crashLogFolder(), u"C:\\prod\\var\\log\\velmox");
}

} // namespace
} // namespace velmox
