#include "conf/mapper/conf_object_manager_db.h"

#include "conf/mapper/meta_file.h"
#include "conf/mapper/meta_log.h"
#include "conf/store/conf_path.h"

#include <mutex>

namespace velmox {

namespace {

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

} // namespace

ConfObjectManagerDB::ConfObjectManagerDB(const BundleHandlerData &data)
    : setup_(data.setup), file_(data.path), owner_(data.user.lowered(), data.app)
{
}

bool ConfObjectManagerDB::read(const ConfPath &path, ConfPathTrie &out, unsigned levels)
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
    const ConfTypeState current{status_, generationOf(type)};
    if (current.generation == state.generation) {
        return false;
    }
    metaLog.debug("%s: Changed since: %s -> %s", text().c_str(), state.toStr().c_str(),
                  current.toStr().c_str());
    state = current;
    return true;
}

std::uint64_t ConfObjectManagerDB::generationOf(const Str &type) const
{
    const auto found = typeGenerations_.find(type);
    return generation_ + (found == typeGenerations_.end() ? 0 : found->second);
}

Str ConfObjectManagerDB::describe() const
{
    return Str("ConfObjectManager: ") << text();
}

ConfObjectManagerDB::News ConfObjectManagerDB::takeNews()
{
    const std::lock_guard guard(lock_);
    return std::exchange(news_, News());
}

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
    if (status.exists && !readMetaFile(file_, owner_, tree)) {
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
    news_.ofExports = news_.ofExports || (differs && (didExport || !exporters_.empty()));
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
    news_.ofApp = true;
}

} // namespace velmox
