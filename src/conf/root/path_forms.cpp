#include "conf/root/path_forms.h"

#include <algorithm>

namespace velmox {

Pathname cleanedPath(const Pathname &path)
{
    Pathname result(path);
    std::replace(result.begin(), result.end(), u'/', Pathname::kSeparator);
    result.collapseSlashes();
    result.stripTrailingSlashes();
    return result;
}

Pathname foldedPath(const Pathname &path)
{
    return Pathname::fromUtf8(path.toStr().lowered());
}

bool isSamePath(const Pathname &a, const Pathname &b)
{
    return a.toStr().compareCaseless(b.toStr()) == 0;
}

bool levelsBelow(const Pathname &path, const Pathname &folder, std::vector<Pathname> &out)
{
    std::vector<Pathname> names;
    std::vector<Pathname> folders;
    path.split(names);
    folder.split(folders);
    if (names.size() < folders.size()) {
        return false;
    }
    const auto below = names.begin() + static_cast<std::ptrdiff_t>(folders.size());
    if (!std::equal(names.begin(), below, folders.begin(), isSamePath)) {
        return false;
    }
    out.assign(below, names.end());
    return true;
}

} // namespace velmox
