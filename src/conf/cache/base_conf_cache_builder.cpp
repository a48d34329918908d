#include "conf/cache/base_conf_cache_builder.h"

#include "conf/store/shared_conf_services.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("BaseConfCacheBuilder");

} // namespace

BaseConfCacheBuilder::BaseConfCacheBuilder(const BaseConfCache &cache, Stanzas &view, bool override)
    : cache_(cache), view_(view), override_(override)
{
    const ConfContext &reader = cache.context();
    if (!reader.app.empty()) {
        imports_ = reader.setup.shared().applications().importGenerations(reader.app);
    }
}

bool BaseConfCacheBuilder::visitPath(const ConfPathCached &path, ConfPathTrie &node)
{
    const std::size_t depth = path.parts().size();
    const Level parent = depth == kAppParts ? Unknown : levels_[depth - 1];
    const ConfExport exported = node.hasMetadata() ? node.metadata().exported : ConfExport::NotSet;
    levels_[depth] = levelOf(path, exported, parent);
    PropertyValue *target = nullptr;
    if (depth == kAppParts) {
        enterApp(path);
    } else if (depth == kStanzaParts) {
        enterStanza(path, node);
        target = &stanza_->self;
    } else if (depth == kKeyParts) {
        target = &enterKey(path);
    }
    if (target != nullptr && !(existed_ && keepsOldValue(*target, levels_[depth]))) {
        set(*target, path, node, levels_[depth]);
    }
    return false;
}

void BaseConfCacheBuilder::enterApp(const ConfPathCached &path)
{
    const ConfContext &reader = cache_.context();
    const auto found = imports_.find(path.app());
    generation_ = found == imports_.end() ? 0 : found->second;
    if (found != imports_.end() && path.app() != reader.app) {
        log.debug("%s.conf %s: %s imports %s with generation %llu", cache_.typeName().c_str(),
                  reader.toStr().c_str(), reader.app.c_str(), path.app().c_str(),
                  static_cast<unsigned long long>(generation_));
    }
}

void BaseConfCacheBuilder::enterStanza(const ConfPathCached &path, const ConfPathTrie &node)
{
    const auto [at, added] = view_.try_emplace(path.parts().back());
    existed_ = !added;
    stanzaName_ = &at->first;
    stanza_ = &at->second;
    stanza_->metadata = path.metadata().access;
    takeExpansion(node);
}

void BaseConfCacheBuilder::takeExpansion(const ConfPathTrie &node)
{
    if (stanza_->expansion.empty()) {
        stanza_->expansion = node.expansion();
    } else if (!node.expansion().empty() && node.expansion() != stanza_->expansion) {
        log.warn("Stanza has an expansion [%s], ignoring alternate expansion [%s] in %s.conf",
                 stanza_->expansion.c_str(), node.expansion().c_str(), cache_.typeName().c_str());
    }
}

PropertyValue &BaseConfCacheBuilder::enterKey(const ConfPathCached &path)
{
    const auto [at, added] = stanza_->properties.try_emplace(path.parts().back());
    existed_ = !added;
    return at->second;
}

BaseConfCacheBuilder::Level BaseConfCacheBuilder::levelOf(const ConfPathCached &path, ConfExport exported,
                                                          Level parent) const
{
    if (path.isSystemApp()) {
        return SystemApp;
    }
    if (!path.isShared()) {
        return OwnUser;
    }
    if (exported == ConfExport::NotSet && parent != Unknown) {
        return parent;
    }
    const Str &readerApp = cache_.context().app;
    switch (exported) {
    case ConfExport::NotSet:
    case ConfExport::None:
        return !readerApp.empty() && path.app() != readerApp ? NotExported : Own;
    case ConfExport::System:
        return !readerApp.empty() && path.app() == readerApp ? OwnExported : Exported;
    }
    return Unknown;
}

bool BaseConfCacheBuilder::keepsOldValue(const PropertyValue &target, Level level) const
{
    const bool bothNotExported = level == NotExported && target.level == NotExported;
    const bool isFurtherImport = bothNotExported && generation_ > target.generation;
    return isFurtherImport || !override_ || level < target.level;
}

void BaseConfCacheBuilder::set(PropertyValue &target, const ConfPathCached &path, const ConfPathTrie &node,
                               Level level) const
{
    // Version, removable and time are the node's own: nothing hands them down.
    const ConfPathMetadata &metadata = path.metadata();
    target.value = node.hasData() ? node.data() : Str();
    target.level = level;
    target.generation = generation_;
    target.app = path.app();
    target.version = metadata.version ? *metadata.version : Str();
    target.user = metadata.owner ? *metadata.owner : path.user();
    target.metadata = metadata.access;
    target.removable = metadata.removable.value_or(false);
    target.modtime = metadata.modtime.value_or(Timeval());
    target.originStanza = *stanzaName_;
}

} // namespace velmox
