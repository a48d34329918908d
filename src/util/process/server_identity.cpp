#include "util/process/server_identity.h"

#include "util/system/environment.h"
#include "util/system/random_hex.h"
#include "util/text/base_exception.h"

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
