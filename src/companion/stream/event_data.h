#pragma once

#include "companion/stream/stream_event.h"

namespace velmox {

/// Reads the text of `<data>`, and sets of `event` what it tells. False where it is not built as the monitor
/// builds it; `event` then is of no meaning.
///
/// No quote is escaped within a field. The fields have an order, so that each is read up to the whole of what
/// separates it from the next. The name of a key and the data of a value may hold such separators themselves:
/// the first place where one stands, with a type and data behind it that fit each other, ends the key.
bool readEventData(std::string_view data, StreamEvent &event);

} // namespace velmox
