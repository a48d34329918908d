#include "pipeline/input/modinputs/element_path.h"

namespace velmox {

bool ElementPath::enter(const Str &name)
{
    const bool isElement = !name.startsWith("?") && !name.startsWith("!");
    if (isElement) {
        names_.push_back(name);
    }
    return isElement;
}

void ElementPath::leave()
{
    if (!empty()) {
        names_.pop_back();
    }
}

Str ElementPath::joined(std::size_t count) const
{
    Str path;
    for (std::size_t at = 0; at < count; ++at) {
        path << (at == 0 ? "" : "/") << names_[at];
    }
    return path;
}

} // namespace velmox
