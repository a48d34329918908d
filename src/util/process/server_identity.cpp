#include "util/server_identity.h"

#include "util/base_exception.h"
#include "util/environment.h"
#include "util/random_hex.h"

namespace velmox {

ServerIdentity::ServerIdentity()
{
    constexpr unsigned kRandomDigits = 32;
    const WideStr computer = environmentVariable(u"COMPUTERNAME");
    hostIdentity_ = computer.empty() ? Str("no-hostname-set") : Str::fromUtf16(computer);
    hostIdentity_ << " [";
    if (!appendRandomHex(hostIdentity_, kRandomDigits)) {
        throw ComponentException(Str::fromLastErrorFormat("Cannot make the host identity: %m"));
    }
    hostIdentity_ << "]";
}

} // namespace velmox
