#include "util/log_appender.h"
#include "util/platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace velmox {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Files in memory, on which any call can be made to fail with "file not found" or error 5.
class FakeFiles : public LogFileSystem
{
public:
    std::unique_ptr<LogFile> openAppend(const Pathname &path) override
    {
        if (fails("open " + name(path))) {
            return nullptr;
        }
        content[name(path)];
        return std::make_unique<File>(*this, name(path));
    }
    bool exists(const Pathname &path) override { return content.count(name(path)) != 0; }
    bool remove(const Pathname &path) override
    {
        calls.push_back("remove " + name(path));
        if (fails(calls.back())) {
            return false;
        }
        if (content.erase(name(path)) == 0) {
            platform::setLastError(2);
            return false;
        }
        return true;
    }
    bool rename(const Pathname &from, const Pathname &to) override
    {
        calls.push_back("rename " + name(from) + " " + name(to));
        if (fails(calls.back())) {
            return false;
        }
        content[name(to)] = content[name(from)];
        content.erase(name(from));
        return true;
    }

    std::map<std::string, std::string> content;
    std::vector<std::string> calls;
    std::set<std::string> failing;
    std::size_t longestWrite = ~std::size_t{0};

private:
    struct File : LogFile
    {
        File(FakeFiles &files, std::string name) : files_(files), name_(std::move(name)) {}
        bool size(std::uint64_t &bytes) override
        {
            bytes = files_.content[name_].size();
            return !files_.fails("size " + name_);
        }
        std::ptrdiff_t write(const char *bytes, std::size_t length) override
        {
            if (files_.fails("write " + name_)) {
                return -1;
            }
            length = std::min(length, files_.longestWrite);
            files_.content[name_].append(bytes, length);
            return static_cast<std::ptrdiff_t>(length);
        }
        FakeFiles &files_;
        std::string name_;
    };

    static std::string name(const Pathname &path) { return path.toStr().c_str(); }
    bool fails(const std::string &call)
    {
        platform::setLastError(5);
        return failing.count(call) != 0;
    }
};

class LogAppenderTest : public testing::Test
{
protected:
    LogAppenderTest() { appender.setProperty("fileName", "x.log"); }

    void limits(const char *size, const char *backups)
    {
        ASSERT_TRUE(appender.setProperty("maxFileSize", size));
        ASSERT_TRUE(appender.setProperty("maxBackupIndex", backups));
    }
    bool append(const char *text) { return appender.append(LogRecord(), text, reports); }

    std::vector<std::string> told() const
    {
        std::vector<std::string> out;
        for (const LogReport &report : reports) {
            out.push_back(std::string(logLevelName(report.level)) + " " + report.text.c_str());
        }
        return out;
    }
    static std::string reason() { return Str::fromErrorFormat(5, "%%s%m").substr(2).c_str(); }

    FakeFiles files;
    LogAppender appender{"A", &files};
    LogReports reports;
};

