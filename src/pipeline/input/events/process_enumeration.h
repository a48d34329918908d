#pragma once

#include "pipeline/input/events/machine.h"

#include <functional>

namespace velmox {

/// Fills `out`, of `kImageUnits` units, with a running process's image path in device form; false when it
/// cannot be opened or asked.
bool queryProcessImage(std::uint32_t pid, char16_t *out);

/// Told of a running process and its image.
using ProcessSeen = std::function<void(std::uint32_t pid, const char16_t *image)>;

/// Tells of every running process: with its image path, or its bare file name where the path cannot be had.
/// A failure of every way to list processes is logged; the table then fills from the records that come.
void enumerateProcesses(const ProcessSeen &seen);

} // namespace velmox
