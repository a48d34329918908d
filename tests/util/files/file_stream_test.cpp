#include "tests/support/failing_call.h"
#include "tests/support/scoped_folder.h"
#include "util/files/directory_listing.h"
#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"
#include "util/files/open_file.h"
#include "util/files/readable_unicode_file_star.h"
#include "util/files/writable_unicode_file_star.h"
#include "util/system/environment.h"

#include <gtest/gtest.h>
#include <string>

namespace velmox {
namespace {

using testing::FailingCall;
using testing::readWhole;
using testing::writeWhole;

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

    const testing::ScopedFolder folder;
    const Pathname path = folder / "file";
};

TEST_F(FileStream, OpensByTheLettersOfTheMode)
{
    // A file's content before, "-" for no file, and once "XY" has been written, if it could be.
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"wb", "-", "XY"},  {"wb", "abcd", "XY"},    {"ab", "-", "XY"}, {"ab", "abcd", "abcdXY"},
        {"w+b", "-", "XY"}, {"w+b", "abcd", "XYcd"}, {"r+b", "-", "-"}, {"r+b", "abcd", "XYcd"},
        {"rb", "-", "-"},   {"rb", "abcd", "abcd"},  {"w", "-", "XY"},  {"a", "abcd", "abcdXY"},
    };
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
        EXPECT_EQ(file.write("XY", 2), mode[0] == 'r' && mode[1] != '+' ? -1 : 2) << mode;
        file.close();
        EXPECT_EQ(readWhole(path), after) << mode;
    }
}

TEST_F(FileStream, SharesByTheMode)
{
    writeWhole(path, "x");
    FileStar file = openFile(path, "rb");
    EXPECT_TRUE(opensFor(GENERIC_WRITE));
    for (const char *mode : {"ab", "r+b", "w+b", "wb"}) {
        file.close();
        file = openFile(path, mode);
        EXPECT_TRUE(opensFor(GENERIC_READ)) << mode;
        EXPECT_FALSE(opensFor(GENERIC_WRITE)) << mode;
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION + 0u);
    }
    EXPECT_TRUE(DeleteFileW(asWide(path)));
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
    const std::string lines[] = {
        "one", "", longLine, longLine + "y\r", "lone\rinside", std::string("n\0l", 3), "tail"};
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
    line = "left over";
    EXPECT_FALSE(file.readLine(line));
    EXPECT_TRUE(line.empty());
}

