#include "util/files/file_replace.h"

#include "util/files/file_copy.h"
#include "util/files/file_system.h"
#include "util/system/last_error_keeper.h"
#include "util/system/random_hex.h"

namespace velmox {

namespace {

constexpr int kNameAttempts = 5;
constexpr unsigned kRandomDigits = 8;

bool isOrdinaryFile(const Pathname &path)
{
    const PathKind kind = pathKind(path);
    if (kind == PathKind::Folder || kind == PathKind::Device) {
        SetLastError(ERROR_ACCESS_DENIED);
    }
    return kind == PathKind::File;
}

/// Creates a file of a random name next to `neighbour`.
FileDescriptor makeTemporary(const Pathname &neighbour, Pathname &path)
{
    Pathname folder(neighbour);
    folder.absolute();
    folder.dirnameInPlace();
    FileDescriptor file;
    for (int attempt = 0; attempt < kNameAttempts && !file.isOpen(); ++attempt) {
        Str name;
        if (!appendRandomHex(name, kRandomDigits)) {
            break;
        }
        path = folder.join(name).concat(".rename_tmp");
        file.openWrite(path, FilePermissions::PublicRead);
    }
    return file;
}

bool replaceAcrossVolumes(const Pathname &from, const Pathname &to)
{
    Pathname temporary;
    FileDescriptor file = makeTemporary(to, temporary);
    if (!file.isOpen()) {
        return false;
    }
    const bool copied = copyContent(from, file);
    file.close();
    if (copied && moveFile(temporary, to)) {
        return true;
    }
    const LastErrorKeeper keeper;
    removeFile(temporary);
    return false;
}

} // namespace

bool replaceFile(const Pathname &from, const Pathname &to)
{
    if (!isOrdinaryFile(from)) {
        return false;
    }
    if (moveFile(from, to)) {
        return true;
    }
    return GetLastError() == ERROR_NOT_SAME_DEVICE && replaceAcrossVolumes(from, to);
}

} // namespace velmox
