#include "conf/mapper/object_file_io.h"

#include "conf/file/conf_read_counters.h"
#include "util/files/file_copy.h"
#include "util/files/file_system.h"
#include "util/files/open_file.h"
#include "util/log/logger.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr char kTemporarySuffix[] = ".tmp";

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
