#pragma once

#include "conf/pages/property_pages.h"

namespace velmox {

/// The pages of a context with an app, and perhaps a user.
class UserPropertyPages : public PropertyPages
{
public:
    UserPropertyPages(const Str &typeName, const ConfContext &context, const Str &actingUser);

private:
    std::unique_ptr<IConfCache> createCache() const override;
    bool haveRightsChanged() override;
};

} // namespace velmox
