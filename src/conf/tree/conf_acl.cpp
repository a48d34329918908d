#include "conf/tree/conf_acl.h"

#include "conf/ground/conf_lock.h"
#include "util/log/logger.h"

#include <algorithm>
#include <mutex>

namespace velmox {

namespace {

Logger log("ConfAcl");

/// Bytes with a meaning of their own in a permission text.
constexpr CharSet kReserved(":,[]%+");

/// A machine that is fed the text byte by byte: "name : [ role, role ], name : [ ... ]". A name that comes
/// twice has the roles of both lists.
class PermissionParser
{
public:
    explicit PermissionParser(ConfAcl::Capabilities &out) : out_(out) {}

    /// False when the byte cannot stand here.
    bool take(char byte)
    {
        switch (state_) {
        case State::Name:
            return takeInName(byte);
        case State::BeforeList:
            return takeMark(byte, '[', State::Role);
        case State::Role:
            return takeInRole(byte);
        default:
            return takeMark(byte, ',', State::Name);
        }
    }

    bool finish(const Str &text) const
    {
        // In the other two states the text may end: behind a list, or where no name has begun.
        if (state_ == State::BeforeList || state_ == State::Role) {
            log.warn("Parsing found an incomplete permission string [%d]: %s", static_cast<int>(state_),
                     text.c_str());
            return false;
        }
        if (!buffer_.trimmed().empty()) {
            log.warn("Unparsed terminating characters '%s' in: %s", buffer_.c_str(), text.c_str());
            return false;
        }
        return true;
    }

private:
    /// Their numbers stand in the log.
    enum class State
    {
        Name = 0,
        BeforeList = 1,
        Role = 2,
        AfterList = 3,
    };

    bool takeInName(char byte)
    {
        // Whatever comes before the colon is the name, brackets too; text that never meets one is told at the
        // end.
        if (byte != ':') {
            buffer_ += byte;
            return true;
        }
        // Put in before any role, so that the capability is named even if none of its list can be decoded.
        name_ = buffer_.trimmed();
        out_.try_emplace(name_);
        buffer_.clear();
        state_ = State::BeforeList;
        return true;
    }

    /// Between lists nothing stands but the mark and blanks.
    bool takeMark(char byte, char mark, State next)
    {
        if (byte == mark) {
            state_ = next;
            return true;
        }
        return CharSet::blanks().contains(byte);
    }

    bool takeInRole(char byte)
    {
        if (byte != ',' && byte != ']') {
            buffer_ += byte;
            return true;
        }
        addRole(buffer_.trimmed());
        buffer_.clear();
        state_ = byte == ']' ? State::AfterList : State::Role;
        return true;
    }

    void addRole(Str role)
    {
        // Nobody has a role that is no valid text; the others of the list count all the same.
        if (!role.urlDecode()) {
            log.error("Cannot decode role: %s", role.c_str());
            return;
        }
        out_[name_].insert(role.lowered());
    }

    ConfAcl::Capabilities &out_;
    State state_ = State::Name;
    Str buffer_;
    Str name_;
};

/// Blanks at the ends of a role would pass for those around it.
bool needsCode(const Str &role, std::size_t at)
{
    const bool atEnd = at == 0 || at + 1 == role.size();
    return kReserved.contains(role[at]) || (atEnd && CharSet::blanks().contains(role[at]));
}

void appendRole(Str &out, const Str &role)
{
    for (std::size_t at = 0; at < role.size(); ++at) {
        if (needsCode(role, at)) {
            out.appendFormat("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(role[at])));
        } else {
            out += role[at];
        }
    }
}

/// The ACLs in use. An entry whose object is gone stays until the table has doubled: so letting go of an ACL
/// takes no lock, wherever and however late it happens.
class AclTable
{
public:
    ConfAclPtr intern(ConfAcl::Capabilities capabilities)
    {
        const std::lock_guard guard(lock_);
        sweepWhenDoubled();
        std::weak_ptr<const ConfAcl> &entry = entries_[capabilities];
        ConfAclPtr acl = entry.lock();
        if (!acl) {
            // The table keeps the capabilities as its key, and no claim to the object: that goes with its
            // last user.
            acl = std::make_shared<const ConfAcl>(std::move(capabilities));
            entry = acl;
        }
        return acl;
    }

private:
    static constexpr std::size_t kSmall = 64;

    void sweepWhenDoubled()
    {
        if (entries_.size() < sweepAt_) {
            return;
        }
        std::erase_if(entries_, [](const auto &entry) { return entry.second.expired(); });
        sweepAt_ = std::max(kSmall, 2 * entries_.size());
    }

    ConfLock lock_{ConfLockRank::Acls};
    std::map<ConfAcl::Capabilities, std::weak_ptr<const ConfAcl>> entries_;
    std::size_t sweepAt_ = kSmall;
};

/// Never destroyed: static objects may hold ACLs.
AclTable &table()
{
    static AclTable &instance = *new AclTable;
    return instance;
}

} // namespace

bool parsePermissions(const Str &text, ConfAcl::Capabilities &out)
{
    PermissionParser parser(out);
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!parser.take(text[at])) {
            log.warn("Permission parsing failed at %u in string: %s", static_cast<unsigned>(at),
                     text.c_str());
            return false;
        }
    }
    return parser.finish(text);
}

Str permissionText(const ConfAcl::Capabilities &capabilities)
{
    Str text;
    for (const auto &[name, roles] : capabilities) {
        // Names are the system's own words: only roles, which people choose, need a code.
        text << (text.empty() ? "" : ", ") << name << " : [ ";
        const char *separator = "";
        for (const Str &role : roles) {
            text << separator;
            appendRole(text, role);
            separator = ", ";
        }
        text << " ]";
    }
    return text;
}

ConfAclPtr ConfAcl::parse(const Str &text)
{
    Capabilities capabilities;
    return parsePermissions(text, capabilities) ? table().intern(std::move(capabilities)) : nullptr;
}

bool ConfAcl::allows(const Str &capability, const std::set<Str> &roles) const
{
    const auto found = capabilities_.find(capability);
    if (found == capabilities_.end()) {
        return false;
    }
    // "*" stands for everyone, those without any role too.
    const std::set<Str> &holders = found->second;
    return holders.contains("*") ||
           std::any_of(roles.begin(), roles.end(), [&](const Str &role) { return holders.contains(role); });
}

Str ConfAcl::toStr() const
{
    return permissionText(capabilities_);
}

} // namespace velmox
