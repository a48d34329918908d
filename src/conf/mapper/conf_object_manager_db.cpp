#include "conf/mapper/conf_object_manager_db.h"

#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_file_io.h"
#include "conf/mapper/meta_file.h"
#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "searchthing/filesystem_change_watcher.h"
#include "util/files/file_system.h"

#include <mutex>

namespace velmox {

namespace {

/// Whether the node or anything below it is exported to everyone.
bool exportsAnything(const ConfPathTrie &node)
{
    if (node.hasMetadata() && node.metadata().exported == ConfExport::System) {
        return true;
    }
    for (const auto &[part, child] : node.children()) {
        if (exportsAnything(*child)) {
            return true;
        }
    }
    return false;
}

/// By app alone: a node in the file may speak of any user's settings, and readers ask for apps.
std::set<Str> exportersIn(const ConfPathTrie &tree)
{
    std::set<Str> apps;
    for (const auto &[user, ofUser] : tree.children()) {
        for (const auto &[app, ofApp] : ofUser->children()) {
            if (exportsAnything(*ofApp)) {
                apps.insert(app);
            }
        }
    }
    return apps;
}

/// Copies what fits the search, with the nodes on the way there that hold something or lead to what does.
void copyMatching(const ConfPathTrie &from, const ConfSearch &search, StrVector &segments, ConfPathTrie &to)
{
    for (const auto &[part, node] : from.children()) {
        segments.push_back(part);
        if (search.matchesLast(segments)) {
            ConfPathTrie found;
            // The node itself first, and below it only what fits: the subtree is not copied to be thrown
            // away.
            found.merge(*node, 0);
            copyMatching(*node, search, segments, found);
            if (!found.empty()) {
                to.child(part) = std::move(found);
            }
        }
        segments.pop_back();
    }
}

const ConfPathMetadata &metadataAt(const ConfPathTrie &tree, const ConfPathBase &path)
{
    static const ConfPathMetadata none;
    const ConfPathTrie *const node = tree.find(path);
    return node && node->hasMetadata() ? node->metadata() : none;
}

/// The directory `metadata` of an app comes with the first metadata that is written.
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

ConfObjectManagerDB::ConfObjectManagerDB(const BundleHandlerData &data)
    : setup_(data.setup), file_(data.path), owner_(data.user.lowered(), data.app)
{
}

bool ConfObjectManagerDB::read(const ConfPathBase &path, ConfPathTrie &out, unsigned levels)
{
    const std::lock_guard guard(lock_);
    const ConfPathTrie *const found = ensureLoaded() ? tree_.find(path) : nullptr;
    if (!found || found->empty()) {
        return false;
    }
    out.node(path).merge(*found, levels);
    return true;
}

bool ConfObjectManagerDB::search(const ConfSearch &search, ConfPathTrie &out)
{
    const std::lock_guard guard(lock_);
    if (!ensureLoaded()) {
        return false;
    }
    ConfPathTrie found;
    StrVector segments;
    copyMatching(tree_, search, segments, found);
    out.merge(found);
    return !found.empty();
}

bool ConfObjectManagerDB::collectGlobalExporters(std::set<Str> &apps)
{
    const std::lock_guard guard(lock_);
    if (!ensureLoaded()) {
        return false;
    }
    for (const Str &app : exporters_) {
        metaLog.debug("%s: Reporting possible global export from app %s", text().c_str(), app.c_str());
        apps.insert(app);
    }
    return true;
}

bool ConfObjectManagerDB::hasChangedSince(const Str &type, ConfTypeState &state)
{
    const std::lock_guard guard(lock_);
    return state.follow({status_, generationOf(type)}, metaLog, text());
}

/// Rises with changes of the type and with those that concern all types, never falls, and is the same for a
/// type of which nothing is said as for one that never changed.
std::uint64_t ConfObjectManagerDB::generationOf(const Str &type) const
{
    const auto found = typeGenerations_.find(type);
    return generation_ + (found == typeGenerations_.end() ? 0 : found->second);
}

Str ConfObjectManagerDB::describe() const
{
    return Str("ConfObjectManager: ") << text();
}

ConfObjectManagerDB::PendingNotice ConfObjectManagerDB::takePendingNotice()
{
    const std::lock_guard guard(lock_);
    return std::exchange(notice_, PendingNotice());
}

bool ConfObjectManagerDB::readFile(const Pathname &file, const ConfPathBase &app, ConfPathTrie &out)
{
    return readConfLines(file, [&](ConfLineReader &reader) { readMetaText(reader, app, out); });
}

/// Tried again with each call while the file cannot be read.
bool ConfObjectManagerDB::ensureLoaded()
{
    return loaded_ || refresh().has_value();
}

/// Takes over what the file holds. A missing file is an empty one; one that cannot be opened changes nothing.
std::optional<bool> ConfObjectManagerDB::refresh()
{
    const Str name = text();
    const FileStatus status = FileStatus::of(file_);
    ConfPathTrie tree;
    if (status.exists && !readFile(file_, owner_, tree)) {
        metaLog.error("Cannot initialize: %s: %m", name.c_str());
        return std::nullopt;
    }
    return takeOver(std::move(tree), status);
}

/// The first tree is no change: nobody has seen another.
bool ConfObjectManagerDB::takeOver(ConfPathTrie &&tree, const FileStatus &status)
{
    ConfPathTrie difference;
    const bool differs = loaded_ && ConfPathTrie::diff(difference, tree_, tree);
    if (differs) {
        noteChanges(tree, difference);
    }
    const bool didExport = !exporters_.empty();
    exporters_ = exportersIn(tree);
    // A change in a file that exports, or did, may be one of what is exported. It is not looked into
    // further: views that are made anew without need cost time alone.
    notice_.exportsChanged = notice_.exportsChanged || (differs && (didExport || !exporters_.empty()));
    tree_ = std::move(tree);
    status_ = status;
    loaded_ = true;
    return differs;
}

void ConfObjectManagerDB::noteChanges(const ConfPathTrie &tree, const ConfPathTrie &difference)
{
    if (metaLog.debugEnabled()) {
        metaLog.debug("Old metadata:\n%s", tree_.toStr().c_str());
        metaLog.debug("New metadata:\n%s", tree.toStr().c_str());
        metaLog.debug("Metadata diff:\n%s", difference.toStr().c_str());
    }
    noteAppLevel(tree);
    // The difference has the nodes that changed; only the types above them count.
    for (const auto &[user, ofUser] : difference.children()) {
        for (const auto &[app, ofApp] : ofUser->children()) {
            for (const auto &[type, ofType] : ofApp->children()) {
                ++typeGenerations_[type];
            }
        }
    }
}

/// What is said of the app holds for all its types.
void ConfObjectManagerDB::noteAppLevel(const ConfPathTrie &tree)
{
    const ConfPathMetadata &before = metadataAt(tree_, owner_);
    const ConfPathMetadata &after = metadataAt(tree, owner_);
    if (before.equalsButTime(after)) {
        return;
    }
    metaLog.info("%s: Detected change to app-level metadata: %s -> %s", text().c_str(),
                 before.toStr().c_str(), after.toStr().c_str());
    ++generation_;
    notice_.appChanged = true;
}

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
    // Where there is no file the image still has to know which it becomes.
    onDisk.setDestination(file_);
    const bool isUnreadable = hasFile && !onDisk.loaded();
    edit_ = std::make_unique<Edit>(std::move(onDisk), owner_);
    edit_->isUnreadable = isUnreadable;
    if (isInMemoryOnly()) {
        // There is no file to read back at the flush: the tree of the edit becomes the whole.
        edit_->tree.merge(tree_);
    }
    return *edit_;
}

bool ConfObjectManagerDB::note(MetaEdit result)
{
    edit_->changed = edit_->changed || result == MetaEdit::Changed;
    return result != MetaEdit::Refused;
}

bool ConfObjectManagerDB::writeData(const ConfPathBase &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    Edit &current = edit();
    if (!isInMemoryOnly()) {
        return note(current.image.set(path, kMetaDataKey, value));
    }
    const ConfPathTrie *const known = current.tree.find(path);
    // An empty value where there is none would be a change of nothing.
    if (known && known->hasData() ? known->data() != value : !value.empty()) {
        current.tree.node(path).setData(value);
        current.changed = true;
    }
    return true;
}

/// A setting that the file has already in the same words does not count as a change, so that a program that
/// writes all it knows at each start leaves files alone.
bool ConfObjectManagerDB::writeMetadata(const ConfPathBase &path, const ConfPathMetadata &metadata)
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
    // What the place on disk tells, and what nobody reads: the file would not have them either.
    merged.removable.reset();
    merged.version.reset();
    if (merged.empty()) {
        return true;
    }
    ConfPathTrie &node = edit().tree.node(path);
    const ConfPathMetadata known = node.hasMetadata() ? node.metadata() : ConfPathMetadata();
    // What is not set in the new metadata stays as it was, as in the file.
    merged.fillFrom(known);
    edit_->changed = edit_->changed || merged != known;
    node.setMetadata(merged);
    return true;
}

/// What is not there needs no removal.
bool ConfObjectManagerDB::remove(const ConfPathBase &path)
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
    // Read back rather than taken over: what counts is what the file says to the next reader.
    if (!refresh()) {
        // It is written all the same: whoever looks next reads it anew.
        loaded_ = false;
        ++generation_;
    }
    return true;
}

FileChangeAnswer ConfObjectManagerDB::onFileChange(WatchedFileState &state)
{
    const std::lock_guard guard(lock_);
    const Str name = setup_.text(state.path());
    if (!isSamePath(state.path(), file_)) {
        metaLog.error("%s: Received change notification for unrelated file: %s", text().c_str(),
                      name.c_str());
        return FileChangeAnswer::Settled;
    }
    // Between the edit and its flush the file is not what readers are to see, and the flush looks at it anew.
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
    // Its image is of the file as it was.
    edit_.reset();
    if (!loaded_) {
        return false;
    }
    // Whoever asks for a reload does not believe what is known: with exports in play, readers of other apps
    // are to look anew even if nothing differs.
    const bool didExport = !exporters_.empty();
    refresh();
    notice_.exportsChanged = notice_.exportsChanged || didExport || !exporters_.empty();
    return true;
}

} // namespace velmox
