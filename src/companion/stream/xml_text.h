#pragma once

#include <string>
#include <string_view>

namespace velmox {

/// Appends an event's bytes as a reader of XML takes them without loss. CR LF is the line end of the stream
/// and becomes a line feed; any other CR belongs to a text, and becomes a reference. What is no UTF-8, or no
/// character of XML though it is one of Unicode, becomes U+FFFD.
void appendXmlText(std::string_view bytes, std::string &out);

} // namespace velmox
