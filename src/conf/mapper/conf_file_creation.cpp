#include "conf/mapper/conf_file_creation.h"

#include "conf/mapper/conf_path_mapper_log.h"
#include "util/files/directory_listing.h"
#include "util/files/file_system.h"
#include "util/files/open_file.h"
#include "util/files/writable_unicode_file_star.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

constexpr TextEncodingWord kNewFileEncoding =
    withEncoding(kByteOrderMarkFlag | kCrLfFlag, TextEncoding::Utf8);

/// Whether what stands there, if anything, is of the wanted kind.
bool canStandAt(const BundlesSetup &setup, const Pathname &path, PathKind wanted)
{
    const PathKind kind = pathKind(path);
    if (kind != PathKind::Nothing && (kind == PathKind::Folder) != (wanted == PathKind::Folder)) {
        confPathMapperLog.error("%s already exists, but it is%s a directory", setup.text(path).c_str(),
                                wanted == PathKind::Folder ? " not" : "");
        SetLastError(ERROR_ALREADY_EXISTS);
        return false;
    }
    return true;
}

/// Most files bear their name as it is; to spell out a path takes a look at each of its folders.
void warnOfOtherCasing(const BundlesSetup &setup, const Pathname &file)
{
    DirectoryEntry entry;
    Pathname stored;
    if (findEntry(file, entry) && entry.name != file.basename() && file.trueCase(stored)) {
        confPathMapperLog.warn("%s already exists but with different casing: %s", setup.text(file).c_str(),
                               setup.text(stored).c_str());
    }
}

bool createParent(const BundlesSetup &setup, const Pathname &parent)
{
    const Str name = setup.text(parent);
    if (!canStandAt(setup, parent, PathKind::Folder) || !makeDirs(parent, true)) {
        confPathMapperLog.error("Cannot create parent directory: %s: %m", name.c_str());
        return false;
    }
    return true;
}

bool isEmptyConfFile(const Pathname &file)
{
    std::uint64_t size;
    return file.endsWith(u".conf") && fileSize(file, size) && size == 0;
}

/// The file keeps this form when it is edited.
void startAsUtf8(FileStar &stream, const Str &name)
{
    if (!stream.setBinary()) {
        confPathMapperLog.warn("Cannot open file as UTF-8: %s: %m", name.c_str());
        return;
    }
    WritableUnicodeFileStar out(stream.get());
    out.setEncoding(kNewFileEncoding);
    out.write("\n");
    if (!out.flush()) {
        confPathMapperLog.warn("Cannot set UTF-8 encoding: %s: %m", name.c_str());
    }
}

} // namespace

bool createConfFile(const BundlesSetup &setup, const Pathname &file)
{
    if (!canStandAt(setup, file, PathKind::File) || !createParent(setup, file.dirname())) {
        return false;
    }
    warnOfOtherCasing(setup, file);
    const Str name = setup.text(file);
    FileStar stream = openFile(file, "a");
    if (!stream.isOpen()) {
        confPathMapperLog.error("Cannot open file for create or append: %s: %m", name.c_str());
        return false;
    }
    if (isEmptyConfFile(file)) {
        startAsUtf8(stream, name);
    }
    return true;
}

} // namespace velmox
