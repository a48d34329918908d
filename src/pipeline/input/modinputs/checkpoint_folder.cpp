#include "pipeline/input/modinputs/checkpoint_folder.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "util/files/file_system.h"
#include "util/system/owned_handle.h"

namespace velmox {

namespace {

bool canReadAndWrite(const Pathname &folder)
{
    const FileHandle handle(CreateFileW(asWide(folder), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return handle.isValid();
}

void ensureFolder(const Pathname &folder)
{
    const PathKind kind = pathKind(folder);
    if (kind == PathKind::Nothing) {
        if (!makeDirs(folder, false)) {
            ModularInputsException::raise("Unable to create directory \"%s\" (mkdir_p): %m",
                                          folder.toStr().c_str());
        }
    } else if (kind != PathKind::Folder) {
        ModularInputsException::raise("Existing path \"%s\" is expected to be a directory.",
                                      folder.toStr().c_str());
    } else if (!canReadAndWrite(folder)) {
        ModularInputsException::raise("No read-write access on directory \"%s\".", folder.toStr().c_str());
    }
}

} // namespace

Pathname checkpointFolder(const Pathname &db, const Str &scheme)
{
    if (db.empty()) {
        ModularInputsException::raise("The environment variable VELMOX_DB must not be empty.");
    }
    const Pathname all = db.join("modinputs");
    ensureFolder(all);
    const Pathname own = all.join(scheme);
    ensureFolder(own);
    return own;
}

} // namespace velmox
