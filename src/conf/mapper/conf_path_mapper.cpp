#include "conf/mapper/conf_path_mapper.h"

#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_file_io.h"
#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "conf/tree/conf_path_pruners.h"
#include "conf/tree/stanza_expansion.h"
#include "searchthing/filesystem_change_watcher.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("ConfPathMapper");

/// A key has a value. A stanza and a type are there or not, which an empty value says.
bool canHold(const ConfPathBase &path, const Str &value)
{
    return path.level() == kKeyLevel ||
           (value.empty() && (path.level() == kTypeLevel || path.level() == kStanzaLevel));
}

/// Sets the metadata of all nodes that have any: all nodes that came out of a file share one, which bears
/// the file's time.
void stamp(ConfPathTrie &node, const ConfPathMetadataPtr &metadata)
{
    if (node.hasMetadata()) {
        node.setMetadata(metadata);
    }
    for (const auto &[part, child] : node.children()) {
        stamp(*child, metadata);
    }
}

} // namespace

ConfPathMapper::ConfPathMapper(const BundleHandlerData &data)
    : LazyConfPathMapper(data, log, "ConfPathMapper", data.path.basename() == u"local")
{
    listTypes();
}

/// Takes the types that have a file, without opening any. A directory need not exist before the first write.
void ConfPathMapper::listTypes()
{
    std::vector<DirectoryEntry> entries;
    listDirectory(path_, entries);
    for (const DirectoryEntry &entry : entries) {
        const Pathname name(entry.name);
        if (!entry.isFolder && name.extension() == kExtension) {
            types_[name.stem()].state.status = {true, entry.size, entry.modtime};
        }
    }
}

Pathname ConfPathMapper::fileOf(const Str &type) const
{
    return path_.join(type).concat(Str(".") << kExtension);
}

/// A file that is there and cannot be opened, as another program keeps it to itself, is tried again with the
/// next read; one that vanished is empty. The status is taken before the content, so that the time which the
/// values bear is never later than they are.
bool ConfPathMapper::readType(const Str &type, Type &record, ConfPathTrie &content)
{
    if (!record.state.status.exists) {
        return false;
    }
    record.state.status = FileStatus::of(fileOf(type));
    return readFile(type, record.state.status, content) || !record.state.status.exists;
}

bool ConfPathMapper::readFile(const Str &type, const FileStatus &status, ConfPathTrie &content) const
{
    const Pathname file = fileOf(type);
    const Str name = text(file);
    if (!readConfFile(file, rootDirectory_, metadataOf(status), content)) {
        log_.warn("Failed to open: %s: %m", name.c_str());
        return false;
    }
    return true;
}

/// The value goes to two places: to the image, which becomes the file, and to the pending tree, which readers
/// get to see with the flush. A type becomes a file's name, so it is checked before anything is made.
bool ConfPathMapper::writeData(const ConfPathBase &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    const StrVector &parts = path.parts();
    if (!isOwn(path) || !canHold(path, value) || !isFileName(parts[0])) {
        logWrite(LogLevel::Error, path, value, "Unsupported path or value");
        return false;
    }
    if (isInMemoryOnly()) {
        log_.info("%s: Skipping on-disk modification, keeping changes in memory only for write of: %s = %s",
                  pathText().c_str(), path.toStr().c_str(), value.c_str());
        knowType(parts[0]);
    } else if (!setInImage(path, value)) {
        return false;
    }
    setPending(path, value);
    return true;
}

bool ConfPathMapper::setInImage(const ConfPathBase &path, const Str &value)
{
    Edit *const edit = editOf(path.type(), true);
    if (!edit) {
        logWrite(LogLevel::Error, path, value, "Cannot load ini file to modify");
        return false;
    }
    knowType(path.type());
    change(*edit, path, value);
    return true;
}

