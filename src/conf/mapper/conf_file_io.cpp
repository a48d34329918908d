#include "conf/mapper/conf_file_io.h"

#include "conf/file/conf_line_reader.h"
#include "conf/file/ini_file.h"
#include "conf/tree/stanza_expansion.h"
#include "util/files/file_replace.h"
#include "util/files/file_star.h"
#include "util/files/file_system.h"
#include "util/files/readable_unicode_stream.h"
#include "util/files/writable_unicode_stream.h"
#include "util/log/logger.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

ConfPathTrie &addStanza(const Str &name, const Pathname &rootDirectory, const ConfPathMetadataPtr &metadata,
                        ConfPathTrie &typeNode)
{
    ConfPathTrie &stanza = typeNode.child(name, stanzaExpansion(name, rootDirectory));
    stanza.setData(Str());
    stanza.setMetadata(metadata);
    return stanza;
}

void readConfText(ConfLineReader &reader, const Pathname &rootDirectory, const ConfPathMetadataPtr &metadata,
                  ConfPathTrie &typeNode)
{
    Str line;
    ConfPathTrie *stanza = nullptr;
    const auto begin = [&](const Str &name) { stanza = &addStanza(name, rootDirectory, metadata, typeNode); };
    readSettings(reader, line, begin, [&](std::string_view name, std::string_view value) {
        // Keys above the first header belong to "default".
        if (!stanza) {
            begin(kDefaultStanza);
        }
        // A key that comes again gets the later value, without a word.
        ConfPathTrie &key = stanza->child(name);
        key.setData(value);
        key.setMetadata(metadata);
    });
}

// The mark and the line ends are what the editors of older versions of Windows need to show a file right.
constexpr TextEncodingWord kNewFileEncoding =
    withEncoding(kByteOrderMarkFlag | kCrLfFlag, TextEncoding::Utf8);

/// Whether what stands there, if anything, is of the wanted kind.
bool canStandAt(const BundlesSetup &setup, const Pathname &path, PathKind wanted, Logger &log)
{
    const PathKind kind = pathKind(path);
    if (kind != PathKind::Nothing && (kind == PathKind::Folder) != (wanted == PathKind::Folder)) {
        log.error("%s already exists, but it is%s a directory", setup.text(path).c_str(),
                  wanted == PathKind::Folder ? " not" : "");
        SetLastError(ERROR_ALREADY_EXISTS);
        return false;
    }
    return true;
}

/// Windows opens "Inputs.conf" for "inputs.conf", and tools on other systems will not. Most files bear their
/// name as it is, so one look at the entry comes first: to spell out a path takes a look at each of its
/// folders, which was a third of the time of a write.
void warnOfOtherCasing(const BundlesSetup &setup, const Pathname &file, Logger &log)
{
    DirectoryEntry entry;
    Pathname stored;
    if (findEntry(file, entry) && entry.name != file.basename() && file.trueCase(stored)) {
        log.warn("%s already exists but with different casing: %s", setup.text(file).c_str(),
                 setup.text(stored).c_str());
    }
}

bool createParent(const BundlesSetup &setup, const Pathname &parent, Logger &log)
{
    const Str name = setup.text(parent);
    // For everyone to read, like the directories that ship.
    if (!canStandAt(setup, parent, PathKind::Folder, log) || !makeDirs(parent, true)) {
        log.error("Cannot create parent directory: %s: %m", name.c_str());
        return false;
    }
    return true;
}

bool isEmptyConfFile(const Pathname &file)
{
    std::uint64_t size;
    return file.endsWith(u".conf") && fileSize(file, size) && size == 0;
}

/// The file keeps this form when it is edited. Failures are told and no more: the file is there, and an
/// empty one can be edited just as well.
void startAsUtf8(FileStar &stream, const Str &name, Logger &log)
{
    if (!stream.setBinary()) {
        log.warn("Cannot open file as UTF-8: %s: %m", name.c_str());
        return;
    }
    WritableUnicodeFileStar out(stream.get());
    out.setEncoding(kNewFileEncoding);
    out.write("\n");
    if (!out.flush()) {
        log.warn("Cannot set UTF-8 encoding: %s: %m", name.c_str());
    }
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr char kTemporarySuffix[] = ".tmp";

/// False, with the reason in the last error, for a file that ends in a failure: a part is no object.
bool readAll(FileStar &stream, Str &out)
{
    char block[4096];
    std::ptrdiff_t count;
    while ((count = stream.read(block, sizeof block)) > 0) {
        out.append(block, static_cast<std::size_t>(count));
    }
    return count == 0;
}

/// The run-time library stops without a reason when the disk took a part.
bool writeAll(FileStar &stream, const Str &content)
{
    SetLastError(ERROR_SUCCESS);
    if (stream.write(content.data(), content.size()) == static_cast<std::ptrdiff_t>(content.size())) {
        return true;
    }
    if (GetLastError() == ERROR_SUCCESS) {
        SetLastError(ERROR_DISK_FULL);
    }
    return false;
}

bool writeTemporary(const Pathname &file, const Str &name, Logger &log, const Str &content)
{
    FileStar stream = openFile(file, "wb");
    if (!stream.isOpen()) {
        log.error("Cannot open temporary file: %s: %m", name.c_str());
        return false;
    }
    if (!writeAll(stream, content)) {
        log.error("Write to file failed with data remaining: %s: %m", name.c_str());
        return false;
    }
    // Or a full disk would show only when the stream is closed, where nobody asks.
    if (!stream.flush()) {
        log.error("Cannot flush temporary file: %s: %m", name.c_str());
        return false;
    }
    return true;
}

bool renameTemporary(const Pathname &temporary, const Pathname &file, const Str &temporaryName,
                     const Str &name, Logger &log)
{
    if (!moveFile(temporary, file)) {
        log.error("Cannot rename: %s -> %s: %m", temporaryName.c_str(), name.c_str());
        removeFile(temporary);
        return false;
    }
    return true;
}

} // namespace

