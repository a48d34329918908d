#pragma once

#include "util/text/char_set.h"

#include <string_view>

namespace velmox {

/// The bytes that no name of a file may hold on Windows, of those that can be typed.
inline constexpr CharSet kUnsafeInNames("<>:\"/\\|?*");

/// Whether Windows takes the name for a device, in whatever directory it stands, or for another name: one
/// that ends in a point or a blank loses it, which makes "anna." the same as "anna".
///
/// The names of devices are those that Microsoft's "Naming Files, Paths, and Namespaces" lists, and the two
/// of the console, which the system's own check for devices knows as well. Case does not count, nor does what
/// follows a point, nor do blanks before it: "nul .txt" is the null device.
bool isReservedName(std::string_view name);

} // namespace velmox