void ConfPathMapper::logWrite(LogLevel level, const ConfPathBase &path, const Str &value,
                              const char *what) const
{
    if (log_.isEnabled(level)) {
        log_.log(level, "%s: Setting %s = %s: %s", pathText().c_str(), path.toStr().c_str(), value.c_str(),
                 what);
    }
}

/// What the file holds is loaded before it is changed: afterwards the tree and the file say the same, and the
/// notice of the change is known for what it is.
void ConfPathMapper::knowType(const Str &type)
{
    const auto [record, added] = types_.try_emplace(type);
    if (added) {
        record->second.state.status = FileStatus::of(fileOf(type));
    }
    load(type, record->second);
}

/// The image in which a type is edited up to the next flush; null when there is none. `create` makes the file
/// if it is missing.
ConfPathMapper::Edit *ConfPathMapper::editOf(const Str &type, bool create)
{
    const auto found = edits_.find(type);
    if (found != edits_.end()) {
        return &found->second;
    }
    const Pathname file = fileOf(type);
    const Str name = text(file);
    if (create ? !createConfFile(setup_, file, log_) : pathKind(file) == PathKind::Nothing) {
        if (create) {
            log_.error("Cannot create or open conf file: %s: %m", name.c_str());
        }
        return nullptr;
    }
    Edit edit;
    edit.image.load(file);
    if (!edit.image.loaded()) {
        return nullptr;
    }
    // The image opens its file itself, so that what it read is counted here.
    confReadCounters.count(FileStatus::of(file).size);
    return &edits_.emplace(type, std::move(edit)).first->second;
}

void ConfPathMapper::change(Edit &edit, const ConfPathBase &path, const Str &value)
{
    edit.changed = true;
    const StrVector &parts = path.parts();
    if (path.level() == kTypeLevel) {
        return;
    }
    // Added at the end of the file when it is new.
    IniStanza &stanza = edit.image.stanza(parts[1]);
    if (path.level() == kStanzaLevel) {
        return;
    }
    if (IniEntry *const entry = stanza.findKey(parts[2])) {
        entry->setValue(value);
        logWrite(LogLevel::Debug, path, value, "Edited key value");
    } else {
        stanza.insertKey(parts[2], value);
        logWrite(LogLevel::Debug, path, value, "Added new key to stanza");
    }
}

/// What is written is seen by readers from the next flush on, in the form in which it would be read.
void ConfPathMapper::setPending(const ConfPathBase &path, const Str &value)
{
    const StrVector &parts = path.parts();
    if (path.level() == kTypeLevel) {
        return;
    }
    appChanged_ = appChanged_ || parts[0] == kAppType;
    const ConfPathMetadataPtr metadata = shared(metadataOf(types_[parts[0]].state.status));
    ConfPathTrie &type = pending_.node(ConfPathBase(user_, app_, {parts[0]}));
    ConfPathTrie &stanza = type.child(parts[1], stanzaExpansion(parts[1], rootDirectory_));
    // A stanza without keys is there all the same, which only a value, if an empty one, can say.
    stanza.setData(Str());
    stanza.setMetadata(metadata);
    if (path.level() == kKeyLevel) {
        ConfPathTrie &key = stanza.child(trimmedView(parts[2]));
        key.setData(trimmedView(value));
        key.setMetadata(metadata);
    }
}

bool ConfPathMapper::remove(const ConfPathBase &path)
{
    const std::lock_guard guard(lock_);
    if (!isOwn(path) || path.level() < kTypeLevel || path.level() > kKeyLevel) {
        return false;
    }
    if (belongs(path)) {
        loadFor(path);
    }
    if (isInMemoryOnly()) {
        log_.info("%s: Skipping on-disk modification, keeping changes in memory only for removal of: %s",
                  pathText().c_str(), path.toStr().c_str());
    } else if (!removeFromImage(path)) {
        return false;
    }
    StrVector parts = path.parts();
    if (path.level() == kKeyLevel) {
        parts[2] = trimmedView(parts[2]);
    }
    // The caller's path may spell the user in another case, and the key with blanks around it; the trees
    // have neither.
    const ConfPathBase own(user_, app_, parts);
    const bool removed = master_.remove(own);
    const bool unwritten = pending_.remove(own);
    appChanged_ = appChanged_ || (path.type() == kAppType && (removed || unwritten));
    return true;
}

