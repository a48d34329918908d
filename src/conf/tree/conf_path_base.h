#pragma once

#include "util/text/str.h"

namespace velmox {

inline constexpr char kSharedUser[] = "nobody";     ///< whose settings are everyone's
inline constexpr char kSystemApp[] = "system";      ///< the installation itself, as an app
inline constexpr char kDefaultStanza[] = "default"; ///< from which all others of its type inherit
inline constexpr char kAppType[] = "app"; ///< what an app says of itself, readable even when it is off

// Levels of a tree below its root, and of the addresses that name its nodes.
inline constexpr unsigned kUserLevel = 1;
inline constexpr unsigned kAppLevel = 2;
inline constexpr unsigned kTypeLevel = 3;
inline constexpr unsigned kStanzaLevel = 4;
inline constexpr unsigned kKeyLevel = 5;

/// The address of a configuration item: whose it is, in which app, then its type, stanza and key. As many
/// parts as it has say what it names: without any it is an app. Apps and parts are compared as they are,
/// users in any case.
class ConfPathBase
{
public:
    /// An empty user stands for "nobody", an empty app for "system".
    ConfPathBase(const Str &user, const Str &app, StrVector parts = {});
    ConfPathBase(const ConfPathBase &) = default;
    ConfPathBase &operator=(const ConfPathBase &) = default;
    ConfPathBase(ConfPathBase &&) = default;
    ConfPathBase &operator=(ConfPathBase &&) = default;
    virtual ~ConfPathBase() = default;

    const Str &user() const { return user_; }
    const Str &app() const { return app_; }
    /// Type, stanza, key.
    const StrVector &parts() const { return parts_; }
    /// What stands for each part where it is used (see stanza_expansion.h): as many as `parts`, each empty
    /// when there is none.
    const StrVector &expansions() const { return expansions_; }
    /// The first part, or the empty text.
    const Str &type() const;
    /// Of the node that the address names: without parts that of an app.
    std::size_t level() const { return kAppLevel + parts_.size(); }

    void setUser(const Str &user) { user_ = user.empty() ? Str(kSharedUser) : user; }
    void setApp(const Str &app) { app_ = app.empty() ? Str(kSystemApp) : app; }
    void addPart(const Str &part, const Str &expansion = Str());
    void removeLastPart();

    bool isSystemApp() const { return app_ == kSystemApp; }
    /// Whether the user is "nobody", in any case.
    bool isShared() const { return user_.compareCaseless(kSharedUser) == 0; }

    /// The parts of a tree from below its root: the user in lower case, the app, and the parts.
    StrVector segments() const;
    /// "/nobody/system/inputs/default".
    Str toStr() const;

private:
    Str user_;
    Str app_;
    StrVector parts_;
    StrVector expansions_;
};

/// Throws ConfPathDirectoryTraversalException when the app or a part of the path holds a slash or a
/// backslash. A user may have any name, since a safe one stands for it on disk, and so may a stanza: it
/// stands inside a file, and is often named after a path.
void refuseTraversal(const ConfPathBase &path);

/// The same for one part, such as a stanza whose name is that of a file.
void refuseTraversal(const ConfPathBase &path, const Str &part);

} // namespace velmox
