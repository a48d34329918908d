#include "conf/application_manager.h"
#include "conf/conf_path_mapper.h"
#include "conf/conf_path_mapper_log.h"
#include "conf/shared_conf_services.h"
#include "searchthing/watched_file_state.h"

#include <mutex>

namespace velmox {

namespace {

Str dumped(const ConfPathTrie &trie)
{
    Str text;
    trie.dump(&text);
    return text;
}

} // namespace

FileChangeAnswer ConfPathMapper::onFileChange(WatchedFileState &state)
{
    bool appChanged = false;
    const FileChangeAnswer answer = takeFileChange(state.path(), appChanged);
    // Outside the lock: the manager of applications asks all mappers, this one too.
    if (appChanged) {
        confPathMapperLog.info("App modification, creation, or update: %s", app_.c_str());
        setup_.shared().applications().rescan(true);
    }
    return answer;
}

FileChangeAnswer ConfPathMapper::takeFileChange(const Pathname &file, bool &appChanged)
{
    const std::lock_guard guard(lock_);
    const Str type = file.stem();
    const Str name = setup_.text(file);
    if (fileOf(type).toStr().compareCaseless(file.toStr()) != 0) {
        confPathMapperLog.error("%s: Received change notification for unrelated file: %s",
                                directoryText().c_str(), name.c_str());
        return FileChangeAnswer::Settled;
    }
    if (edits_.contains(type)) {
        confPathMapperLog.debug("%s: Deferred change notification on %s: outstanding write",
                                directoryText().c_str(), name.c_str());
        return FileChangeAnswer::NoChange;
    }
    Type &record = types_[type];
    const std::uint64_t generation = record.state.generation;
    const ConfFileStatus status = ConfFileStatus::of(file);
    const FileChangeAnswer answer =
        status.exists ? takeContent(type, record, status) : takeDeletion(type, record);
    appChanged = type == kAppType && record.state.generation != generation;
    return answer;
}

/// The tree that is compared carries the time of the one that it may replace, so that only what the file says
/// counts.
FileChangeAnswer ConfPathMapper::takeContent(const Str &type, Type &record, const ConfFileStatus &status)
{
    const Str name = setup_.text(fileOf(type));
    ConfPathTrie content;
    if (!readFile(type, record.state.status, content)) {
        return FileChangeAnswer::Unsettled;
    }
    record.loaded = true;
    ConfPathTrie &known = appNode().child(type);
    ConfPathTrie difference;
    if (!ConfPathTrie::diff(difference, known, content)) {
        confPathMapperLog.info("%s: Ignored change notification for %s: self-generated",
                               directoryText().c_str(), name.c_str());
        return FileChangeAnswer::NoChange;
    }
    if (confPathMapperLog.debugEnabled()) {
        confPathMapperLog.debug("Previous conf:\n%s", dumped(known).c_str());
        confPathMapperLog.debug("New conf:\n%s", dumped(content).c_str());
        confPathMapperLog.debug("Conf diff:\n%s", dumped(difference).c_str());
    }
    known = std::move(content);
    record.state.status = status;
    ++record.state.generation;
    restamp(type);
    Str modtime;
    status.modtime.toUnixStr(modtime, 3);
    confPathMapperLog.info("%s: Detected change to %s with modtime %s", directoryText().c_str(), name.c_str(),
                           modtime.c_str());
    return FileChangeAnswer::Settled;
}

FileChangeAnswer ConfPathMapper::takeDeletion(const Str &type, Type &record)
{
    appNode().removeChild(type);
    record.loaded = true;
    record.state.status = {};
    ++record.state.generation;
    confPathMapperLog.info("%s: Detected deletion: %s", directoryText().c_str(),
                           setup_.text(fileOf(type)).c_str());
    return FileChangeAnswer::Settled;
}

bool ConfPathMapper::reload(const Str &type)
{
    const std::lock_guard guard(lock_);
    if (type.empty() ? !edits_.empty() : edits_.contains(type)) {
        confPathMapperLog.error("%s: Refused forced reload of %s%s: outstanding write",
                                directoryText().c_str(), type.empty() ? "all types" : type.c_str(),
                                type.empty() ? "" : ".conf");
        return false;
    }
    return type.empty() ? reloadAll() : reloadType(type);
}

bool ConfPathMapper::reloadType(const Str &type)
{
    appNode().removeChild(type);
    const ConfFileStatus status = isFileName(type) ? ConfFileStatus::of(fileOf(type)) : ConfFileStatus();
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
