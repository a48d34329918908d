#include "conf/cache/base_conf_cache.h"

#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/conf_path_base.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("BaseConfCache");

constexpr std::uint64_t kTicksPerMillisecond = Timeval::kTicksPerSecond / 1000;

class StanzaIterator : public IConfCacheIteratorImpl
{
public:
    StanzaIterator(Stanzas::const_iterator at, const Stanzas &stanzas) : at_(at), stanzas_(stanzas) {}

    std::unique_ptr<IConfCacheIteratorImpl> clone() const override
    {
        return std::make_unique<StanzaIterator>(*this);
    }
    const Str &name() const override { return at_->first; }
    const Str &expansion() const override { return at_->second.expansion; }
    bool atEnd() const override { return at_ == stanzas_.end(); }
    void step() override { ++at_; }
    void copyTo(PropertiesMap &out, bool direct) const override;

private:
    Stanzas::const_iterator at_;
    const Stanzas &stanzas_;
};

void StanzaIterator::copyTo(PropertiesMap &out, bool direct) const
{
    const PropertiesMap &stanza = at_->second;
    if (out.properties.empty()) {
        out.properties = stanza.properties;
    } else {
        out.properties.insert(stanza.properties.begin(), stanza.properties.end());
    }
    if (direct && out.self.originStanza.empty()) {
        out.self = stanza.self;
        out.metadata = stanza.metadata;
        out.expansion = stanza.expansion;
    }
}

} // namespace

void copyStanza(const IConfCacheIteratorImpl &at, const IConfCacheIteratorImpl &inherited, PropertiesMap &out)
{
    if (at.atEnd()) {
        return;
    }
    at.copyTo(out, true);
    if (!inherited.atEnd() && at.name() != kDefaultStanza) {
        inherited.copyTo(out, false);
    }
}

BaseConfCache::BaseConfCache(const Str &typeName, const ConfContext &context)
    : typeName_(typeName), context_(context), pollMs_(context.setup.shared().settings().rebuildPollMs())
{
}

IConfCache::Iterator BaseConfCache::begin()
{
    return std::make_unique<StanzaIterator>(stanzas_.cbegin(), stanzas_);
}

IConfCache::Iterator BaseConfCache::find(const Str &name)
{
    return std::make_unique<StanzaIterator>(stanzas_.find(name), stanzas_);
}

void BaseConfCache::refresh()
{
    poll();
    // Cleared first: what makes the view stale while it is being built counts for the next read.
    if (!dirty_.exchange(false)) {
        return;
    }
    try {
        rebuild();
    } catch (...) {
        dirty_.store(true);
        throw;
    }
}

void BaseConfCache::readStanza(const Str &name, PropertiesMap &out)
{
    poll();
    Stanzas built;
    const bool isStale = dirty_.load();
    if (isStale) {
        buildStanza(name, built);
    }
    const Stanzas &from = isStale ? built : stanzas_;
    copyStanza(StanzaIterator(from.find(name), from), StanzaIterator(from.find(kDefaultStanza), from), out);
}

std::vector<IConfPathMapper *> BaseConfCache::mappers() const
{
    return context_.setup.shared().mappers().mappers();
}

void BaseConfCache::poll()
{
    if (!isPollDue()) {
        return;
    }
    states_.follow(mappers());
    const std::vector<const IConfPathMapper *> changed = states_.changedMappers(typeName_);
    for (const IConfPathMapper *const mapper : changed) {
        log.info("[%s] detected change in type %s %s", mapper->describe().c_str(), typeName_.c_str(),
                 context_.toStr().c_str());
    }
    scheduleNextPoll(now());
    if (!changed.empty()) {
        invalidate();
    }
}

bool BaseConfCache::isPollDue()
{
    if (pollMs_ == 0) {
        return false;
    }
    const Timeval time = now();
    if (time < lastPoll_) {
        log.warn("Current time (%s) precedes previous poll time (%s).", time.toStr().c_str(),
                 lastPoll_.toStr().c_str());
        return true;
    }
    return time >= nextPoll_;
}

void BaseConfCache::scheduleNextPoll(const Timeval &time)
{
    lastPoll_ = time;
    nextPoll_ = Timeval(time.ticks() + pollMs_ * kTicksPerMillisecond);
}

} // namespace velmox
