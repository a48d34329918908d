#pragma once

#include "util/text/str.h"

namespace velmox {

inline constexpr char kSharedUser[] = "nobody";
inline constexpr char kSystemApp[] = "system";
inline constexpr char kDefaultStanza[] = "default";
inline constexpr char kAppType[] = "app";

// How many parts the addresses of an app, a type, a stanza and a key have.
inline constexpr std::size_t kAppParts = 0;
inline constexpr std::size_t kTypeParts = 1;
inline constexpr std::size_t kStanzaParts = 2;
inline constexpr std::size_t kKeyParts = 3;

/// The address of a configuration item: whose it is, in which app, then its type, stanza and key.
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
    /// As long as `parts`; a part's expansion is empty when it has none.
    const StrVector &expansions() const { return expansions_; }
    /// The first part, or the empty text.
    const Str &type() const;

    void setUser(const Str &user);
    void setApp(const Str &app);
    void addPart(const Str &part, const Str &expansion = Str());
    void removeLastPart();

    bool isSystemApp() const;
    /// Whether the user is "nobody", in any case.
    bool isShared() const;

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

} // namespace velmox
