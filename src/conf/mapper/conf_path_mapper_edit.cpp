#include "conf/file/conf_read_counters.h"
#include "conf/mapper/conf_file_creation.h"
#include "conf/mapper/conf_path_mapper.h"
#include "conf/root/in_memory_only.h"
#include "conf/store/conf_path.h"
#include "conf/tree/stanza_expansion.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

namespace {

bool canHold(const StrVector &parts, const Str &value)
{
    return parts.size() == kKeyParts ||
           (value.empty() && (parts.size() == kTypeParts || parts.size() == kStanzaParts));
}

/// Sets the metadata of all nodes that have any.
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

bool ConfPathMapper::writeData(const ConfPath &path, const Str &value)
{
    const std::lock_guard guard(lock_);
    const StrVector &parts = path.parts();
    if (!isOwn(path) || !canHold(parts, value) || !isFileName(parts[0])) {
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
    if (create ? !createConfFile(setup_, file) : pathKind(file) == PathKind::Nothing) {
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
    confReadCounters.count(FileStatus::of(file).size);
    return &edits_.emplace(type, std::move(edit)).first->second;
}

void ConfPathMapper::change(Edit &edit, const ConfPathBase &path, const Str &value)
{
    edit.changed = true;
    const StrVector &parts = path.parts();
    if (parts.size() == kTypeParts) {
        return;
    }
    IniStanza &stanza = edit.image.stanza(parts[1]);
    if (parts.size() == kStanzaParts) {
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
    if (parts.size() == kTypeParts) {
        return;
    }
    appChanged_ = appChanged_ || parts[0] == kAppType;
    const ConfPathMetadataPtr metadata = shared(metadataOf(types_[parts[0]].state.status));
    ConfPathTrie &type = pending_.node(ConfPathBase(user_, app_, {parts[0]}));
    ConfPathTrie &stanza = type.child(parts[1], stanzaExpansion(parts[1], rootDirectory_));
    stanza.setData(Str());
    stanza.setMetadata(metadata);
    if (parts.size() == kKeyParts) {
        ConfPathTrie &key = stanza.child(trimmedView(parts[2]));
        key.setData(trimmedView(value));
        key.setMetadata(metadata);
    }
}

bool ConfPathMapper::remove(const ConfPath &path)
{
    const std::lock_guard guard(lock_);
    const std::size_t count = path.parts().size();
    if (!isOwn(path) || count < kTypeParts || count > kKeyParts) {
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
    if (count == kKeyParts) {
        parts[2] = trimmedView(parts[2]);
    }
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
    if (parts.size() == kTypeParts) {
        edit->image.clear();
    } else if (parts.size() == kStanzaParts) {
        if (!edit->image.removeStanza(parts[1])) {
            log_.debug("%s: No stanza to remove: %s", pathText().c_str(), path.toStr().c_str());
            return true;
        }
    } else {
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
    bool hadEdits = false;
    bool appChanged = false;
    const bool flushed = flushEdits(hadEdits, appChanged);
    // The first file of a new app makes its directory, and thereby the app.
    if (appChanged || (hadEdits && isUnknownApp())) {
        tellOfApp(appChanged);
    }
    return flushed;
}

/// A file in whose image nothing was changed is left alone.
bool ConfPathMapper::flushEdits(bool &hadEdits, bool &appChanged)
{
    const std::lock_guard guard(lock_);
    hadEdits = !edits_.empty();
    appChanged = std::exchange(appChanged_, false);
    bool flushed = true;
    for (auto &[type, edit] : edits_) {
        flushed = (!edit.changed || edit.image.flush()) && flushed;
    }
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

} // namespace velmox
