#include "conf/mapper/lazy_conf_path_mapper.h"

#include "conf/root/path_forms.h"
#include "conf/tree/conf_path_pruners.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

LazyConfPathMapper::LazyConfPathMapper(const BundleHandlerData &data, Logger &log, const char *className,
                                       bool isLocal)
    : setup_(data.setup), path_(data.path), rootDirectory_(data.rootDirectory), user_(data.user.lowered()),
      app_(data.app), log_(log), observer_(data.observer), className_(className), isLocal_(isLocal)
{
}

/// Names come from callers, who may hand on what a user typed: "..\\..\\x", "con" and "a:b" would each lead
/// somewhere else than to a file of this directory.
bool LazyConfPathMapper::isFileName(const Str &part)
{
    return !part.empty() && part.findFirst(kUnsafeInNames, 0, true) < 0 && !isReservedName(part);
}

/// Each node gets these, so that a reader can tell from which file a value comes and whether it can be taken
/// away again.
ConfPathMetadata LazyConfPathMapper::metadataOf(const FileStatus &status) const
{
    ConfPathMetadata metadata;
    metadata.removable = isLocal_;
    metadata.modtime = status.modtime;
    return metadata;
}

/// Users are told apart without regard to case, apps by the exact names of their directories.
bool LazyConfPathMapper::isOwn(const ConfPathBase &path) const
{
    return path.app() == app_ && path.user().compareCaseless(user_) == 0;
}

/// A type without a file is nobody's: a reader that asks all mappers for it costs each of them one look-up.
bool LazyConfPathMapper::belongs(const ConfPathBase &path) const
{
    return isOwn(path) && (path.parts().empty() || types_.contains(path.type()));
}

void LazyConfPathMapper::noteChange(Type &record, const FileStatus &status, const Str &name)
{
    record.state.status = status;
    ++record.state.generation;
    log_.info("%s: Detected change to %s with modtime %s", pathText().c_str(), name.c_str(),
              status.modtimeText().c_str());
}

ConfPathTrie &LazyConfPathMapper::typeNode(const Str &type)
{
    return appNode().child(type);
}

bool LazyConfPathMapper::read(const ConfPathBase &path, ConfPathTrie &out, unsigned levels)
{
    const std::lock_guard guard(lock_);
    if (!belongs(path) || (path.parts().empty() && levels == 0)) {
        return false;
    }
    loadFor(path);
    return copyOut(path, out, levels);
}

/// The constraints take the place of the mapper's own user and app: what then does not belong here is of
/// another mapper. A search that ends above the types needs no file to be read.
bool LazyConfPathMapper::search(const ConfSearch &search, ConfPathTrie &out)
{
    ConfPathBase path(search.constraint(ConfSearch::User).value_or(user_).lowered(),
                      search.constraint(ConfSearch::App).value_or(app_));
    if (const auto &type = search.constraint(ConfSearch::Type)) {
        path.addPart(*type);
    }
    const std::lock_guard guard(lock_);
    if (!belongs(path)) {
        return false;
    }
    if (search.maxLevel() >= kTypeLevel) {
        loadFor(path);
        // The copy leaves out the stanzas that are not searched for; the walk after it cuts off what is too
        // deep.
        copyFitting(path, search, out);
        DoNothingPruner all;
        MatchSearchPruner fitting(search, all);
        out.walk(fitting);
    }
    return true;
}

/// A search for a stanza does not come past the others of the type: a write asks for one of what may be
/// thousands. "default" comes along, since the stanza inherits from it.
void LazyConfPathMapper::copyFitting(ConfPathBase path, const ConfSearch &search, ConfPathTrie &out)
{
    if (!search.stanza() || path.parts().empty()) {
        copyOut(path, out, ConfPathTrie::kAllLevels);
        return;
    }
    for (const Str &stanza : {Str(kDefaultStanza), *search.stanza()}) {
        path.addPart(stanza);
        copyOut(path, out, ConfPathTrie::kAllLevels);
        path.removeLastPart();
    }
}

/// What holds nothing leaves no node behind. A copy, since the tree may change as soon as the lock is given
/// back.
bool LazyConfPathMapper::copyOut(const ConfPathBase &path, ConfPathTrie &out, unsigned levels)
{
    const ConfPathTrie *const from = master_.find(path);
    if (!from || from->empty()) {
        return false;
    }
    out.node(path).merge(*from, levels);
    return true;
}

void LazyConfPathMapper::loadFor(const ConfPathBase &path)
{
    if (!path.parts().empty()) {
        load(path.type(), types_[path.type()]);
        return;
    }
    for (auto &[type, record] : types_) {
        load(type, record);
    }
}

void LazyConfPathMapper::load(const Str &type, Type &record)
{
    if (record.loaded) {
        return;
    }
    ConfPathTrie content;
    record.loaded = readType(type, record, content);
    // Half of what a file says, when it could not be read to its end, counts for nothing. `typeNode` makes
    // the node, so a type without settings is kept from having an empty one.
    if (record.loaded && !content.empty()) {
        typeNode(type) = std::move(content);
    }
}

bool LazyConfPathMapper::hasChangedSince(const Str &type, ConfTypeState &state)
{
    const std::lock_guard guard(lock_);
    const auto found = types_.find(type);
    // A type that nobody has heard of is as one that never changed: when its file comes, its generation is
    // 1.
    return state.follow(found == types_.end() ? ConfTypeState() : found->second.state, log_, pathText());
}

Str LazyConfPathMapper::describe() const
{
    return Str(className_) << ": " << pathText();
}

} // namespace velmox
