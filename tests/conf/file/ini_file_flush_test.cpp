#include "conf/file/ini_file.h"
#include "tests/conf/conf_root.h"
#include "util/files/file_star.h"

namespace velmox {
namespace {

TEST(IniFileFlush, RestoresTheFileByteForByte)
{
    const ScopedFolder folder;
    const Pathname path = folder / "x.conf";
    const auto utf16 = "\xFF\xFE[\0s\0]\0\r\0\n\0k\0 \0=\0 \0\x1A\0\r\0\n\0"s;
    for (const std::string &bytes : {""s, "# c\n[s]\nk = " + std::string(5'000, 'v') + "\x1A\n",
                                     "\xEF\xBB\xBF[s]\r\nk = \x1A\r\n\r\n#\r\n"s, utf16}) {
        writeWhole(path, bytes);
        const ConfLog log(folder.path());
        IniFile file(path);
        EXPECT_TRUE(file.loaded());
        EXPECT_TRUE(file.flush());
        EXPECT_EQ(readWhole(path).view(), bytes);
        EXPECT_EQ(log.text(),
                  "INFO IniFile: Renamed ROOT/x.conf.PID.tmp to ROOT/x.conf: Rename succeeded in 1 "
                  "attempt(s)\n");
        EXPECT_EQ(folder.count(), 1u);
    }
}

TEST(IniFileFlush, WhatCannotBeReadIsAnEmptyImage)
{
    const ScopedFolder folder;
    const Pathname path = folder / "x.conf";
    writeWhole(path, "#h\nk=v\n#t\n");
    IniFile file(path);
    EXPECT_TRUE(file.loaded());
    const ConfLog log(folder.path());
    for (const Pathname &target : {folder / "absent", folder.path()}) {
        file.load(target);
        EXPECT_FALSE(file.loaded());
        EXPECT_TRUE(file.empty() && file.headComments().empty() && file.tailComments().empty());
        EXPECT_EQ(file.destination(), target);
    }
    FileHandle unreadable(CreateFileW(asWide(path), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(IniFile(streamFromHandle(std::move(unreadable), 0, "r"), path).loaded());
    file.stanza("made");
    file.setDestination(folder / "absent\\file");
    EXPECT_FALSE(file.flush());
    EXPECT_FALSE(IniFile().flush());
    EXPECT_EQ(log.text(), "ERROR IniFile: Cannot open file=ROOT/absent for parsing: <2>\n"
                          "ERROR IniFile: Cannot open file=ROOT for parsing: <5>\n"
                          "ERROR IniFile: Cannot read file=ROOT/x.conf: <5>\n"
                          "ERROR IniFile: Cannot open tmpfile=ROOT/absent/file.PID.tmp: <3>\n"
                          "ERROR IniFile: Error while writing to: ROOT/absent/file.PID.tmp\n"
                          "ERROR IniFile: No destination set for IniFile flush\n");
    file.setDestination(folder / "new.conf");
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(readWhole(folder / "new.conf"), "[made]\n");
}

} // namespace
} // namespace velmox
