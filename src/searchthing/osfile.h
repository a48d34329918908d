#pragma once

#include "util/text/pathname.h"

#include <string_view>

namespace velmox {

/// Creates a file that must not be there yet, writes the content and closes it; nobody else can open it
/// meanwhile. False, with the reason in the last error, on failure; a file that was created is deleted then.
bool createWithContent(const Pathname &path, std::string_view content);

/// Who this process is, for files that name their owner: the process number, LF and the host's name. Built on
/// the first call.
const Str &ownerText();

} // namespace velmox
