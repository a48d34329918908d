#pragma once

#include "pipeline/input/events/process_image_table.h"

namespace velmox {

/// Fills `out`, of `kImageUnits` units, with a running process's image path in device form; false when it
/// cannot be opened or asked.
bool queryProcessImage(std::uint32_t pid, char16_t *out);

/// Enters every running process into the table: with its image path, or its bare file name where the path
/// cannot be had. A failure of every way to list processes is logged.
void enumerateProcesses(ProcessImageTable &table);

} // namespace velmox