TEST_F(LogAppenderTest, RollsThroughTheBackups)
{
    limits("10", "2");
    for (const char *line : {"11111111", "1", "2222222222", "33333333333", "4444444444", "5"}) {
        EXPECT_TRUE(append(line));
    }
    EXPECT_THAT(files.content,
                ElementsAre(std::pair<const std::string, std::string>{"x.log", "5\r\n"},
                            std::pair<const std::string, std::string>{"x.log.1", "4444444444\r\n"},
                            std::pair<const std::string, std::string>{"x.log.2", "33333333333\r\n"}));
    // The size may equal the limit. That the last backup is missing is no fault.
    std::vector<std::string> calls = {"rename x.log x.log.1"};
    for (int roll = 0; roll < 3; ++roll) {
        calls.insert(calls.end(), {"remove x.log.2", "rename x.log.1 x.log.2", "rename x.log x.log.1"});
    }
    EXPECT_EQ(files.calls, calls);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(LogAppenderTest, WithoutBackupsBeginsAnew)
{
    limits("3", "0");
    EXPECT_TRUE(append("long"));
    EXPECT_TRUE(append("x"));
    EXPECT_THAT(files.calls, ElementsAre("remove x.log"));
    EXPECT_EQ(files.content["x.log"], "x\r\n");
}

TEST_F(LogAppenderTest, CountsWhatTheFileHeldBefore)
{
    files.content["x.log"] = "0123456789";
    limits("12", "1");
    append("a");
    EXPECT_EQ(files.content["x.log.1"], "0123456789a\r\n");
}

TEST_F(LogAppenderTest, TellsWhatFailsAndTriesAgain)
{
    const std::string reason = LogAppenderTest::reason();
    files.failing = {"open x.log"};
    EXPECT_FALSE(append("lost"));
    files.failing = {"size x.log"};
    EXPECT_FALSE(append("lost"));
    files.failing = {"write x.log"};
    EXPECT_FALSE(append("lost"));
    files.failing = {};
    EXPECT_TRUE(append("kept"));
    EXPECT_EQ(files.content["x.log"], "kept\r\n");
    EXPECT_THAT(told(), ElementsAre("ERROR Error opening \"x.log\": " + reason,
                                    "ERROR Error calling fstat on \"x.log\": " + reason,
                                    "ERROR Error writing to \"x.log\": " + reason));
}

TEST_F(LogAppenderTest, RollsOnOverFailures)
{
    const std::string reason = LogAppenderTest::reason();
    limits("3", "1");
    files.content = {{"x.log", ""}, {"x.log.1", "old"}};
    files.failing = {"remove x.log.1", "rename x.log x.log.1"};
    EXPECT_TRUE(append("first"));
    files.failing.insert("open x.log");
    EXPECT_TRUE(append("second"));
    EXPECT_EQ(files.content["x.log"], "first\r\nsecond\r\n");
    EXPECT_THAT(told(), ElementsAre("WARN Error unlinking \"x.log.1\": " + reason,
                                    "WARN Error renaming \"x.log\" to \"x.log.1\": " + reason,
                                    "WARN Error unlinking \"x.log.1\": " + reason,
                                    "WARN Error renaming \"x.log\" to \"x.log.1\": " + reason,
                                    "ERROR Error opening \"x.log\": " + reason));
}

TEST_F(LogAppenderTest, WritesOnAfterAShortWrite)
{
    files.longestWrite = 2;
    EXPECT_TRUE(append("abcdefg"));
    EXPECT_EQ(files.content["x.log"], "abcdefg\r\n");
}

TEST_F(LogAppenderTest, WritesNothingWhenDisabled)
{
    appender.disable();
    EXPECT_FALSE(append("a"));
    EXPECT_THAT(files.content, IsEmpty());
}

TEST_F(LogAppenderTest, TakesPropertiesOrKeepsTheOldOnes)
{
    limits("7", "3");
    const struct
    {
        const char *property;
        const char *value;
        bool taken;
    } cases[] = {
        {"maxFileSize", "010", false},
        {"maxFileSize", "00", false},
        {"maxFileSize", "", false},
        {"maxFileSize", "-1", false},
        {"maxFileSize", "+1", false},
        {"maxFileSize", "12k", false},
        {"maxFileSize", "18446744073709551616", false},
        {"maxBackupIndex", "4294967296", false},
        {"maxBackupIndex", "0x1", false},
        {"layout", "basicLayout", false},
        {"layout", "", false},
        {"filename", "y.log", false},
        {"", "y", false},
        {"maxFileSize.x", "1", false},
        {"layout", "SimpleLayout", true},
        {"layout", "PatternLayout", true},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(appender.setProperty(each.property, each.value), each.taken) << each.property << each.value;
        EXPECT_EQ(appender.maximumSize(), 7u);
        EXPECT_EQ(appender.maximumBackupIndex(), 3u);
    }
    limits("18446744073709551615", "4294967295");
    EXPECT_EQ(appender.maximumSize(), ~std::uint64_t{0});
    EXPECT_EQ(appender.maximumBackupIndex(), ~std::uint32_t{0});
    limits("100 bytes", "0\ttimes");
    EXPECT_EQ(appender.maximumSize(), 100u);
    EXPECT_EQ(appender.maximumBackupIndex(), 0u);
}

TEST_F(LogAppenderTest, KeepsItsPatternBehindOtherLayouts)
{
    appender.setProperty("layout.ConversionPattern", "<%m>");
    append("a");
    appender.setProperty("layout", "SimpleLayout");
    append("b");
    appender.setProperty("layout", "PatternLayout");
    append("c");
    EXPECT_EQ(files.content["x.log"], "<a>INFO    : b\r\n<c>");
}

} // namespace
} // namespace velmox
