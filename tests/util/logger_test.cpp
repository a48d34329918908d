#include "tests/support/child_test.h"
#include "tests/support/function_thread.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"
#include "util/log_system.h"
#include "util/logger.h"
#include "util/owned_handle.h"
#include "util/structured_exception.h"
#include "util/windows_api.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ChildTest;
using testing::readWhole;
using testing::ScopedFolder;
using testing::writeWhole;

// Speaks before any logger of this program has been constructed, and to one that comes after it.
extern Logger lateLogger;
struct EarlySpeaker
{
    EarlySpeaker()
    {
        SetLastError(5);
        lateLogger.debug("spoken %s", "early");
        errorAfter = GetLastError();
    }
    DWORD errorAfter;
} earlySpeaker __attribute__((init_priority(200)));
Logger lateLogger("Late");

Str errorText(unsigned error)
{
    Str out;
    out.appendErrorText(error);
    return out;
}

/// Loads a configuration of one folder; afterwards everything is back on standard error.
class LoggerTest : public ::testing::Test
{
protected:
    ~LoggerTest() override
    {
        LogSystem::instance().reset(nullptr);
        Logger::bindAll();
    }

    bool load(std::string_view text, const char *section = nullptr)
    {
        const Pathname path = folder / "log.cfg";
        writeWhole(path, text);
        return Logger::loadConfig(path, section, {{"HOME", folder.path().toStr()}}, true);
    }
    Str log(const char *name = "x.log") { return readWhole(folder / name); }

    /// The path as text, for expectations.
    Str at(const char *name) { return (folder / name).toStr(); }

    ScopedFolder folder;
    Logger logger{"Test"};
    static constexpr const char *kFile = "appender.F.fileName=${HOME}\\x.log\n";
};

TEST_F(LoggerTest, BindsEachLoggerToItsCategory)
{
    EXPECT_TRUE(load("rootCategory=WARN,F\n"
                     "category.Test = DEBUG\n"
                     "appender.F.fileName=${HOME}\\x.log\n"
                     "appender.F.layout.ConversionPattern=%p %c %t: %m%n\n"));
    Logger other("Other");
    logger.debug("number %d", 7);
    other.info("not this");
    other.warn("this");
    other.log(LogLevel::Crit, "and this");
    EXPECT_TRUE(logger.debugEnabled());
    EXPECT_FALSE(other.debugEnabled());
    EXPECT_EQ(log(), "DEBUG Test Main Thread: number 7\r\nWARN Other Main Thread: this\r\n"
                     "CRIT Other Main Thread: and this\r\n");
}

TEST_F(LoggerTest, ThresholdOfOneComponentCanBeChanged)
{
    ASSERT_TRUE(load(Str("rootCategory=WARN,F\n").append(kFile)));
    Logger other("Other");
    EXPECT_FALSE(Logger::setThreshold("Nobody", LogLevel::Debug));
    EXPECT_TRUE(Logger::setThreshold("Test", LogLevel::Debug));
    logger.debug("this");
    other.info("not this");
    Logger later("Test");
    later.debug("and this");
    EXPECT_EQ(log(), "this\r\nand this\r\n");
}

TEST_F(LoggerTest, EveryFormKeepsTheLastErrorAndFillsIn)
{
    ASSERT_TRUE(load(Str("rootCategory=DEBUG,F\n").append(kFile)));
    LoggerSimple simple("Simple");
    const std::runtime_error exception("100%s");
    struct Wrap : LogFormatCallback
    {
        void before(Str &out) override { out << "<"; }
        void after(Str &out) override { out << ">"; }
    } wrap;
    const auto wrapped = [&](const char *fmt, ...) {
        std::va_list args;
        va_start(args, fmt);
        logger.log(LogLevel::Info, &wrap, fmt, args);
        va_end(args);
    };
    const std::function<void()> calls[] = {
        [&] { logger.debug("%m"); },
        [&] { logger.info("a%%m"); },
        [&] { logger.warn("%s", "w"); },
        [&] { logger.error("two\r\nlines"); },
        [&] { logger.info(exception); },
        [&] { logger.error() << "n=" << 5 << ' ' << u"\u00e4" << exception; },
        [&] { logger.debug() << ""; },
        [&] { logger.debug() << Str("nul\0%s", 6); },
        [&] { wrapped("%m"); },
        [&] { simple.error("to stderr"); },
        [&] { logger.log(LogLevel::Fatal, "f"); },
    };
    for (const auto &call : calls) {
        SetLastError(ERROR_ACCESS_DENIED);
        call();
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED + 0u);
    }
    const Str denied = errorText(ERROR_ACCESS_DENIED);
    Str expected;
    expected << denied << "\r\na%m\r\nw\r\ntwo\\r\\nlines\r\n100%s\r\nn=5 \xC3\xA4"
             << "100%s\r\n"
             << Str("nul\0%s", 6) << "\r\n<" << denied << ">\r\nf\r\n";
    EXPECT_EQ(log(), expected);
}

