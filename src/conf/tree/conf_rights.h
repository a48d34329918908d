#pragma once

#include "conf/tree/conf_path_base.h"
#include "conf/tree/conf_path_metadata.h"

#include <memory>
#include <set>

namespace velmox {

/// On whose behalf the process works on configuration: a name and its roles, in lower case. Without a name
/// nothing is refused.
struct ConfUserContext
{
    Str name;
    std::set<Str> roles;
    bool privileged = false;

    /// Whether nothing is refused, whatever the permissions say.
    bool isUnrestricted() const;
    bool operator==(const ConfUserContext &) const = default;
};

/// Tells the current identity, and the roles of others, to the store. A program that has users installs one;
/// this program has none.
class IConfUserContextFactory
{
public:
    virtual ~IConfUserContextFactory() = default;
    /// The identity of the calling thread.
    virtual ConfUserContext current() = 0;
    /// A user by name, with the roles that name has at this moment.
    virtual ConfUserContext named(const Str &user) = 0;
};

/// The process's factory.
class ConfUserContextFactory
{
public:
    /// Not to be called while others use the store. Null removes the factory.
    static void install(std::unique_ptr<IConfUserContextFactory> factory);
    /// Null when none is installed.
    static IConfUserContextFactory *instance();
    /// What the factory says of a user at this moment. Where none is installed nothing is refused to anybody,
    /// nor is it to the empty name.
    static ConfUserContext rightsOf(const Str &user);
};

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
