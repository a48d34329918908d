#include "tests/support/child_process.h"
#include "tests/support/scoped_folder.h"
#include "util/crash_log.h"
#include "util/environment.h"

#include <dbghelp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ChildProcess;
using testing::ScopedFolder;

/// Names of the files in a folder, in order.
StrVector filesOf(const Pathname &folder)
{
    StrVector names;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(asWide(folder.join("*_crash-*")), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            names.push_back(Str::fromUtf16(asUtf16(found.cFileName)));
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// The helper's death, and what it left behind.
struct Death
{
    explicit Death(const char *way)
        : child(Str::fromFormat("\"%scrash_child.exe\" %s \"%s\"", testing::programFolder().c_str(), way,
                                folder.path().toStr().c_str())),
          exitCode(child.exitCode()), output(child.output()), files(filesOf(folder.path()))
    {
    }

    Pathname path(std::size_t index) const { return folder.path().join(files.at(index)); }
    Str log() const { return testing::readWhole(path(0)); }

    ScopedFolder folder;
    ChildProcess child;
    DWORD exitCode;
    Str output;
    StrVector files;
};

void expectInOrder(const Str &text, const StrVector &parts)
{
    std::size_t at = 0;
    for (const Str &part : parts) {
        const std::size_t found = text.find(std::string_view(part.data(), part.size()), at);
        ASSERT_NE(found, Str::npos) << part.c_str() << " is missing behind byte " << at << " of\n"
                                    << text.c_str();
        at = found + part.size();
    }
}

StrVector sectionsAfter(const char *threadName, const char *way)
{
    return {Str::fromFormat(" Crashing thread: %s\r\n", threadName),
            "RIP [0x",
            "\r\n OS: Windows\r\n Arch: x86-64\r\n\r\n Backtrace:\r\n",
            "  [0x",
            threadName,
            "inner note of ",
            "outer note 1\r\n",
            way,
            " Last error: ",
            "Threads running: ",
            " CPU: ",
            "terminating...\r\n",
            " Crash dump written to: "};
}

/// What a stream of a dump file holds, by DbgHelp's reader.
class Dump
{
public:
    explicit Dump(const Pathname &path) : bytes_(testing::readWhole(path)) {}

    template <class Stream>
    const Stream *stream(ULONG type)
    {
        using Read = BOOL(WINAPI *)(void *, ULONG, MINIDUMP_DIRECTORY **, void **, ULONG *);
        const auto read = reinterpret_cast<Read>(
            reinterpret_cast<void *>(GetProcAddress(LoadLibraryW(L"DbgHelp.dll"), "MiniDumpReadDumpStream")));
        MINIDUMP_DIRECTORY *directory = nullptr;
        void *found = nullptr;
        ULONG size = 0;
        const bool done = read(const_cast<char *>(bytes_.data()), type, &directory, &found, &size);
        return done && size >= sizeof(Stream) ? static_cast<const Stream *>(found) : nullptr;
    }

private:
    Str bytes_;
};

TEST(CrashLog, TellsAnAccessViolationOnAThread)
{
    const Death death("violation");
    EXPECT_EQ(death.exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    ASSERT_EQ(death.files.size(), 2u) << death.output.c_str();
    EXPECT_THAT(death.files[0].c_str(),
                ::testing::ContainsRegex("^\\w__.*_crash_child_exe_crash-"
                                         "\\d\\d\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d\\.log$"));
    EXPECT_EQ(death.files[1], Str::concat(death.files[0], ".dmp"));
    const Str log = death.log();
    EXPECT_THAT(log.c_str(), ::testing::StartsWith("[build "));
    expectInOrder(log, {"Access violation (0xC0000005)", "cannot write at address [0x0000000000000010]"});
    expectInOrder(log, sectionsAfter("dying worker", "crash_child.exe\" violation"));
    expectInOrder(log, {" Last error: 1234\r\n", "Threads running: 2\r\n"});
    EXPECT_EQ(log.find("note that is gone"), Str::npos);

    Dump dump(death.path(1));
    const auto *exception = dump.stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    ASSERT_NE(exception, nullptr);
    EXPECT_EQ(exception->ExceptionRecord.ExceptionCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    const auto *threads = dump.stream<MINIDUMP_THREAD_LIST>(ThreadListStream);
    ASSERT_NE(threads, nullptr);
    EXPECT_GE(threads->NumberOfThreads, 2u);
}

TEST(CrashLog, TellsAnExceptionThatNobodyCatches)
{
    struct Case
    {
        const char *way;
        const char *thread;
    };
    for (const Case &row : {Case{"exception", "dying worker"}, Case{"main-exception", "Main Thread"}}) {
        const Death death(row.way);
        EXPECT_EQ(death.exitCode, 3u);
        ASSERT_EQ(death.files.size(), 2u) << death.output.c_str();
        expectInOrder(
            death.log(),
            {"velmox::ThreadException -> velmox::BaseException -> std::exception\r\n what(): thrown on "
             "purpose: text\r\n",
             Str::fromFormat(" Crashing thread: %s\r\n", row.thread)});
        expectInOrder(death.log(), sectionsAfter(row.thread, row.way));
        EXPECT_NE(Dump(death.path(1)).stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream), nullptr);
    }
}

TEST(CrashLog, BlamesNoExceptionForAFaultInItsHandler)
{
    const Death death("handler");
    EXPECT_EQ(death.exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    ASSERT_EQ(death.files.size(), 2u) << death.output.c_str();
    expectInOrder(death.log(), {"Access violation (0xC0000005)"});
    EXPECT_EQ(death.log().find("thrown on purpose"), Str::npos);
}

TEST(CrashLog, TellsAUsedUpStack)
{
    const Death death("overflow");
    EXPECT_EQ(death.exitCode, static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW));
    ASSERT_EQ(death.files.size(), 2u) << death.output.c_str();
    expectInOrder(death.log(), {"Stack overflow (0xC00000FD)"});
    expectInOrder(death.log(), sectionsAfter("dying worker", "overflow"));
}

TEST(CrashLog, GoesToStandardErrorUntilItIsArmed)
{
    ChildProcess child(
        Str::fromFormat("\"%scrash_child.exe\" violation -", testing::programFolder().c_str()));
    EXPECT_EQ(child.exitCode(), static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    const Str output = child.output();
    expectInOrder(output, {"[build ", "Access violation", "inner note", "terminating...\n"});
    EXPECT_EQ(output.find("Crash dump"), Str::npos);
}

TEST(CrashLog, LogsBadArgumentsAndGoesOn)
{
    const Death death("badargument");
    EXPECT_EQ(death.exitCode, 0u);
    EXPECT_THAT(death.output.c_str(),
                ::testing::HasSubstr("Expression='a != b' Function='compare' Line='12'\n"));
    EXPECT_THAT(death.output.c_str(), ::testing::HasSubstr(" Line='0'\nwent on\n"));
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
