#pragma once

namespace velmox {

/// Has the C run-time library log its callers' bad arguments, through the logger "Backtracer", and go on.
void logInvalidParameters();

} // namespace velmox
