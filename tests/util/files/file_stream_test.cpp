#include "util/files/file_descriptor.h"
#include "util/files/file_star.h"
#include "util/files/file_system.h"
#include "util/files/writable_unicode_stream.h"

namespace velmox {
namespace {

constexpr DWORD kMarker = 0x20001234;

/// A folder for one file.
struct FileStream : ::testing::Test
{
    bool opensFor(DWORD access, DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE) const
    {
        return FileHandle(CreateFileW(asWide(path), access, sharing, nullptr, OPEN_EXISTING, 0, nullptr))
            .isValid();
    }
    bool isClosed() const { return pathKind(path) == PathKind::Nothing || opensFor(GENERIC_READ, 0); }

    const ScopedFolder folder;
    const Pathname path = folder / "file";
};

TEST_F(FileStream, OpensByTheLettersOfTheMode)
{
    // A file's content before, "-" for no file, and once "XY" has been written, if it could be.
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"wb", "-", "XY"},  {"wb", "abcd", "XY"},    {"ab", "-", "XY"}, {"ab", "abcd", "abcdXY"},
        {"w+b", "-", "XY"}, {"w+b", "abcd", "XYcd"}, {"r+b", "-", "-"}, {"r+b", "abcd", "XYcd"},
        {"rb", "-", "-"},   {"rb", "abcd", "abcd"},  {"w", "-", "XY"},  {"a", "abcd", "abcdXY"}};
    for (const auto &[mode, before, after] : cases) {
        DeleteFileW(asWide(path));
        if (*before != '-') {
            writeWhole(path, before);
        }
        SetLastError(0);
        FileStar file = openFile(path, mode);
        EXPECT_EQ(file.isOpen(), *after != '-') << mode;
        if (!file.isOpen()) {
            EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u) << mode;
            continue;
        }
        const bool isReader = mode[0] == 'r' && mode[1] != '+';
        EXPECT_TRUE(opensFor(GENERIC_READ | DELETE)) << mode;
        EXPECT_EQ(opensFor(GENERIC_WRITE), isReader) << mode;
        EXPECT_EQ(file.write("XY", 2), isReader ? -1 : 2) << mode;
        file.close();
        EXPECT_EQ(readWhole(path), after) << mode;
    }
}

TEST_F(FileStream, TranslatesLineEndsInTextModeOnly)
{
    char text[16];
    openFile(path, "w").write("a\nb\n", 4);
    EXPECT_EQ(readWhole(path), "a\r\nb\r\n");
    FileStar file = openFile(path, "r");
    EXPECT_EQ(file.read(text, sizeof text), 4);
    file = openFile(path, "r");
    EXPECT_TRUE(file.setBinary());
    EXPECT_EQ(file.read(text, sizeof text), 6);
    EXPECT_EQ(file.read(text, sizeof text), 0);
}

TEST_F(FileStream, ReadsLines)
{
    const std::string longLine(256, 'x');
    const std::string lines[] = {"one", "", longLine, longLine + "y\r", "lone\rinside", "n\0l"s, "tail"};
    std::string content;
    for (const std::string &line : lines) {
        content += line + (line == "tail" ? "\r" : line.ends_with("\r") || line == "one" ? "\r\n" : "\n");
    }
    writeWhole(path, content);
    FileStar file = openFile(path, "rb");
    Str line;
    for (const std::string &expected : lines) {
        ASSERT_TRUE(file.readLine(line));
        EXPECT_EQ(line.view(), expected);
    }
    EXPECT_FALSE(file.readLine(line));
    EXPECT_TRUE(line.empty());
}

TEST_F(FileStream, MakesTemporaryFilesThatVanish)
{
    const ScopedVariable temporary(u"TMP", folder.path());
    FileStar file = FileStar::tempFile();
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(folder.count(), 1u);
    EXPECT_EQ(file.write("a\nb", 3), 3);
    file.close();
    EXPECT_EQ(folder.count(), 0u);
}

