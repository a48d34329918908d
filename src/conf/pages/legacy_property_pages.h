#pragma once

#include "conf/pages/property_pages.h"

namespace velmox {

/// The pages of a context with neither user nor app.
class LegacyPropertyPages : public PropertyPages
{
public:
    LegacyPropertyPages(const Str &typeName, const ConfContext &context);

private:
    std::unique_ptr<IConfCache> createCache() const override;
    bool haveRightsChanged() override { return false; }
};

} // namespace velmox