TEST_F(FileStream, MakesTemporaryFilesThatVanish)
{
    const WideStr before = environmentVariable(u"TMP");
    SetEnvironmentVariableW(L"TMP", asWide(folder.path()));
    FileStar file = FileStar::tempFile();
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(folder.count(), 1u);
    EXPECT_EQ(file.write("a\nb", 3), 3);
    std::rewind(file.get());
    char text[8];
    EXPECT_EQ(file.read(text, sizeof text), 3);
    file.close();
    EXPECT_EQ(folder.count(), 0u);

    const std::tuple<const char *, int, DWORD, DWORD> refusals[] = {
        {"GetTempPathW", 0, ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY},
        {"GetTempPathW", 261, 0, ERROR_FILENAME_EXCED_RANGE},
        {"GetTempFileNameW", 0, ERROR_FILE_EXISTS, ERROR_FILE_EXISTS},
        {"CreateFileW", -1, ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
        {"_open_osfhandle", -1, EMFILE, ERROR_TOO_MANY_OPEN_FILES},
        {"_fdopen", 0, ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    };
    for (const auto &[function, result, given, error] : refusals) {
        const FailingCall refused(function, result, given);
        EXPECT_FALSE(FileStar::tempFile().isOpen()) << function;
        EXPECT_EQ(GetLastError(), error) << function;
        EXPECT_EQ(folder.count(), 0u) << function;
    }
    SetEnvironmentVariableW(L"TMP", asWide(before));
}

TEST_F(FileStream, TellsWhyThereIsNoFurtherStream)
{
    writeWhole(path, "x");
    std::vector<FileStar> files;
    do {
        SetLastError(kMarker);
        files.push_back(openFile(path, "rb"));
    } while (files.back().isOpen() && files.size() < 100'000);
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_OPEN_FILES + 0u);
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
    const auto streamOpens = [this](const char *mode) { return openFile(path, mode).isOpen(); };
    const auto descriptorOpens = [this] {
        FileDescriptor file;
        return file.openAppend(path, FilePermissions::PublicRead) || file.isOpen();
    };
    const std::tuple<const char *, int, DWORD, DWORD, std::function<bool()>> cases[] = {
        {"CreateFileW", -1, ERROR_SHARING_VIOLATION, ERROR_SHARING_VIOLATION,
         [&] { return streamOpens("rb"); }},
        {"SetFilePointerEx", 0, ERROR_SEEK, ERROR_SEEK, [&] { return streamOpens("ab"); }},
        {"_open_osfhandle", -1, EMFILE, ERROR_TOO_MANY_OPEN_FILES, [&] { return streamOpens("wb"); }},
        {"_open_osfhandle", -1, EBADF, ERROR_INVALID_HANDLE, [&] { return streamOpens("rb"); }},
        {"_fdopen", 0, EINVAL, ERROR_INVALID_PARAMETER, [&] { return streamOpens("r+b"); }},
        {"HeapCreate", 0, ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY,
         [&] { return streamOpens("wb"); }},
        {"CreateFileW", -1, ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED, descriptorOpens},
        {"SetFilePointerEx", 0, ERROR_SEEK, ERROR_SEEK, descriptorOpens},
        {"InitializeAcl", 0, ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, descriptorOpens},
    };
    for (const auto &[function, result, given, error, opens] : cases) {
        writeWhole(path, "kept");
        const FailingCall refused(function, result, given);
        EXPECT_FALSE(opens()) << function;
        EXPECT_EQ(GetLastError(), error) << function;
        EXPECT_EQ(refused.failed(), 1) << function;
        EXPECT_TRUE(isClosed()) << function;
    }
}

TEST_F(FileStream, TellsWhatWasNotReadOrWritten)
{
    char byte = 0;
    FileStar file = openFile(path, "w+b");
    const std::tuple<const char *, int, std::function<bool()>> cases[] = {
        {"fread", 0, [&] { return file.read(&byte, 1) == -1; }},
        {"fwrite", 0, [&] { return file.write("x", 1) == -1 && file.write("", 0) == 0; }},
        {"fflush", EOF, [&] { return !file.flush() && file.flush(); }},
        {"_setmode", -1, [&] { return !file.setBinary() && file.setBinary(); }},
    };
    for (const auto &[function, result, isTold] : cases) {
        const FailingCall refused(function, result, ENOSPC);
        EXPECT_TRUE(isTold()) << function;
    }
    for (const bool refusedWhole : {true, false}) {
        FileDescriptor descriptor;
        ASSERT_TRUE(descriptor.openAppend(folder / "other", FilePermissions::Private));
        const FailingCall full("WriteFile", FALSE, ERROR_DISK_FULL);
        EXPECT_EQ(descriptor.write("text", refusedWhole ? 4 : 0), refusedWhole ? -1 : 0);
    }
    std::vector<DirectoryEntry> entries;
    for (const char *function : {"FindFirstFileW", "FindNextFileW"}) {
        const FailingCall refused(function, function[4] == 'F' ? -1 : 0, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(listDirectory(folder.path(), entries)) << function;
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED + 0u);
    }
}

TEST_F(FileStream, KeepsTheLastErrorWhenClosing)
{
    for (const bool fails : {false, true}) {
        FileStar file = openFile(path, "wb");
        FileDescriptor descriptor;
        ASSERT_TRUE(descriptor.openAppend(folder / "other", FilePermissions::Private));
        const FailingCall fclose("fclose", EOF, ENOSPC, 0, fails);
        const FailingCall closeHandle("CloseHandle", FALSE, ERROR_INVALID_HANDLE, 0, fails);
        SetLastError(kMarker);
        EXPECT_EQ(file.close(), !fails);
        descriptor.close();
        EXPECT_EQ(GetLastError(), kMarker);
        EXPECT_FALSE(file.isOpen() || descriptor.isOpen());
    }
}

TEST_F(FileStream, KeepsTheFormOfAUnicodeFile)
{
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
        for (const Str &expected : {Str("first"), longLine, Str("\xC3\xA4")}) {
            EXPECT_TRUE(reader.readLine(line) && line == expected) << form;
        }
        EXPECT_FALSE(reader.readLine(line));
        EXPECT_EQ(reader.encoding(), form);
    }
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
    for (const char *function : {"fwrite", "fflush"}) {
        file = openFile(path, "wb");
        WritableUnicodeFileStar writer(file.get());
        const FailingCall refused(function, function[1] == 'w' ? 0 : EOF, ENOSPC);
        writer.write(Str(513, 'z'));
        EXPECT_FALSE(writer.flush()) << function;
        file.close();
    }
}

} // namespace
} // namespace velmox