TEST_F(FileStream, WritesNewFilesAndAppends)
{
    FileDescriptor file;
    ASSERT_TRUE(file.openWrite(path, FilePermissions::PublicRead));
    EXPECT_EQ(file.write("one\n", 4), 4);
    EXPECT_EQ(file.write("", 0), 0);
    EXPECT_TRUE(opensFor(GENERIC_READ));
    EXPECT_FALSE(opensFor(GENERIC_WRITE));
    FileDescriptor second;
    EXPECT_FALSE(second.openWrite(path, FilePermissions::PublicRead));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS + 0u);
    file.close();
    EXPECT_EQ(file.write("x", 1), -1);
    ASSERT_TRUE(second.openAppend(path, FilePermissions::PublicRead));
    EXPECT_EQ(second.writeFormat("%s %d\n", "two", 2), 6);
    ASSERT_TRUE(second.openAppend(folder / "fresh", FilePermissions::Private));
    EXPECT_EQ(readWhole(path), "one\ntwo 2\n");
    EXPECT_TRUE(isClosed()) << "what was held first is closed";
}

TEST_F(FileStream, KeepsTheReasonOfAFailureAndLeavesNothingOpen)
{
    const std::tuple<Fault, DWORD, const char *> cases[] = {
        // the call that fails; the reason; the mode of a stream, none for a descriptor
        {{"CreateFileW", -1, ERROR_SHARING_VIOLATION}, ERROR_SHARING_VIOLATION, "rb"},
        {{"_open_osfhandle", -1, EMFILE}, ERROR_TOO_MANY_OPEN_FILES, "wb"},
        {{"SetFilePointerEx", 0, ERROR_SEEK}, ERROR_SEEK, "ab"},
        {{"SetFilePointerEx", 0, ERROR_SEEK}, ERROR_SEEK, nullptr}};
    for (const auto &[fault, error, mode] : cases) {
        writeWhole(path, "kept");
        EXPECT_FALSE(whileFailing(fault, [&] {
            return mode ? openFile(path, mode).isOpen()
                        : FileDescriptor().openAppend(path, FilePermissions::PublicRead);
        })) << fault.function;
        EXPECT_EQ(GetLastError(), error) << fault.function;
        EXPECT_TRUE(isClosed()) << fault.function;
    }
}

TEST_F(FileStream, TellsWhatWasNotWrittenOrListed)
{
    FileStar file = openFile(path, "w+b");
    EXPECT_EQ(whileFailing({"fwrite", 0, ENOSPC}, [&] { return file.write("x", 1); }), -1);
    EXPECT_FALSE(whileFailing({"fflush", EOF, ENOSPC}, [&] { return file.flush(); }));
    FileDescriptor descriptor;
    ASSERT_TRUE(descriptor.openAppend(folder / "other", FilePermissions::Private));
    EXPECT_EQ(
        whileFailing({"WriteFile", FALSE, ERROR_DISK_FULL}, [&] { return descriptor.write("text", 4); }), -1);
    std::vector<DirectoryEntry> entries;
    for (const char *function : {"FindFirstFileW", "FindNextFileW"}) {
        EXPECT_FALSE(whileFailing({function, function[4] == 'F' ? -1 : 0, ERROR_ACCESS_DENIED},
                                  [&] { return listDirectory(folder.path(), entries); }));
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED + 0u) << function;
    }
    SetLastError(kMarker);
    EXPECT_FALSE(whileFailing({"fclose", EOF, ENOSPC}, [&] { return file.close(); }));
    EXPECT_EQ(GetLastError(), kMarker);
    EXPECT_FALSE(file.isOpen());
}

TEST_F(FileStream, WritesTheRestOfAUnicodeFileAtItsEndAndTellsWhatWasLost)
{
    FileStar file = openFile(path, "wb");
    {
        WritableUnicodeFileStar writer(file.get());
        writer.setReplaceBadInput(true);
        writer.write("a\xC3");
    }
    file.close();
    EXPECT_EQ(readWhole(path), "a\xEF\xBF\xBD");
    file = openFile(path, "wb");
    WritableUnicodeFileStar writer(file.get());
    writer.write(Str(513, 'z'));
    EXPECT_FALSE(whileFailing({"fflush", EOF, ENOSPC}, [&] { return writer.flush(); }));
}

} // namespace
} // namespace velmox
