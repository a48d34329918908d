#pragma once

#include "conf/ground/conf_lock.h"
#include "util/text/pathname.h"

#include <atomic>
#include <map>
#include <memory>

namespace velmox {

class SharedConfServices;

/// The services of all configuration roots that this process uses, each made when its root is first asked
/// for. Any thread; others wait while the services of a root are being made.
class SharedConfServicesRegistry
{
public:
    /// Made by the first call and never destroyed.
    static SharedConfServicesRegistry &instance();

    /// The services of the default root; without a lock once they are complete.
    SharedConfServices &defaultRoot();
    /// `root` may be empty, and may name the default root. What the services make of their own root while
    /// they are being made gives them as far as they are.
    SharedConfServices &get(const Pathname &root, const Pathname &slaveApps);

    unsigned population() const;

private:
    SharedConfServicesRegistry() = default;
    SharedConfServices &make(const Pathname &key, const Pathname &root, const Pathname &slaveApps);

    mutable ConfLock lock_{ConfLockRank::Setups};
    /// By folded root; the default root's key is empty.
    std::map<Pathname, std::unique_ptr<SharedConfServices>> services_;
    std::atomic<SharedConfServices *> default_{nullptr};
};

} // namespace velmox
