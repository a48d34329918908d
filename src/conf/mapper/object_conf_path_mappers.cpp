#include "conf/mapper/object_conf_path_mappers.h"

#include "conf/mapper/conf_file_io.h"
#include "conf/root/path_forms.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger directLog("DirectFileConfPathMapper");
Logger modelLog("ModelConfPathMapper");

Logger lookupLog("LookupTableConfPathMapper");

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

DirectFileConfPathMapper::DirectFileConfPathMapper(const BundleHandlerData &data)
    : JSONConfPathMapper(data, directLog, {"DirectFileConfPathMapper", {"xml", "html"}})
{
    for (const auto &[type, record] : types_) {
        log_.debug("%s: Detected initial type '%s'", pathText().c_str(), type.c_str());
    }
}

ModelConfPathMapper::ModelConfPathMapper(const BundleHandlerData &data)
    : JSONConfPathMapper(data, modelLog, {"ModelConfPathMapper", {"model"}, "models"})
{
}

LookupTableConfPathMapper::LookupTableConfPathMapper(const BundleHandlerData &data, const Str &handler)
    : JSONConfPathMapper(data, lookupLog, {"LookupTableConfPathMapper", {}, handler}), type_(handler)
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
    // A caller names any file by its value. What is moved in is readable for all who may read the app: only
    // what this installation put into its own run directory is meant for that.
    if (!liesBelow(from, setup_.runDir()) || pathKind(from) == PathKind::Folder) {
        log_.error("Refuse to copy file from unsafe location: %s", name.c_str());
        return false;
    }
    return moveFileInto(from, file, name, text(file), log_) && readObject(file, value);
}

} // namespace velmox
