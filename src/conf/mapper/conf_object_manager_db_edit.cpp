#include "conf/mapper/conf_object_manager_db.h"
#include "conf/mapper/meta_file.h"
#include "conf/mapper/meta_log.h"
#include "conf/root/in_memory_only.h"
#include "conf/store/conf_path.h"
#include "util/files/file_system.h"

#include <mutex>

namespace velmox {

namespace {

bool makeParent(const Pathname &file)
{
    const Pathname parent = file.dirname();
    const Str name = parent.toStr();
    if (!makeDirs(parent, true)) {
        metaLog.error("Cannot create parent directory: %s: %m", name.c_str());
        return false;
    }
    return true;
}

} // namespace

/// Begins with what stands on disk at this moment, which another process may have written. What is kept in
/// memory alone would be lost by that.
ConfObjectManagerDB::Edit &ConfObjectManagerDB::edit()
{
    if (edit_) {
        return *edit_;
    }
    if (!loaded_ || (!isInMemoryOnly() && FileStatus::of(file_) != status_)) {
        refresh();
    }
    const bool hasFile = !isInMemoryOnly() && pathKind(file_) != PathKind::Nothing;
    IniFile onDisk = hasFile ? IniFile(file_) : IniFile();
    onDisk.setDestination(file_);
    const bool isUnreadable = hasFile && !onDisk.loaded();
    edit_ = std::make_unique<Edit>(std::move(onDisk), owner_);
    edit_->isUnreadable = isUnreadable;
    if (isInMemoryOnly()) {
        edit_->tree.merge(tree_);
    }
    return *edit_;
}

bool ConfObjectManagerDB::note(MetaEdit result)
{
    edit_->changed = edit_->changed || result == MetaEdit::Changed;
    return result != MetaEdit::Refused;
}

bool ConfObjectManagerDB::writeData(const ConfPath &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    Edit &current = edit();
    if (!isInMemoryOnly()) {
        return note(current.image.set(path, kMetaDataKey, value));
    }
    const ConfPathTrie *const known = current.tree.find(path);
    if (known && known->hasData() ? known->data() != value : !value.empty()) {
        current.tree.node(path).setData(value);
        current.changed = true;
    }
    return true;
}

bool ConfObjectManagerDB::writeMetadata(const ConfPath &path, const ConfPathMetadata &metadata)
{
    const std::lock_guard guard(lock_);
    if (isInMemoryOnly()) {
        return setInTree(path, metadata);
    }
    for (const auto &[key, value] : metaSettings(metadata)) {
        if (!note(edit().image.set(path, key, value))) {
            return false;
        }
    }
    return true;
}

bool ConfObjectManagerDB::setInTree(const ConfPathBase &path, const ConfPathMetadata &metadata)
{
    ConfPathMetadata merged = metadata;
    // Of the place on disk, and of nobody's interest.
    merged.removable.reset();
    merged.version.reset();
    if (merged.empty()) {
        return true;
    }
    ConfPathTrie &node = edit().tree.node(path);
    const ConfPathMetadata known = node.hasMetadata() ? node.metadata() : ConfPathMetadata();
    merged.fillFrom(known);
    edit_->changed = edit_->changed || merged != known;
    node.setMetadata(merged);
    return true;
}

/// What is not there needs no removal.
bool ConfObjectManagerDB::remove(const ConfPath &path)
{
    const std::lock_guard guard(lock_);
    Edit &current = edit();
    if (isInMemoryOnly()) {
        current.changed = current.tree.remove(path) || current.changed;
        return true;
    }
    return note(current.image.remove(path));
}

/// Changes that cannot be written are lost, and the caller is told.
bool ConfObjectManagerDB::flush()
{
    const std::lock_guard guard(lock_);
    const std::unique_ptr<Edit> done = std::move(edit_);
    if (done && done->isUnreadable) {
        metaLog.error("%s: Failed to load from disk and cannot flush", text().c_str());
        return false;
    }
    if (!done || !done->changed) {
        metaLog.debug("%s: Nothing to flush", text().c_str());
        return true;
    }
    if (isInMemoryOnly()) {
        metaLog.info("%s: Skipping flush, keeping changes in memory only", text().c_str());
        takeOver(std::move(done->tree), status_);
        return true;
    }
    if (!makeParent(file_) || !done->image.flush()) {
        return false;
    }
    if (!refresh()) {
        // It is written all the same: whoever looks next reads it anew.
        loaded_ = false;
        ++generation_;
    }
    return true;
}

} // namespace velmox
