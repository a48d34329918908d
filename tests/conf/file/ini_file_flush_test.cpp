#include "conf/file/ini_file.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_test.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"
#include "util/handle_stream.h"
#include "util/open_file.h"
#include "util/regex.h"

#include <random>
#include <thread>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ChildTest;
using testing::lockOpen;
using testing::readLeftBehind;
using testing::readWhole;
using testing::ScopedFolder;
using testing::writeWhole;
using namespace std::string_literals;

/// A pattern that matches just the text.
Str quoted(const Str &text)
{
    Str out;
    Regex::escape(text, out);
    return out;
}

class IniFileFlush : public ::testing::Test
{
protected:
    Str temporary() const { return path.toStr().append(Str::fromFormat(".%lu.tmp", GetCurrentProcessId())); }
    /// The log tells of one renaming and nothing else; `outcome` is a pattern.
    void expectRenaming(CapturedLog &log, const char *start, const char *outcome, const char *end = "") const
    {
        const char time[] = "\\w{3} \\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d \\d{4}";
        Str pattern;
        pattern << start << " " << quoted(temporary()) << " to " << quoted(path.toStr()) << ": Rename "
                << outcome << " attempt\\(s\\) made between " << time << " and " << time << end << "\n";
        const Str text = log.text();
        EXPECT_TRUE(Regex(pattern, false, 0).match(text, nullptr, false, true)) << text.view();
    }

    ScopedFolder folder;
    Pathname path = folder / "x.conf";
};

TEST_F(IniFileFlush, RestoresTheFileByteForByte)
{
    const auto utf16 = "\xFF\xFE[\0s\0]\0\r\0\n\0k\0 \0=\0 \0\x1A\0\r\0\n\0"s;
    for (const std::string &bytes :
         {""s, "# c\n[s]\nk = v\x1A\n"s, "\xEF\xBB\xBF[s]\r\nk = \x1A\r\n\r\n#\r\n"s, utf16}) {
        writeWhole(path, bytes);
        CapturedLog log;
        IniFile file(path);
        EXPECT_TRUE(file.loaded());
        EXPECT_TRUE(file.flush());
        EXPECT_EQ(readWhole(path).view(), bytes);
        expectRenaming(log, "INFO IniFile: Renamed", "succeeded in 1");
        EXPECT_EQ(folder.count(), 1u);

        IniFile streamed(openFile(path, "r"), folder / "y.conf");
        EXPECT_TRUE(streamed.loaded());
        EXPECT_EQ(streamed.destination(), folder / "y.conf");
        EXPECT_TRUE(streamed.writeTo(folder / "z.conf"));
        EXPECT_EQ(readWhole(folder / "z.conf").view(), bytes);
        EXPECT_TRUE(removeFile(folder / "z.conf"));
    }
}

