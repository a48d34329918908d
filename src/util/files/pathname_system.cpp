#include "util/system/windows_api.h"
#include "util/text/pathname.h"

namespace velmox {

namespace {

/// The system's path operations share this form: they return the length written, without the NUL, the size
/// needed when the buffer is too small, or 0 with the last error set.
template <class Operation>
bool queryPath(Pathname &out, Operation operation)
{
    wchar_t buffer[MAX_PATH];
    const DWORD length = operation(buffer, static_cast<DWORD>(MAX_PATH));
    if (length == 0) {
        return false;
    }
    // Such a path is refused rather than cut; other calls would not take it either, without the prefix for
    // long paths, which is never added.
    if (length >= MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    out.assign(Pathname::View(asUtf16(buffer), length));
    return true;
}

bool equalButForCase(const Pathname &a, const Pathname &b)
{
    return CompareStringOrdinal(asWide(a), static_cast<int>(a.size()), asWide(b), static_cast<int>(b.size()),
                                TRUE) == CSTR_EQUAL;
}

} // namespace

void Pathname::absolute()
{
    // The path is both source and target: it is assigned only when the call has succeeded.
    toFull(*this);
}

bool Pathname::toFull(Pathname &out) const
{
    return queryPath(out, [this](wchar_t *buffer, DWORD size) {
        return GetFullPathNameW(asWide(*this), size, buffer, nullptr);
    });
}

bool Pathname::trueCase(Pathname &out) const
{
    Pathname shortForm;
    Pathname longForm;
    // Through the short form, because GetLongPathNameW may leave a component as it came when that is a long
    // name already: then it would tell nothing of the stored case.
    const bool found =
        queryPath(shortForm, [this](wchar_t *buffer,
                                    DWORD size) { return GetShortPathNameW(asWide(*this), buffer, size); }) &&
        queryPath(longForm, [&shortForm](wchar_t *buffer, DWORD size) {
            return GetLongPathNameW(asWide(shortForm), buffer, size);
        });
    if (!found || !equalButForCase(longForm, *this)) {
        return false;
    }
    out = longForm;
    return true;
}

} // namespace velmox
