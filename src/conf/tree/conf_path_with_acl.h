#pragma once

#include "conf/tree/conf_path_base.h"
#include "conf/tree/conf_path_metadata.h"
#include "conf/tree/conf_user_context.h"

namespace velmox {

/// An address whose rights can be checked for somebody.
class ConfPathWithACL : public ConfPathBase
{
public:
    ConfPathWithACL(ConfPathBase base, ConfUserContext identity)
        : ConfPathBase(std::move(base)), identity_(std::move(identity))
    {
    }

    /// What applies at this path: its own metadata over that of the nodes above it.
    virtual ConfPathMetadata effectiveMetadata() const = 0;

    const ConfUserContext &identity() const { return identity_; }
    /// Whether the identity has a capability at this path. `reason`, if not null, gets a sentence for people.
    bool hasCapability(const ConfUserContext &identity, const Str &capability, Str *reason = nullptr) const;

private:
    ConfUserContext identity_;
};

/// An address on which a walker stands, with the metadata that it gathered on its way there.
class ConfPathCached : public ConfPathWithACL
{
public:
    using ConfPathWithACL::ConfPathWithACL;

    ConfPathMetadata effectiveMetadata() const override { return metadata_; }
    ConfPathMetadata &metadata() { return metadata_; }
    const ConfPathMetadata &metadata() const { return metadata_; }

private:
    ConfPathMetadata metadata_;
};

} // namespace velmox
