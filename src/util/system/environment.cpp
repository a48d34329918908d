#include "util/system/environment.h"

#include "util/system/windows_api.h"

#include <cstdlib>
#include <new>

namespace velmox {

namespace {

/// With the text that the header promises; the library's own says only "std::bad_alloc".
class OutOfMemory : public std::bad_alloc
{
public:
    const char *what() const noexcept override { return "bad allocation"; }
};

} // namespace

// The C run-time library's copy of the environment is read, the one that _wputenv_s changes. Its _wdupenv_s
// is not among what MinGW links; a copy of what _wgetenv finds is the same.
WideStr environmentVariable(const char16_t *name)
{
    const wchar_t *text = _wgetenv(asWide(name));
    try {
        return text != nullptr ? WideStr(asUtf16(text)) : WideStr();
    } catch (const std::bad_alloc &) {
        throw OutOfMemory();
    }
}

void setEnvironmentVariable(const char16_t *name, const WideStr &value)
{
    _wputenv_s(asWide(name), asWide(value));
}

} // namespace velmox
