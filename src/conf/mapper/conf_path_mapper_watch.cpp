#include "conf/mapper/conf_path_mapper.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/root/path_forms.h"
#include "conf/store/application_manager.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/conf_path_pruners.h"
#include "searchthing/watched_file_state.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

FileChangeAnswer ConfPathMapper::onFileChange(WatchedFileState &state)
{
    bool appChanged = false;
    const FileChangeAnswer answer = takeFileChange(state.path(), appChanged);
    if (appChanged) {
        tellOfApp(true);
    }
    return answer;
}

/// To be called without the lock: those told ask all mappers, this one too. Whether an app is enabled counts
/// for the readers of all types.
void ConfPathMapper::tellOfApp(bool isConfChanged) const
{
    if (isConfChanged) {
        log_.info("App modification, creation, or update: %s", app_.c_str());
    }
    setup_.shared().applications().rescan(true);
    setup_.shared().pages().invalidateAll();
}

bool ConfPathMapper::isUnknownApp() const
{
    return user_ == kSharedUser && !setup_.shared().applications().isKnown(app_);
}

FileChangeAnswer ConfPathMapper::takeFileChange(const Pathname &file, bool &appChanged)
{
    const std::lock_guard guard(lock_);
    const Str type = file.stem();
    const Str name = text(file);
    if (!isSamePath(file.dirname(), path_)) {
        log_.error("%s: Received change notification for unrelated file: %s", pathText().c_str(),
                   name.c_str());
        return FileChangeAnswer::Settled;
    }
    if (file.extension() != kExtension) {
        return FileChangeAnswer::Settled;
    }
    if (edits_.contains(type)) {
        log_.debug("%s: Deferred change notification on %s: outstanding write", pathText().c_str(),
                   name.c_str());
        return FileChangeAnswer::NoChange;
    }
    Type &record = types_[type];
    const std::uint64_t generation = record.state.generation;
    const FileStatus status = FileStatus::of(file);
    const FileChangeAnswer answer =
        status.exists ? takeContent(type, record, status) : takeDeletion(type, record);
    appChanged = type == kAppType && record.state.generation != generation;
    return answer;
}

FileChangeAnswer ConfPathMapper::takeContent(const Str &type, Type &record, const FileStatus &status)
{
    const Str name = text(fileOf(type));
    ConfPathTrie content;
    if (!readFile(type, status, content)) {
        return FileChangeAnswer::Unsettled;
    }
    record.loaded = true;
    ConfPathTrie &known = typeNode(type);
    ConfPathTrie difference;
    if (!ConfPathTrie::diff(difference, known, content)) {
        log_.info("%s: Ignored change notification for %s: self-generated", pathText().c_str(), name.c_str());
        return FileChangeAnswer::NoChange;
    }
    if (log_.debugEnabled()) {
        log_.debug("Previous conf:\n%s", known.toStr().c_str());
        log_.debug("New conf:\n%s", content.toStr().c_str());
        log_.debug("Conf diff:\n%s", difference.toStr().c_str());
    }
    known = std::move(content);
    noteChange(record, status, name);
    return FileChangeAnswer::Settled;
}

FileChangeAnswer ConfPathMapper::takeDeletion(const Str &type, Type &record)
{
    OneClassPruner deleted(type, OneClassPruner::Mode::RemoveOnly);
    master_.walk(deleted);
    record.loaded = true;
    record.state.status = {};
    ++record.state.generation;
    log_.info("%s: Detected deletion: %s", pathText().c_str(), text(fileOf(type)).c_str());
    return FileChangeAnswer::Settled;
}

bool ConfPathMapper::reload(const Str &type)
{
    const std::lock_guard guard(lock_);
    if (type.empty() ? !edits_.empty() : edits_.contains(type)) {
        log_.error("%s: Refused forced reload of %s%s: outstanding write", pathText().c_str(),
                   type.empty() ? "all types" : type.c_str(), type.empty() ? "" : ".conf");
        return false;
    }
    return type.empty() ? reloadAll() : reloadType(type);
}

bool ConfPathMapper::reloadType(const Str &type)
{
    appNode().removeChild(type);
    const FileStatus status = isFileName(type) ? FileStatus::of(fileOf(type)) : FileStatus();
    const auto found = types_.find(type);
    if (found == types_.end()) {
        if (status.exists) {
            types_[type].state.status = status;
        }
        return false;
    }
    found->second.state.status = status;
    return std::exchange(found->second.loaded, false);
}

bool ConfPathMapper::reloadAll()
{
    master_.clear();
    bool wasLoaded = false;
    for (auto &[type, record] : types_) {
        wasLoaded = std::exchange(record.loaded, false) || wasLoaded;
        record.state.status = {};
    }
    listTypes();
    return wasLoaded;
}

} // namespace velmox