TEST_F(IniFileFlush, WhatCannotBeReadIsAnEmptyImage)
{
    writeWhole(path, "#h\nk=v\n#t\n");
    IniFile file(path);
    const auto errorText = [](unsigned error) {
        Str text;
        text.appendErrorText(error);
        return text;
    };
    for (const auto &[target, error] :
         {std::pair{folder / "absent", ERROR_FILE_NOT_FOUND}, {folder.path(), ERROR_ACCESS_DENIED}}) {
        CapturedLog log;
        file.load(target);
        EXPECT_EQ(log.text(), Str() << "ERROR IniFile: Cannot open file=" << target.toStr()
                                    << " for parsing: " << errorText(static_cast<unsigned>(error)) << "\n");
        EXPECT_FALSE(file.loaded());
        EXPECT_TRUE(file.empty());
        EXPECT_EQ(file.destination(), target);
    }
    FileHandle unreadable(CreateFileW(asWide(path), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    {
        CapturedLog log;
        EXPECT_FALSE(IniFile(streamFromHandle(std::move(unreadable), 0, "r"), path).loaded());
        EXPECT_EQ(log.text(), Str() << "ERROR IniFile: Cannot read file=" << path.toStr() << ": "
                                    << errorText(ERROR_ACCESS_DENIED) << "\n");
    }
    file.stanza("made");
    {
        CapturedLog log;
        file.setDestination(folder / "absent\\file");
        EXPECT_FALSE(file.flush());
        const Str name =
            file.destination().toStr().append(Str::fromFormat(".%lu.tmp", GetCurrentProcessId()));
        EXPECT_EQ(log.text(), Str() << "ERROR IniFile: Cannot open tmpfile=" << name << ": "
                                    << errorText(ERROR_PATH_NOT_FOUND)
                                    << "\nERROR IniFile: Error while writing to: " << name << "\n");
    }
    {
        CapturedLog log;
        EXPECT_FALSE(IniFile().flush());
        EXPECT_EQ(log.text(), "ERROR IniFile: No destination set for IniFile flush\n");
    }
    file.setDestination(folder / "new.conf");
    CapturedLog log;
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(readWhole(folder / "new.conf"), "[made]\n");
}

TEST_F(IniFileFlush, WaitsForADestinationThatIsLocked)
{
    writeWhole(path, "old");
    IniFile file;
    file.setDestination(path);
    FileHandle held = lockOpen(path);
    ASSERT_TRUE(held.isValid());
    std::thread holder([&held] {
        Sleep(1'000);
        held.reset();
    });
    CapturedLog log;
    EXPECT_TRUE(file.flush());
    holder.join();
    expectRenaming(log, "WARN IniFile: Renamed", "succeeded in \\d+");
    EXPECT_EQ(readWhole(path), "");
    EXPECT_EQ(folder.count(), 1u);
}

TEST_F(IniFileFlush, GivesUpOnADestinationThatStaysLocked)
{
    writeWhole(path, "old");
    IniFile file;
    file.setDestination(path);
    file.stanza("s");
    {
        const FileHandle held = lockOpen(path);
        CapturedLog log;
        EXPECT_FALSE(file.flush());
        expectRenaming(log, "ERROR IniFile: Cannot rename", "failed in 20", " \\[status code: (5|32)\\]");
    }
    EXPECT_EQ(readWhole(path), "old");
    EXPECT_EQ(readWhole(Pathname::fromUtf8(temporary())), "[s]\r\n");
    CapturedLog log;
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(readWhole(path), "[s]\r\n");
    EXPECT_EQ(folder.count(), 1u);
}

constexpr int kKeys = 2'000;

TEST(IniFileChild, DISABLED_FlushesForever)
{
    IniFile file(ChildTest::argument());
    for (unsigned number = 1;; ++number) {
        for (int key = 0; key < kKeys; ++key) {
            file.stanza("s").findKey(Str() << "key" << key)->setValue(Str() << number);
        }
        file.flush();
    }
}

TEST_F(IniFileFlush, LeavesTheOldFileOrTheNewOneWhenKilled)
{
    CapturedLog log;
    IniFile file;
    for (int key = 0; key < kKeys; ++key) {
        file.stanza("s").insertKey(Str() << "key" << key, "0");
    }
    file.setDestination(path);
    ASSERT_TRUE(file.flush());
    std::mt19937 random(std::random_device{}());
    unsigned changes = 0;
    for (int round = 0; round < 15; ++round) {
        const Str before = readWhole(path);
        {
            ChildTest child("IniFileChild.DISABLED_FlushesForever", path);
            for (int wait = 0; wait < 2'000 && readWhole(path) == before; ++wait) {
                Sleep(5);
            }
            Sleep(random() % 20);
        }
        const Str after = readLeftBehind(path);
        writeWhole(folder / "copy", after.view());
        const IniFile left(folder / "copy");
        const IniStanza *stanza = left.findStanza("s");
        ASSERT_TRUE(stanza && stanza->keyCount() == kKeys) << round << ": " << after.size() << " bytes";
        for (const auto &[key, value, entry] : *stanza) {
            ASSERT_EQ(value, (*stanza->begin()).value) << key;
        }
        changes += after == before ? 0 : 1;
    }
    EXPECT_GT(changes, 5u);
}

} // namespace
} // namespace velmox