bool readConfLines(const Pathname &file, const std::function<void(ConfLineReader &)> &read)
{
    FileStar stream = openFile(file, "r");
    if (!stream.isOpen()) {
        return false;
    }
    // The decoder sees to line ends itself.
    stream.setBinary();
    ReadableUnicodeFileStar text(stream.get());
    ConfLineReader reader(text, file);
    read(reader);
    // What was read, whatever the file's size is by now.
    const long position = std::ftell(stream.get());
    confReadCounters.count(position > 0 ? static_cast<std::uint64_t>(position) : 0);
    // The decoder takes an error for the end of the file, so it is the stream that is asked.
    return !std::ferror(stream.get());
}

bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode)
{
    return readConfLines(file, [&](ConfLineReader &reader) {
        readConfText(reader, rootDirectory, shared(metadata), typeNode);
    });
}

bool createConfFile(const BundlesSetup &setup, const Pathname &file, Logger &log)
{
    if (!canStandAt(setup, file, PathKind::File, log) || !createParent(setup, file.dirname(), log)) {
        return false;
    }
    warnOfOtherCasing(setup, file, log);
    const Str name = setup.text(file);
    // Appending makes a file that is missing, leaves the content of one that is there, and fails where it
    // may not be written.
    FileStar stream = openFile(file, "a");
    if (!stream.isOpen()) {
        log.error("Cannot open file for create or append: %s: %m", name.c_str());
        return false;
    }
    if (isEmptyConfFile(file)) {
        startAsUtf8(stream, name, log);
    }
    return true;
}

bool readTextFile(const Pathname &file, const Str &name, Logger &log, Str &out)
{
    out.clear();
    FileStar stream = openFile(file, "rb");
    if (!stream.isOpen() || !readAll(stream, out)) {
        log.error("Cannot read: %s: %m", name.c_str());
        return false;
    }
    confReadCounters.count(out.size());
    if (out.startsWith(kByteOrderMark)) {
        out.erase(0, kByteOrderMark.size());
    }
    // Text goes into events and log lines as UTF-8: one bad file must not spoil those.
    if (!Str::isValidUtf8(out.data(), out.size())) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        log.error("Cannot read/decode: %s: %m", name.c_str());
        return false;
    }
    return true;
}

bool replaceTextFile(const Pathname &file, const Str &name, Logger &log, const Str &content)
{
    const Pathname temporary = file.concat(kTemporarySuffix);
    const Str temporaryName = Str(name) << kTemporarySuffix;
    if (!writeTemporary(temporary, temporaryName, log, content)) {
        removeFile(temporary);
        return false;
    }
    return renameTemporary(temporary, file, temporaryName, name, log);
}

bool moveFileInto(const Pathname &from, const Pathname &to, const Str &fromName, const Str &toName,
                  Logger &log)
{
    if (moveFile(from, to)) {
        return true;
    }
    if (GetLastError() != ERROR_NOT_SAME_DEVICE) {
        log.error("Failed to move lookup table: %s -> %s: %m", fromName.c_str(), toName.c_str());
        return false;
    }
    // Windows moves no file to another volume by a rename. The copy is made next to its place first, so that
    // the place itself changes in one step here as well.
    const Pathname temporary = to.concat(kTemporarySuffix);
    const Str temporaryName = Str(toName) << kTemporarySuffix;
    if (!copyFileTo(from, temporary, FilePermissions::PublicRead)) {
        log.error("Cannot copy: %s -> %s: %m", fromName.c_str(), temporaryName.c_str());
        return false;
    }
    if (!renameTemporary(temporary, to, temporaryName, toName, log)) {
        return false;
    }
    if (!removeFile(from)) {
        log.warn("Failed to remove: %s: %m", fromName.c_str());
    }
    return true;
}

} // namespace velmox
