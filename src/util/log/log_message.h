#pragma once

#include "util/text/str_segment.h"

namespace velmox {

/// Smallest limit that `appendCompressed` takes: the longest marker and some text in front of it.
inline constexpr std::size_t kMinimumCompressedLength = 45;

/// Appends `text`, which is longer than `limit`, in exactly `limit` bytes: its head, a marker that tells the
/// number of bytes left out, and, where there is room, its last 16 bytes.
void appendCompressed(StrSegment text, std::size_t limit, Str &out);

/// The text with each LF as the two characters `\n` and each CR as `\r`, so that it stays on one line.
Str withVisibleLineEnds(StrSegment text);

} // namespace velmox
