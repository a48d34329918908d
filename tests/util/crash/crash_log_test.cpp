#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "tests/support/function_thread.h"
#include "tests/support/scoped_folder.h"
#include "util/crash/crash_log.h"
#include "util/crash/crash_notes.h"
#include "util/system/environment.h"
#include "util/system/library_routine.h"
#include "util/text/str_segment.h"
#include "util/thread/thread_exception.h"

#include <dbghelp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ChildTest;
using ::testing::HasSubstr;
using ::testing::Not;

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
    {"violation", violate},
    {"exception", throwSomething},
    {"overflow", [] { overflow(0); }},
    {"badargument", passBadArgument},
    {"handler", violateInHandler},
    {"nohelp", violate},
    {"nodump", violate},
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
    testing::ensureMainThread();
    StrVector words;
    const Str argument = ChildTest::argument().toStr();
    StrSegment(argument).splitInto(words, " ", 1);
    if (words[0] == "badargument") {
        runTimeLibrary();
    }
    if (words[0] == "nohelp") {
        new testing::FailingCall("LoadLibraryW", 0, ERROR_MOD_NOT_FOUND);
    }
    if (words[1] != "-") {
        armCrashLog(Pathname::fromUtf8(words[1]));
    }
    if (words[0] == "nodump") {
        (new testing::FailingCall("CreateFileW", -1, ERROR_ACCESS_DENIED, 1))->onAnyThread();
    }
    if (words[0].startsWith("main-")) {
        die(words[0].view());
    } else {
        testing::FunctionThread worker([&] { die(words[0].view()); }, "dying worker");
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
          exitCode(child.exitCode()), output(child.output()), files(testing::readTree(folder.path()))
    {
    }
    Str log() const { return files.empty() ? Str() : files.begin()->second; }

    testing::ScopedFolder folder;
    ChildTest child;
    DWORD exitCode;
    Str output;
    testing::FileTree files;
};

void expectInOrder(const Str &text, const StrVector &parts)
{
    std::size_t at = 0;
    for (const Str &part : parts) {
        const std::size_t found = text.find(part.view(), at);
        ASSERT_NE(found, Str::npos) << part.c_str() << " is missing behind byte " << at << " of\n"
                                    << text.c_str();
        at = found + part.size();
    }
}

/// What a stream of a dump holds, by DbgHelp's reader; null if the dump lacks it.
template <class Stream>
const Stream *dumpStream(const Str &dump, ULONG type)
{
    using Read = BOOL(WINAPI *)(void *, ULONG, MINIDUMP_DIRECTORY **, void **, ULONG *);
    const auto read = reinterpret_cast<Read>(
        reinterpret_cast<void *>(GetProcAddress(LoadLibraryW(L"DbgHelp.dll"), "MiniDumpReadDumpStream")));
    MINIDUMP_DIRECTORY *directory = nullptr;
    void *found = nullptr;
    ULONG size = 0;
    const bool done = read(const_cast<char *>(dump.data()), type, &directory, &found, &size);
    return done && size >= sizeof(Stream) ? static_cast<const Stream *>(found) : nullptr;
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
        {"nodump", "dying worker", kViolation, violated},
        {"exception", "dying worker", 3, thrown},
        {"main-exception", "Main Thread", 3, thrown},
        {"overflow", "dying worker", EXCEPTION_STACK_OVERFLOW, {"Stack overflow (0xC00000FD)"}},
    };
    for (const auto &[way, thread, exitCode, told] : cases) {
        const bool hasDump = way[0] != 'n';
        const Death death(way);
        const Str log = death.log();
        EXPECT_EQ(death.exitCode, exitCode) << way;
        ASSERT_EQ(death.files.size(), hasDump ? 2u : 1u) << death.output.c_str();
        EXPECT_THAT(log.c_str(), ::testing::StartsWith("[build 4711] "));
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
                    ::testing::ContainsRegex("^\\w__.*_util-tests_exe_crash-"
                                             "\\d\\d\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d\\.log$"));
        EXPECT_EQ(name, Str::concat(death.files.begin()->first, ".dmp"));
        const auto *exception = dumpStream<MINIDUMP_EXCEPTION_STREAM>(dump, ExceptionStream);
        ASSERT_NE(exception, nullptr) << way;
        EXPECT_TRUE(exitCode == 3 || exception->ExceptionRecord.ExceptionCode == exitCode) << way;
        EXPECT_NE(dumpStream<MINIDUMP_THREAD_LIST>(dump, ThreadListStream), nullptr) << way;
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
    setEnvironmentVariable(u"VELMOX_HOME", u"C:\\prod");
    EXPECT_EQ(crashLogFolder(), u"C:\\prod\\var\\log\\velmox");
    setEnvironmentVariable(u"VELMOX_HOME", u"");
    EXPECT_EQ(crashLogFolder(), u".");
}

} // namespace
} // namespace velmox
