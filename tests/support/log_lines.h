#pragma once

#include "util/text/str.h"

namespace velmox::testing {

/// Lines as CapturedLog keeps them, each behind `head`, "LEVEL logger: "; %m stands for the system's text of
/// the error. `lines` has line feeds between them and none at the end.
inline Str logLines(const char *head, Str lines, unsigned error = 0)
{
    if (lines.empty()) {
        return lines;
    }
    Str reason;
    reason.appendErrorText(error);
    lines.replaceAll("%m", reason);
    lines.replaceAll("\n", Str::concat("\n", head));
    return Str(head).append(lines).append("\n");
}

} // namespace velmox::testing
