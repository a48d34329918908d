#include "conf/mapper/json_conf_path_mapper.h"

#include "conf/mapper/conf_file_io.h"
#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "conf/tree/conf_path_base.h"
#include "searchthing/filesystem_change_watcher.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <algorithm>
#include <mutex>

namespace velmox {

namespace {

// Each kind has a category of its own, so that the log tells them apart.
Logger jsonLog("JSONConfPathMapper");
Logger directLog("DirectFileConfPathMapper");
Logger modelLog("ModelConfPathMapper");
Logger lookupLog("LookupTableConfPathMapper");

/// Whether a directory below the app's is named "local": objects lie some levels below it.
bool liesInLocal(const Pathname &path, const Pathname &rootDirectory)
{
    std::vector<Pathname> below;
    Pathname(path.substr(std::min(path.size(), rootDirectory.size()))).split(below);
    return std::find(below.begin(), below.end(), u"local") != below.end();
}

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

JSONConfPathMapper::JSONConfPathMapper(const BundleHandlerData &data)
    : JSONConfPathMapper(data, jsonLog, {"JSONConfPathMapper", {"json"}})
{
}

JSONConfPathMapper::JSONConfPathMapper(const BundleHandlerData &data, Logger &log, const Form &form)
    : LazyConfPathMapper(data, log, form.className, liesInLocal(data.path, data.rootDirectory)), form_(form)
{
    for (const Str &type : listTypes()) {
        types_.try_emplace(type);
    }
}

StrVector JSONConfPathMapper::listTypes() const
{
    if (!form_.onlyType.empty()) {
        return {form_.onlyType};
    }
    std::vector<DirectoryEntry> entries;
    listDirectory(path_, entries);
    StrVector types;
    for (const DirectoryEntry &entry : entries) {
        if (entry.isFolder) {
            types.push_back(Pathname(entry.name).toStr());
        }
    }
    return types;
}

/// Asked of the disk: the directory may have come since the types were listed.
bool JSONConfPathMapper::isType(const Str &type) const
{
    return form_.onlyType.empty() ? pathKind(path_.join(type)) == PathKind::Folder : type == form_.onlyType;
}

Pathname JSONConfPathMapper::directoryOf(const Str &type) const
{
    return form_.onlyType.empty() ? path_.join(type) : path_;
}

Str JSONConfPathMapper::stanzaOf(const Pathname &name) const
{
    const StrVector &extensions = form_.extensions;
    if (extensions.empty()) {
        return name.toStr();
    }
    const bool fits = std::find(extensions.begin(), extensions.end(), name.extension()) != extensions.end();
    return fits ? name.stem() : Str();
}

Pathname JSONConfPathMapper::fileOf(const ConfPathBase &path) const
{
    // Read under any of its extensions, an object is written under the first.
    const Pathname file = directoryOf(path.type()).join(path.parts()[1]);
    return form_.extensions.empty() ? file : file.concat(Str(".") << form_.extensions.front());
}

bool JSONConfPathMapper::readObject(const Pathname &file, Str &value) const
{
    return readTextFile(file, text(file), log_, value);
}

bool JSONConfPathMapper::isUnchanged(const ConfPathTrie &known, const Str &value, const FileStatus &) const
{
    return known.data() == value;
}

bool JSONConfPathMapper::writeObject(const Pathname &file, Str &value) const
{
    return replaceTextFile(file, text(file), log_, value);
}

/// Of two files of one stanza the first in the order of names counts.
bool JSONConfPathMapper::readType(const Str &type, Type &, ConfPathTrie &content)
{
    const Pathname directory = directoryOf(type);
    std::vector<DirectoryEntry> entries;
    listDirectory(directory, entries);
    for (const DirectoryEntry &entry : entries) {
        const Str stanza = entry.isFolder ? Str() : stanzaOf(Pathname(entry.name));
        if (stanza.empty() || content.findChild(stanza)) {
            continue;
        }
        Str value;
        if (readObject(directory.join(Pathname(entry.name)), value)) {
            // One file that cannot be read leaves the others as they are, so the type counts as read in any
            // case.
            take(content.child(stanza), value, {true, entry.size, entry.modtime});
        }
    }
    return true;
}

void JSONConfPathMapper::take(ConfPathTrie &node, const Str &value, const FileStatus &status) const
{
    node.setData(value);
    node.setMetadata(metadataOf(status));
}

bool JSONConfPathMapper::canChange(const ConfPathBase &path, const char *request) const
{
    const StrVector &parts = path.parts();
    const bool isOfType = form_.onlyType.empty() || path.type() == form_.onlyType;
    // What is not of this mapper at all is no attempt to get out of its directory.
    const bool isObject = isOwn(path) && path.level() == kStanzaLevel && isOfType && !isReadOnly();
    if (isObject) {
        // A stanza is a file's name here, so its slashes are refused too.
        refuseTraversal(path);
        refuseTraversal(path, parts[1]);
    }
    if (!isObject || !isFileName(parts[0]) || !isFileName(parts[1])) {
        log_.error("%s: Unsupported path: %s", pathText().c_str(), path.toStr().c_str());
        return false;
    }
    // What is changed here are files: there is nothing that could change in memory alone.
    if (isInMemoryOnly()) {
        log_.warn("%s: Only in-memory changes may be made; refusing request to %s file: %s",
                  pathText().c_str(), request, text(fileOf(path)).c_str());
        return false;
    }
    return true;
}

/// Whether the file has the value already. Another program may have changed it since it was read, so its
/// time counts too.
bool JSONConfPathMapper::holds(const Pathname &file, const ConfPathBase &path, const Str &value) const
{
    const ConfPathTrie *const known = master_.find(path);
    const FileStatus status = FileStatus::of(file);
    return known && known->data() == value && status.exists && known->metadata().modtime == status.modtime;
}

bool JSONConfPathMapper::writeData(const ConfPathBase &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    if (!canChange(path, "write to")) {
        return false;
    }
    const Pathname file = fileOf(path);
    const Str name = text(file);
    Type &record = types_[path.type()];
    // Loaded first, for a comparison with what is there, and so that the notice of this write is known as
    // one's own.
    load(path.type(), record);
    if (holds(file, path, value)) {
        log_.debug("Skipping unnecessary write: %s", name.c_str());
        return true;
    }
    if (!makeDirs(file.dirname(), true)) {
        log_.error("Cannot create or open configuration file: %s: %m", name.c_str());
        return false;
    }
    // What is read later may not be what was written: a look-up table is given by the path of a file that
    // is moved here, and read as the path that it then has.
    Str written = value;
    if (!writeObject(file, written)) {
        return false;
    }
    take(master_.node(path), written, FileStatus::of(file));
    return true;
}

bool JSONConfPathMapper::remove(const ConfPathBase &path)
{
    const std::lock_guard guard(lock_);
    if (!canChange(path, "remove")) {
        return false;
    }
    const Pathname file = fileOf(path);
    const Str name = text(file);
    // Loaded before the file goes: the notice of its deletion is then known for one of this mapper's own.
    if (belongs(path)) {
        loadFor(path);
    }
    if (!removeFile(file)) {
        log_.error("Failed to remove: %s: %m", name.c_str());
        return false;
    }
    master_.remove(path);
    return true;
}

std::optional<JSONConfPathMapper::Object> JSONConfPathMapper::objectOf(const Pathname &file) const
{
    const Str stanza = stanzaOf(file.basename());
    if (stanza.empty()) {
        return std::nullopt;
    }
    for (const Str &type : listTypes()) {
        // A file some levels further down is no object: only these directories are types.
        if (isSamePath(directoryOf(type), file.dirname())) {
            return Object{type, stanza};
        }
    }
    return std::nullopt;
}

FileChangeAnswer JSONConfPathMapper::onFileChange(WatchedFileState &state)
{
    const std::lock_guard guard(lock_);
    const Pathname &file = state.path();
    const std::optional<Object> object = objectOf(file);
    if (!object) {
        log_.error("%s: Received change notification for unrelated file: %s", pathText().c_str(),
                   text(file).c_str());
        return FileChangeAnswer::Settled;
    }
    // Asked anew: the notice tells of a change, and what it was may be undone by now.
    return pathKind(file) == PathKind::File ? takeContent(file, *object) : takeDeletion(file, *object);
}

/// A type that nobody has read yet is not looked at: only its generation rises.
FileChangeAnswer JSONConfPathMapper::takeContent(const Pathname &file, const Object &object)
{
    Type &record = types_[object.type];
    const Str name = text(file);
    const FileStatus status = FileStatus::of(file);
    if (record.loaded) {
        Str value;
        if (!readObject(file, value)) {
            return FileChangeAnswer::Unsettled;
        }
        const ConfPathTrie *const known = typeNode(object.type).findChild(object.stanza);
        if (known && isUnchanged(*known, value, status)) {
            log_.info("%s: Ignored self-generated change notification: %s", pathText().c_str(), name.c_str());
            return FileChangeAnswer::NoChange;
        }
        take(typeNode(object.type).child(object.stanza), value, status);
    }
    noteChange(record, status, name);
    return FileChangeAnswer::Settled;
}

/// Of a type that nobody has read nothing is known that could tell one's own deletion from another's: its
/// generation rises in either case.
FileChangeAnswer JSONConfPathMapper::takeDeletion(const Pathname &file, const Object &object)
{
    Type &record = types_[object.type];
    const Str name = text(file);
    if (!typeNode(object.type).removeChild(object.stanza) && record.loaded) {
        log_.info("%s: Ignored self-generated delete notification: %s", pathText().c_str(), name.c_str());
        return FileChangeAnswer::NoChange;
    }
    record.state.status = {};
    ++record.state.generation;
    log_.info("%s: Detected deletion %s", pathText().c_str(), name.c_str());
    return FileChangeAnswer::Settled;
}

/// Never refused for a write under way, as there is none: writes go to disk at once.
bool JSONConfPathMapper::reload(const Str &type)
{
    if (!type.empty() && !isFileName(type)) {
        log_.warn("%s: Ignoring reload - directory traversal risk: %s", pathText().c_str(), type.c_str());
        return false;
    }
    const std::lock_guard guard(lock_);
    return type.empty() ? reloadAll() : reloadType(type);
}

/// A directory that was made since then becomes a type; what is no directory is not remembered.
bool JSONConfPathMapper::reloadType(const Str &type)
{
    appNode().removeChild(type);
    const auto [record, added] = types_.try_emplace(type);
    if (!added) {
        return std::exchange(record->second.loaded, false);
    }
    if (isType(type)) {
        log_.info("%s: Found type '%s' on reload", pathText().c_str(), type.c_str());
    } else {
        types_.erase(record);
    }
    return false;
}

bool JSONConfPathMapper::reloadAll()
{
    master_.clear();
    bool wasLoaded = false;
    for (auto &[type, record] : types_) {
        wasLoaded = std::exchange(record.loaded, false) || wasLoaded;
    }
    // A type whose directory is gone stays known and reads as empty, so that its generation never falls.
    const std::size_t known = types_.size();
    for (const Str &type : listTypes()) {
        if (types_.try_emplace(type).second) {
            log_.info("%s: Found type '%s' on reload", pathText().c_str(), type.c_str());
        }
    }
    if (types_.size() > known) {
        log_.info("%s: Found %llu new types on reload", pathText().c_str(),
                  static_cast<unsigned long long>(types_.size() - known));
    }
    return wasLoaded;
}

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
    // The file is not opened: where it lies is all that readers get.
    value = file.toStr();
    return true;
}

/// The value, a path, stays the same when the content changes; only the file's time tells.
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
