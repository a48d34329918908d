#pragma once

#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <set>

namespace velmox {

/// Who this process says it is to other hosts. A fresh instance names the host with a random part behind, so
/// that no two runs share an identity.
class ServerIdentity
{
public:
    /// Throws `ComponentException` when no random digits can be had.
    ServerIdentity();

    const Str &hostIdentity() const { return hostIdentity_; }
    const std::set<Str> &entries() const { return entries_; }
    const Str &pattern() const { return pattern_; }
    const WideStr &wideName() const { return wideName_; }
    bool flag(std::size_t index) const { return flags_[index]; }

private:
    bool flags_[3] = {};
    Str hostIdentity_;
    std::set<Str> entries_;
    Str pattern_ = "*";
    WideStr wideName_;
};

} // namespace velmox
