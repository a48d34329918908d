#include "util/system/structured_exception.h"

namespace velmox {

/// There are no structured exceptions here: a fault is for the sanitizers to report.
void callGuarded(void (*body)(void *), void *argument)
{
    body(argument);
}

} // namespace velmox
