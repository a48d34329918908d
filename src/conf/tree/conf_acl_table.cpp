#include "conf/ground/conf_lock.h"
#include "conf/tree/conf_acl.h"
#include "conf/tree/permission_parser.h"

#include <algorithm>
#include <mutex>

namespace velmox {

namespace {

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

ConfAclPtr ConfAcl::parse(const Str &text)
{
    Capabilities capabilities;
    return parsePermissions(text, capabilities) ? table().intern(std::move(capabilities)) : nullptr;
}

} // namespace velmox
