#include "conf/mapper/conf_object_manager_db.h"
#include "conf/mapper/meta_log.h"
#include "conf/root/path_forms.h"
#include "searchthing/watched_file_state.h"

#include <mutex>

namespace velmox {

FileChangeAnswer ConfObjectManagerDB::onFileChange(WatchedFileState &state)
{
    const std::lock_guard guard(lock_);
    const Str name = setup_.text(state.path());
    if (!isSamePath(state.path(), file_)) {
        metaLog.error("%s: Received change notification for unrelated file: %s", text().c_str(),
                      name.c_str());
        return FileChangeAnswer::Settled;
    }
    if (edit_ && edit_->changed) {
        metaLog.debug("%s: Deferred change notification on %s: outstanding write", text().c_str(),
                      name.c_str());
        return FileChangeAnswer::NoChange;
    }
    return takeFileChange();
}

/// What the file holds is a change even if it was never read: whoever asked before it was there, or could be
/// opened, took it for an empty one.
FileChangeAnswer ConfObjectManagerDB::takeFileChange()
{
    const Str name = text();
    loaded_ = true;
    const std::optional<bool> changed = refresh();
    if (!changed) {
        return FileChangeAnswer::Unsettled;
    }
    if (!status_.exists) {
        metaLog.info("%s: Detected deletion: %s", name.c_str(), name.c_str());
    } else if (!*changed) {
        metaLog.info("%s: Ignored change notification for %s: self-generated", name.c_str(), name.c_str());
        return FileChangeAnswer::NoChange;
    } else {
        metaLog.info("%s: Detected change to %s with modtime %s", name.c_str(), name.c_str(),
                     status_.modtimeText().c_str());
    }
    return FileChangeAnswer::Settled;
}

bool ConfObjectManagerDB::reload(const Str &)
{
    const std::lock_guard guard(lock_);
    if (edit_ && edit_->changed) {
        metaLog.error("%s: Refused forced reload: outstanding write", text().c_str());
        return false;
    }
    edit_.reset();
    if (!loaded_) {
        return false;
    }
    const bool didExport = !exporters_.empty();
    refresh();
    news_.ofExports = news_.ofExports || didExport || !exporters_.empty();
    return true;
}

} // namespace velmox
