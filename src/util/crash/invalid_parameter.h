#pragma once

namespace velmox {

/// Has the C run-time libraries that are loaded log their callers' bad arguments, through the logger
/// "Backtracer", and go on, as far as they let themselves be told.
void logInvalidParameters();

} // namespace velmox