TEST_F(LoggerTest, StreamBelowTheThresholdMakesNoText)
{
    ASSERT_TRUE(load(Str("rootCategory=INFO,F\n").append(kFile)));
    logger.debug() << "nothing";
    logger.debug("nothing");
    EXPECT_EQ(log(), "");
}

TEST_F(LoggerTest, CompanionWinsAndSectionsCount)
{
    writeWhole(folder / "log-local.cfg", "category.Test=ERROR\n[b]\ncategory.Test=DEBUG\n");
    EXPECT_TRUE(load(Str(kFile).append("rootCategory=INFO,F\n[a]\nnonsense\n")));
    logger.warn("off");
    logger.error("on");
    EXPECT_EQ(log(), "on\r\n");
    EXPECT_FALSE(load(Str(kFile).append("rootCategory=INFO,F\n[A]\nnonsense\n"), "a"));
    EXPECT_TRUE(load(Str(kFile).append("rootCategory=INFO,F\n[A]\nnonsense\n"), "b"));
    EXPECT_TRUE(logger.debugEnabled());
}

TEST_F(LoggerTest, TellsParseErrorsInOrder)
{
    EXPECT_FALSE(load(Str(kFile).append("rootCategory=WARN,F,Bogus\n"
                                        "category.A\n"
                                        "what is this\n"
                                        " appender.F.maxFileSize = 010 # bytes\n"
                                        "<!-- open\n")));
    const Str file = at("log.cfg");
    Str expected;
    expected << file << ":4: Parse error at \"what is this\"\r\n"
             << file << ":5: Parse error at \"appender.F.maxFileSize = 010\"\r\n"
             << file << ":6: Unterminated XML comment started\r\n"
             << file << ":2: Parse error at \"rootCategory=WARN,F,Bogus\"\r\n"
             << file << ":3: Parse error at \"category.A\"\r\n";
    EXPECT_EQ(log(), expected);
}

TEST_F(LoggerTest, TellsWhatAppendersLack)
{
    EXPECT_TRUE(load(Str("category.Logger=WARN,F\n")
                         .append(kFile)
                         .append("appender.F.maxBackupIndex=1\n"
                                 "appender.E=x\n"
                                 "appender.E.maxBackupIndex=1\n"
                                 "appender.E.maxFileSize=1\n")));
    EXPECT_EQ(log(), "Appender \"E\" has no filename, assuming stderr\r\n"
                     "Appender \"E\" has maxBackupIndex set without specifying a filename, ignoring\r\n"
                     "Appender \"E\" has maxFileSize set without specifying a filename, ignoring\r\n"
                     "Appender \"F\" has maxBackupIndex set without specifying maxFileSize, ignoring\r\n");
}

