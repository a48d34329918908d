#include "conf/pages/property_pages.h"

#include "conf/ground/property_pages_exceptions.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/store/application_manager.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/conf_path_base.h"
#include "conf/tree/conf_user_context.h"

#include <mutex>

namespace velmox {

namespace {

/// On whose behalf a context is used. Throws PropertyPagesImpersonationException.
Str actingUserOf(const ConfContext &context)
{
    IConfUserContextFactory *const factory = ConfUserContextFactory::instance();
    if (context.user.empty() || factory == nullptr) {
        return context.user;
    }
    const ConfUserContext identity = factory->current();
    if (identity.privileged || context.user.compareCaseless(identity.name) == 0) {
        return context.user;
    }
    if (context.user.compareCaseless(kSharedUser) != 0) {
        throw PropertyPagesImpersonationException(identity.name, context.user);
    }
    return identity.name;
}

/// An app that does not exist has no settings, but is not disabled.
bool isDisabled(const ApplicationManager &applications, const Str &app)
{
    return applications.isKnown(app) && !applications.isUsable(app);
}

bool isWanted(const PropertiesMap &stanza, DisabledMode mode)
{
    return mode == DisabledMode::All || stanza.isDisabled() == (mode == DisabledMode::OnlyDisabled);
}

} // namespace

PropertyPages::PropertyPages(const Str &typeName, const ConfContext &context, const Str &actingUser)
    : typeName_(typeName), context_(context), actingUser_(actingUser)
{
    if (typeName != kAppType && !context.app.empty() &&
        isDisabled(context.setup.shared().applications(), context.app)) {
        throw PropertyPagesDisabledAppException(context.app);
    }
    if (!context.user.empty() && context.app.empty()) {
        throw PropertyPagesContextException(toStr(), PropertyPagesContextException::kUserWithoutApp);
    }
}

PropertyPages *PropertyPages::get(const Str &typeName)
{
    return get(typeName, ConfContext());
}

PropertyPages *PropertyPages::get(const Str &typeName, const ConfContext &context)
{
    const Str actingUser = actingUserOf(context);
    PropertyPagesRegistry &registry = context.setup.shared().pages();
    PropertyPages *const pages = registry.get(typeName, context, actingUser);
    if (pages->haveRightsChanged()) {
        registry.invalidateActingUser(actingUser);
    }
    return pages;
}

Str PropertyPages::toStr() const
{
    return Str::fromFormat("Type = %s, Context = %s, Acting as = %s", typeName_.c_str(),
                           context_.toStr().c_str(), actingUser_.c_str());
}

PropertyPagesRegistry &PropertyPages::registry() const
{
    return context_.setup.shared().pages();
}

void PropertyPages::enumerateStanzas(StringFilter &filter, Stanzas &out, DisabledMode mode)
{
    const std::lock_guard guard(cache_->lock());
    cache_->refresh();
    const IConfCache::Iterator inherited = cache_->find(kDefaultStanza);
    for (const IConfCache::Iterator at = cache_->begin(); !at->atEnd(); at->step()) {
        ++filter.checks;
        if (!filter.matches(at->name())) {
            continue;
        }
        ++filter.hits;
        const auto stanza = out.try_emplace(at->name()).first;
        copyStanza(*at, *inherited, stanza->second);
        if (!isWanted(stanza->second, mode)) {
            out.erase(stanza);
        }
    }
}

void PropertyPages::enumerateStanzasWithPrefix(const Str &prefix, Stanzas &out, DisabledMode mode)
{
    StringPrefixFilter filter(prefix, prefix);
    enumerateStanzas(filter, out, mode);
}

void PropertyPages::readStanza(const Str &name, PropertiesMap &out)
{
    const std::lock_guard guard(cache_->lock());
    cache_->readStanza(name, out);
}

} // namespace velmox
