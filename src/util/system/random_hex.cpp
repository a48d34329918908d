#include "util/system/random_hex.h"

#include "util/system/windows_api.h"

#include <algorithm>
#include <openssl/rand.h>

namespace velmox {

bool appendRandomHex(Str &out, unsigned digits)
{
    constexpr char kDigits[] = "0123456789abcdef";
    unsigned char bytes[32];
    while (digits != 0) {
        const unsigned count = std::min<unsigned>(digits, sizeof bytes);
        if (RAND_bytes(bytes, static_cast<int>(count)) != 1) {
            // OpenSSL keeps its errors in a queue of its own, where no caller of file operations would look.
            SetLastError(ERROR_GEN_FAILURE);
            return false;
        }
        for (unsigned i = 0; i < count; ++i) {
            // A byte for each digit, of which four bits are used: simple, and the names made of these are
            // short.
            out.push_back(kDigits[bytes[i] & 15]);
        }
        digits -= count;
    }
    return true;
}

} // namespace velmox
