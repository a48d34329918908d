#include "tests/support/scoped_folder.h"
#include "util/file_descriptor.h"
#include "util/open_file.h"
#include "util/readable_unicode_file_star.h"
#include "util/writable_unicode_file_star.h"

#include <gtest/gtest.h>
#include <io.h>
#include <string>

namespace velmox {
namespace {

using testing::readWhole;
using testing::ScopedFolder;
using testing::writeWhole;

constexpr DWORD kMarker = 0x20001234;

FileHandle openAgain(const Pathname &path, DWORD access)
{
    return FileHandle(CreateFileW(asWide(path), access,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
}

TEST(FileStarTest, OpensByTheLettersOfTheMode)
{
    const ScopedFolder folder;
    const struct
    {
        const char *mode;
        const char *before; ///< null is no file
        bool opens;
        const char *after; ///< once "XY" has been written, if it could be
    } cases[] = {
        {"wb", nullptr, true, "XY"},      {"wb", "abcd", true, "XY"},    {"ab", nullptr, true, "XY"},
        {"ab", "abcd", true, "abcdXY"},   {"w+b", nullptr, true, "XY"},  {"w+b", "abcd", true, "XYcd"},
        {"r+b", nullptr, false, nullptr}, {"r+b", "abcd", true, "XYcd"}, {"rb", nullptr, false, nullptr},
        {"rb", "abcd", true, "abcd"},
    };
    for (const auto &c : cases) {
        const Pathname path = folder / "file";
        DeleteFileW(asWide(path));
        if (c.before) {
            writeWhole(path, c.before);
        }
        SetLastError(0);
        FileStar file = openFile(path, c.mode);
        EXPECT_EQ(file.isOpen(), c.opens) << c.mode;
        if (!file.isOpen()) {
            EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u) << c.mode;
            continue;
        }
        file.write("XY", 2);
        file.close();
        EXPECT_EQ(readWhole(path), c.after) << c.mode;
    }
}

TEST(FileStarTest, SharesByTheMode)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    writeWhole(path, "x");
    {
        const FileStar reader = openFile(path, "rb");
        EXPECT_TRUE(openAgain(path, GENERIC_WRITE).isValid());
    }
    const FileStar writer = openFile(path, "ab");
    EXPECT_TRUE(openAgain(path, GENERIC_READ).isValid());
    EXPECT_FALSE(openAgain(path, GENERIC_WRITE).isValid());
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION + 0u);
    EXPECT_TRUE(DeleteFileW(asWide(path)));
}

TEST(FileStarTest, TranslatesLineEndsInTextModeOnly)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    openFile(path, "w").write("a\nb\n", 4);
    EXPECT_EQ(readWhole(path), "a\r\nb\r\n");
    FileStar file = openFile(path, "r");
    char text[16];
    EXPECT_EQ(file.read(text, sizeof text), 4);
    file = openFile(path, "r");
    EXPECT_TRUE(file.setBinary());
    EXPECT_EQ(file.read(text, sizeof text), 6);
    EXPECT_EQ(file.read(text, sizeof text), 0);
}

TEST(FileStarTest, ReadsLines)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    const std::string longLine(256, 'x');
    writeWhole(path, "one\r\n\n" + longLine + "\n" + longLine + "y\r\r\nlone\rinside\n" +
                         std::string("n\0l\n", 4) + "tail\r");
    FileStar file = openFile(path, "rb");
    Str line;
    for (const std::string &expected :
         {std::string("one"), std::string(), longLine, longLine + "y\r", std::string("lone\rinside"),
          std::string("n\0l", 3), std::string("tail")}) {
        ASSERT_TRUE(file.readLine(line));
        EXPECT_EQ(line.view(), expected);
    }
    line = "left over";
    EXPECT_FALSE(file.readLine(line));
    EXPECT_TRUE(line.empty());
}

TEST(FileStarTest, ReportsFailedReadsAndWrites)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    writeWhole(path, "content");
    char byte = 0;
    FileStar reader = openFile(path, "rb");
    FileStar writer = openFile(path, "ab");
    EXPECT_EQ(reader.write("x", 1), -1);
    EXPECT_EQ(writer.read(&byte, 1), -1);
    EXPECT_EQ(writer.write("", 0), 0);
}

TEST(FileStarTest, MakesTemporaryFilesThatVanish)
{
    const ScopedFolder folder;
    wchar_t before[MAX_PATH];
    ASSERT_NE(GetEnvironmentVariableW(L"TMP", before, MAX_PATH), 0u);
    SetEnvironmentVariableW(L"TMP", asWide(folder.path()));
    {
        FileStar file = FileStar::tempFile();
        ASSERT_TRUE(file.isOpen());
        EXPECT_EQ(folder.count(), 1u);
        EXPECT_EQ(file.write("a\nb", 3), 3);
        std::rewind(file.get());
        char text[8];
        EXPECT_EQ(file.read(text, sizeof text), 3);
    }
    EXPECT_EQ(folder.count(), 0u);
    SetEnvironmentVariableW(L"TMP", asWide(folder / "absent"));
    EXPECT_FALSE(FileStar::tempFile().isOpen());
    SetEnvironmentVariableW(L"TMP", before);
}

