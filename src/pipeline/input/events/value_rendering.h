#pragma once

#include "util/text/str.h"

#include <cstdint>

namespace velmox {

/// The name of a registry value type, but "REG_SD" for the two operations that carry a security descriptor.
/// `operation` is a kernel notification code (REG_NOTIFY_CLASS). The text is static.
const char *dataTypeName(std::uint32_t operation, std::uint32_t dataType);

/// Replaces `out` by the text of a registry value: strings as UTF-8, the strings of a list joined by line
/// feeds, numbers in both notations, anything else empty.
///
/// Always succeeds and stays inside `dataBytes`: missing bytes of a number read as zero. A string that could
/// pass for the end of an event in the stream is logged and left out. The operation has no say in the text.
/// Logs to `monitorLog`.
void renderValueData(std::uint32_t operation, std::uint32_t dataType, const unsigned char *data,
                     std::uint32_t dataBytes, Str &out);

} // namespace velmox
