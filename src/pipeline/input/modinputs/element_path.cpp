#include "pipeline/input/modinputs/element_path.h"

namespace velmox {

bool ElementPath::enter(const Str &name)
{
    const bool isElement = !name.startsWith("?") && !name.startsWith("!");
    if (isElement) {
        path_ << (empty() ? "" : "/");
        starts_.push_back(path_.size());
        path_ << name;
    }
    return isElement;
}

void ElementPath::leave()
{
    if (!empty()) {
        path_.resize(parent().size());
        starts_.pop_back();
    }
}

} // namespace velmox
