#include "conf/mapper/lookup_table_conf_path_mapper.h"

#include "conf/mapper/object_file_io.h"
#include "conf/root/path_forms.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("LookupTableConfPathMapper");

/// Whether the file lies below the directory, wherever the path winds.
bool liesBelow(const Pathname &file, const Pathname &directory)
{
    Pathname fullFile;
    Pathname fullDirectory;
    std::vector<Pathname> levels;
    return file.toFull(fullFile) && directory.toFull(fullDirectory) &&
           levelsBelow(fullFile, fullDirectory, levels) && !levels.empty();
}

} // namespace

LookupTableConfPathMapper::LookupTableConfPathMapper(const BundleHandlerData &data, const Str &handler)
    : JSONConfPathMapper(data, log, {"LookupTableConfPathMapper", {}, handler}), type_(handler)
{
}

Str LookupTableConfPathMapper::describe() const
{
    return JSONConfPathMapper::describe() << " (" << type_ << ")";
}

bool LookupTableConfPathMapper::readObject(const Pathname &file, Str &value) const
{
    value = file.toStr();
    return true;
}

/// The value stays when the content changes, and the file's time tells.
bool LookupTableConfPathMapper::isUnchanged(const ConfPathTrie &known, const Str &,
                                            const FileStatus &status) const
{
    return known.metadata().modtime == status.modtime;
}

bool LookupTableConfPathMapper::writeObject(const Pathname &file, Str &value) const
{
    const Pathname from = Pathname::fromUtf8(value);
    const Str name = text(from);
    if (!liesBelow(from, setup_.runDir()) || pathKind(from) == PathKind::Folder) {
        log_.error("Refuse to copy file from unsafe location: %s", name.c_str());
        return false;
    }
    return moveFileInto(from, file, name, text(file), log_) && readObject(file, value);
}

} // namespace velmox