TEST_F(LoggerTest, FileThatCannotBeOpenedIsToldToTheOthers)
{
    ASSERT_TRUE(makeDir(folder / "folder.log", true));
    const FileHandle alone(
        CreateFileW(asWide(folder / "taken.log"), GENERIC_READ, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(alone.isValid());
    const struct
    {
        const char *name;
        unsigned error;
    } cases[] = {{"none\\y.log", ERROR_PATH_NOT_FOUND},
                 {"folder.log", ERROR_ACCESS_DENIED},
                 {"taken.log", ERROR_SHARING_VIOLATION}};
    for (const auto &each : cases) {
        Str text = kFile;
        text << "rootCategory=INFO,Bad,F\nappender.Bad.fileName=${HOME}\\" << each.name << "\n";
        LogSystem::instance().reset(nullptr);
        DeleteFileW(asWide(folder / "x.log"));
        EXPECT_TRUE(load(text));
        logger.info("goes on");
        Str report;
        report << "Error opening \"" << at(each.name) << "\": " << errorText(each.error) << "\r\n";
        EXPECT_EQ(log(), Str::concat(report, report).append("goes on\r\n")) << each.name;
    }
}

TEST_F(LoggerTest, SuppressorHoldsRepeatsBack)
{
    ASSERT_TRUE(load(Str("rootCategory=INFO,F\n").append(kFile)));
    Logger repeating("Repeating", true, 3600, 2);
    for (int count = 0; count < 5; ++count) {
        repeating.info("number %d", count);
    }
    EXPECT_EQ(log(), "number 0\r\nnumber 1\r\n");
}

TEST_F(LoggerTest, FaultIsCaughtAndFreesTheLocks)
{
    ASSERT_TRUE(load(Str("rootCategory=INFO,F\n").append(kFile)));
    Logger repeating("Repeating", true);
    const char *const notText = reinterpret_cast<const char *>(std::uintptr_t{16});
    for (Logger *each : {&logger, &repeating}) {
        SetLastError(1234);
        each->info("%s", notText);
        EXPECT_EQ(GetLastError(), 1234u);
    }
    // Another thread would wait for ever if the fault had left a lock behind.
    testing::FunctionThread thread([&] { repeating.info("still here"); });
    thread.start();
    thread.join();
    EXPECT_EQ(log(), "caught SEH exception while trying to log!\r\n"
                     "caught SEH exception while trying to log!\r\nstill here\r\n");
}

TEST(StructuredException, ComesAsAnExceptionAndLetsOthersPass)
{
    const auto fault = [] {
        // An inner handler of everything is none of the fault's business: it would not know what to clean up.
        try {
            guarded([] { RaiseException(EXCEPTION_INT_OVERFLOW, 0, 0, nullptr); });
        } catch (const std::runtime_error &) {
        }
    };
    for (int round = 0; round < 1000; ++round) {
        try {
            guarded(fault);
            FAIL();
        } catch (const StructuredException &exception) {
            ASSERT_EQ(exception.code(), static_cast<unsigned>(EXCEPTION_INT_OVERFLOW));
        }
    }
    EXPECT_THROW(guarded([] { throw std::runtime_error("x"); }), std::runtime_error);
    bool ran = false;
    guarded([&] { ran = true; });
    EXPECT_TRUE(ran);
}

/// Eight threads, one rolling file: each line must stand exactly once, whole, in one of the kept files.
TEST_F(LoggerTest, ManyThreadsLoseNoLineWhileRolling)
{
    constexpr int kThreads = 8;
    constexpr int kLines = 25'000;
    ASSERT_TRUE(load(Str("rootCategory=INFO,F\n")
                         .append(kFile)
                         .append("appender.F.maxFileSize=102400\n"
                                 "appender.F.maxBackupIndex=1000\n")));
    std::vector<std::unique_ptr<testing::FunctionThread>> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.push_back(std::make_unique<testing::FunctionThread>([this, number] {
            for (int line = 0; line < kLines; ++line) {
                logger.info("%d %d a line of some length, as they are", number, line);
            }
        }));
        threads.back()->start();
    }
    for (auto &thread : threads) {
        thread->join();
    }
    LogSystem::instance().reset(nullptr);

    std::vector<char> seen(kThreads * kLines);
    unsigned files = 0;
    for (Pathname path = folder / "x.log"; pathKind(path) == PathKind::File;
         path = (folder / "x.log").concat(Str::fromFormat(".%u", ++files))) {
        const Str text = readWhole(path);
        ASSERT_LE(text.size(), 102400u + 60);
        StrVector lines;
        StrSegment(text).splitInto(lines, "\r\n");
        ASSERT_TRUE(lines.back().empty());
        lines.pop_back();
        for (const Str &line : lines) {
            int number = -1;
            int index = -1;
            ASSERT_EQ(std::sscanf(line.c_str(), "%d %d", &number, &index), 2) << line.c_str();
            ASSERT_EQ(line, Str::fromFormat("%d %d a line of some length, as they are", number, index));
            ASSERT_EQ(seen[static_cast<std::size_t>(number * kLines + index)]++, 0) << line.c_str();
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), kThreads * kLines);
    EXPECT_GT(files, 50u);
}

TEST(LoggerChild, SpeaksBeforeConfiguration)
{
    ChildTest child("LoggerChild.DISABLED_Unconfigured", Pathname());
    ASSERT_TRUE(child.succeeds());
    const Str output = child.output();
    for (const char *line :
         {"DEBUG - spoken early\n", "\nplain two\\nlines\n", "\nDEBUG - simple two\nlines\n",
          "\nERROR - Error opening \"C:\\none\\a.log\": ", "\nERROR - Error opening \"C:\\none\\b.log\": ",
          "\nWARN - cannot be made %s\n", "\nCouldn't open log file configuration \"C:\\none\\log.cfg\": "}) {
        EXPECT_TRUE(output.contains(line)) << line << " in " << output.c_str();
    }
    EXPECT_FALSE(output.contains("hidden")) << output.c_str();
}

TEST(LoggerChild, DISABLED_Unconfigured)
{
    EXPECT_EQ(earlySpeaker.errorAfter, 5u);
    Logger logger("Plain");
    LoggerSimple simple("Simple");
    logger.info("plain two\nlines");
    logger.debug("hidden");
    simple.debug("simple two\nlines");
    {
        // Each of two files that fail is the only other place for what is told about the other.
        const ScopedFolder folder;
        writeWhole(folder / "log.cfg", "rootCategory=INFO,A,B\nappender.A.fileName=C:\\none\\a.log\n"
                                       "appender.B.fileName=C:\\none\\b.log\n");
        EXPECT_TRUE(Logger::loadConfig(folder / "log.cfg", nullptr, {}, true));
        logger.info("lost");
    }
    struct Refuse : LogFormatCallback
    {
        void before(Str &) override { throw std::runtime_error("refused"); }
        void after(Str &) override {}
    } refuse;
    Logger repeating("Repeating", true);
    std::va_list none{};
    repeating.log(LogLevel::Warn, &refuse, "cannot be made %s", none);
    EXPECT_FALSE(Logger::loadConfig(Pathname(u"C:\\none\\log.cfg"), nullptr, {}, false));
    simple.debug("hidden");
}

} // namespace
} // namespace velmox
