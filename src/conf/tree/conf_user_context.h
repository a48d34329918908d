#pragma once

#include "util/text/str.h"

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

} // namespace velmox
