#include "conf/mapper/json_conf_path_mapper.h"
#include "conf/root/path_forms.h"
#include "searchthing/watched_file_state.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

std::optional<JSONConfPathMapper::Object> JSONConfPathMapper::objectOf(const Pathname &file) const
{
    const Str stanza = stanzaOf(file.basename());
    if (stanza.empty()) {
        return std::nullopt;
    }
    for (const Str &type : listTypes()) {
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

bool JSONConfPathMapper::reload(const Str &type)
{
    if (!type.empty() && !isFileName(type)) {
        log_.warn("%s: Ignoring reload - directory traversal risk: %s", pathText().c_str(), type.c_str());
        return false;
    }
    const std::lock_guard guard(lock_);
    return type.empty() ? reloadAll() : reloadType(type);
}

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

} // namespace velmox