TEST(FileStarTest, TellsWhyThereIsNoFurtherStream)
{
    const ScopedFolder folder;
    testing::writeWhole(folder / "file", "x");
    std::vector<FileStar> files;
    do {
        SetLastError(kMarker);
        files.push_back(openFile(folder / "file", "rb"));
    } while (files.back().isOpen() && files.size() < 100'000);
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_OPEN_FILES + 0u);
}

TEST(FileStarTest, KeepsTheLastErrorWhenClosing)
{
    const ScopedFolder folder;
    FileStar file = openFile(folder / "file", "wb");
    SetLastError(kMarker);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(GetLastError(), kMarker);
    file = openFile(folder / "file", "wb");
    file.write("lost", 4);
    _close(_fileno(file.get()));
    SetLastError(kMarker);
    EXPECT_FALSE(file.close());
    EXPECT_EQ(GetLastError(), kMarker);
    EXPECT_FALSE(file.isOpen());
}

TEST(FileDescriptorTest, WritesNewFilesAndAppends)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    FileDescriptor file;
    ASSERT_TRUE(file.openWrite(path, FilePermissions::PublicRead));
    EXPECT_EQ(file.write("one\n", 4), 4);
    EXPECT_EQ(file.write("", 0), 0);
    EXPECT_TRUE(openAgain(path, GENERIC_READ).isValid());
    EXPECT_FALSE(openAgain(path, GENERIC_WRITE).isValid());
    FileDescriptor second;
    EXPECT_FALSE(second.openWrite(path, FilePermissions::PublicRead));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS + 0u);
    file.close();
    ASSERT_TRUE(second.openAppend(path, FilePermissions::PublicRead));
    EXPECT_EQ(second.writeFormat("%s %d\n", "two", 2), 6);
    ASSERT_TRUE(second.openAppend(folder / "fresh", FilePermissions::Private));
    EXPECT_EQ(readWhole(path), "one\ntwo 2\n");
    EXPECT_TRUE(openAgain(path, GENERIC_WRITE).isValid());
}

TEST(FileDescriptorTest, KeepsTheLastErrorWhenClosing)
{
    const ScopedFolder folder;
    FileDescriptor file;
    ASSERT_TRUE(file.openWrite(folder / "file", FilePermissions::PublicRead));
    CloseHandle(file.get());
    SetLastError(kMarker);
    file.close();
    EXPECT_EQ(GetLastError(), kMarker);
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.write("x", 1), -1);
}

TEST(UnicodeFileStarTest, KeepsTheFormOfAFile)
{
    const ScopedFolder folder;
    const Pathname path = folder / "file";
    const Str longLine(5'000, 'y');
    for (const TextEncodingWord form : {0x8002u, 0x8003u, 0xC004u, 0xC005u, 0x8006u}) {
        FileStar file = openFile(path, "wb");
        WritableUnicodeFileStar writer(file.get());
        writer.setEncoding(form);
        writer.write("first\n");
        writer.write(longLine.data(), longLine.size());
        writer.write("\n\xC3\xA4\n");
        EXPECT_TRUE(writer.flush());
        file = openFile(path, "rb");
        ReadableUnicodeFileStar reader(file.get());
        Str line;
        EXPECT_TRUE(reader.readLine(line) && line == "first");
        EXPECT_TRUE(reader.readLine(line) && line == longLine);
        EXPECT_TRUE(reader.readLine(line) && line == "\xC3\xA4");
        EXPECT_FALSE(reader.readLine(line));
        EXPECT_EQ(reader.encoding(), form);
    }
}

TEST(UnicodeFileStarTest, WritesTheRestWhenItGoes)
{
    const ScopedFolder folder;
    FileStar file = openFile(folder / "file", "wb");
    {
        WritableUnicodeFileStar writer(file.get());
        writer.setReplaceBadInput(true);
        writer.write("a\xC3");
    }
    file.close();
    EXPECT_EQ(readWhole(folder / "file"), "a\xEF\xBF\xBD");
}

TEST(UnicodeFileStarTest, TellsOfALostBuffer)
{
    const ScopedFolder folder;
    writeWhole(folder / "file", "x");
    FileStar file = openFile(folder / "file", "rb");
    WritableUnicodeFileStar writer(file.get());
    writer.write(Str(513, 'z'));
    EXPECT_FALSE(writer.flush());
}

} // namespace
} // namespace velmox