bool ConfPathMapper::removeFromImage(const ConfPathBase &path)
{
    Edit *const edit = belongs(path) ? editOf(path.type(), false) : nullptr;
    if (!edit) {
        log_.debug("%s: No ini file to modify for removal of: %s", pathText().c_str(), path.toStr().c_str());
        return false;
    }
    const StrVector &parts = path.parts();
    if (path.level() == kTypeLevel) {
        edit->image.clear();
    } else if (path.level() == kStanzaLevel) {
        if (!edit->image.removeStanza(parts[1])) {
            log_.debug("%s: No stanza to remove: %s", pathText().c_str(), path.toStr().c_str());
            return true;
        }
    } else {
        // A stanza that is missing counts as removed, a key does not: whoever removes a key means the one in
        // this very file.
        IniStanza *const stanza = edit->image.findStanza(parts[1]);
        if (!stanza || !stanza->removeKey(parts[2])) {
            return false;
        }
    }
    edit->changed = true;
    log_.debug("%s: Removed: %s", pathText().c_str(), path.toStr().c_str());
    return true;
}

bool ConfPathMapper::flush()
{
    // Both are found out under the lock, and told without it.
    bool hadEdits = false;
    bool appChanged = false;
    const bool flushed = flushEdits(hadEdits, appChanged);
    if (appChanged) {
        notifyAppChanged();
    } else if (hadEdits && user_ == kSharedUser) {
        observer_.onAppWritten(app_);
    }
    return flushed;
}

/// A file in whose image nothing was changed is left alone. Readers see what was written even where the disk
/// refused it: the caller is told so, and a reload brings back what the file holds.
bool ConfPathMapper::flushEdits(bool &hadEdits, bool &appChanged)
{
    const std::lock_guard guard(lock_);
    hadEdits = !edits_.empty();
    appChanged = std::exchange(appChanged_, false);
    bool flushed = true;
    for (auto &[type, edit] : edits_) {
        flushed = (!edit.changed || edit.image.flush()) && flushed;
    }
    // Also without an image to flush, as in memory alone: there the pending values are all that there is.
    master_.overwrite(pending_);
    pending_.clear();
    for (const auto &[type, edit] : edits_) {
        restamp(type);
    }
    edits_.clear();
    return flushed;
}

/// Takes over the time of a file that was written here.
void ConfPathMapper::restamp(const Str &type)
{
    FileStatus &status = types_[type].state.status;
    status = FileStatus::of(fileOf(type));
    stamp(typeNode(type), shared(metadataOf(status)));
}

FileChangeAnswer ConfPathMapper::onFileChange(WatchedFileState &state)
{
    bool appChanged = false;
    const FileChangeAnswer answer = takeFileChange(state.path(), appChanged);
    if (appChanged) {
        notifyAppChanged();
    }
    return answer;
}

/// To be called without the lock: the observer asks all mappers, this one too.
void ConfPathMapper::notifyAppChanged() const
{
    log_.info("App modification, creation, or update: %s", app_.c_str());
    observer_.onAppsChanged();
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
    // Between the edit and its flush the file is not what readers are to see, and the flush will be one more
    // change.
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
    // `default/app.conf` and `local/app.conf` say whether the app is enabled, which counts for readers of
    // all types.
    appChanged = type == kAppType && record.state.generation != generation;
    return answer;
}

/// What this mapper wrote comes back as a notice too. It is known by the content, which is in the tree
/// already: by time it could not be told from what another program wrote in the same moment.
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

/// Refused while something is to be flushed, which a new look at the disk would drop from the tree.
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

/// A type whose file is gone stays known, as one that is missing: a state that somebody holds must see its
/// generation rise when the file comes back.
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
