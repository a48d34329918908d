#include "conf/store/conf_context.h"

namespace velmox {

Str ConfContext::toStr() const
{
    return Str::fromFormat("(user: %s, app: %s, root: %s)", user.c_str(), app.c_str(),
                           setup.text(setup.root()).c_str());
}

} // namespace velmox
