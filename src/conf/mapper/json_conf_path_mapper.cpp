#include "conf/mapper/json_conf_path_mapper.h"

#include "conf/mapper/object_file_io.h"
#include "conf/root/in_memory_only.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_path_traversal.h"
#include "util/files/directory_listing.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <algorithm>
#include <mutex>

namespace velmox {

namespace {

Logger jsonLog("JSONConfPathMapper");

/// Whether a directory below the app's is named "local": objects lie some levels below it.
bool liesInLocal(const Pathname &path, const Pathname &rootDirectory)
{
    std::vector<Pathname> below;
    Pathname(path.substr(std::min(path.size(), rootDirectory.size()))).split(below);
    return std::find(below.begin(), below.end(), u"local") != below.end();
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

bool JSONConfPathMapper::canChange(const ConfPath &path, const char *request) const
{
    const StrVector &parts = path.parts();
    const bool isOfType = form_.onlyType.empty() || path.type() == form_.onlyType;
    const bool isObject = isOwn(path) && parts.size() == kStanzaParts && isOfType && !isReadOnly();
    if (isObject) {
        refuseTraversal(path);
        refuseTraversal(path, parts[1]);
    }
    if (!isObject || !isFileName(parts[0]) || !isFileName(parts[1])) {
        log_.error("%s: Unsupported path: %s", pathText().c_str(), path.toStr().c_str());
        return false;
    }
    if (isInMemoryOnly()) {
        log_.warn("%s: Only in-memory changes may be made; refusing request to %s file: %s",
                  pathText().c_str(), request, text(fileOf(path)).c_str());
        return false;
    }
    return true;
}

/// Another program may have changed the file since it was read.
bool JSONConfPathMapper::holds(const Pathname &file, const ConfPathBase &path, const Str &value) const
{
    const ConfPathTrie *const known = master_.find(path);
    const FileStatus status = FileStatus::of(file);
    return known && known->data() == value && status.exists && known->metadata().modtime == status.modtime;
}

bool JSONConfPathMapper::writeData(const ConfPath &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    if (!canChange(path, "write to")) {
        return false;
    }
    const Pathname file = fileOf(path);
    const Str name = text(file);
    Type &record = types_[path.type()];
    load(path.type(), record);
    if (holds(file, path, value)) {
        log_.debug("Skipping unnecessary write: %s", name.c_str());
        return true;
    }
    if (!makeDirs(file.dirname(), true)) {
        log_.error("Cannot create or open configuration file: %s: %m", name.c_str());
        return false;
    }
    Str written = value;
    if (!writeObject(file, written)) {
        return false;
    }
    take(master_.node(path), written, FileStatus::of(file));
    return true;
}

bool JSONConfPathMapper::remove(const ConfPath &path)
{
    const std::lock_guard guard(lock_);
    if (!canChange(path, "remove")) {
        return false;
    }
    const Pathname file = fileOf(path);
    const Str name = text(file);
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

} // namespace velmox
