#pragma once

#include "util/str.h"

#include <cstdint>

namespace velmox {

/// Replaces `out` by the text of a registry value: strings as UTF-8, the strings of a list joined by line
/// feeds, numbers in both notations, anything else empty.
///
/// Always succeeds and stays inside `dataBytes`: missing bytes of a number read as zero. A string that could
/// pass for the end of an event in the stream is logged and left out. Logs to `monitorLog`.
void renderValueData(std::uint32_t operation, std::uint32_t dataType, const unsigned char *data,
                     std::uint32_t dataBytes, Str &out);

/// True, with a line in the log, when `text` holds the mark that once ended an event in the stream.
bool hasStreamMark(const Str &text);

} // namespace velmox
