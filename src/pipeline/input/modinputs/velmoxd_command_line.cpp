#include "pipeline/input/modinputs/velmoxd_command_line.h"

namespace velmox {

const char kVelmoxdUsage[] =
    "Usage:\n"
    "    velmoxd [--debug] print-modinput-config scheme stanza    (script instance per stanza)\n"
    "    velmoxd [--debug] print-modinput-config scheme           (single instance)\n";

std::optional<VelmoxdCommandLine> readVelmoxdCommandLine(const StrVector &arguments)
{
    VelmoxdCommandLine options;
    auto word = arguments.begin();
    if (word != arguments.end() && *word == "--debug") {
        options.debug = true;
        ++word;
    }
    const auto count = arguments.end() - word;
    if (count < 2 || count > 3 || *word != "print-modinput-config") {
        return std::nullopt;
    }
    options.scheme = *++word;
    if (count == 3) {
        options.stanza = *++word;
    }
    return options;
}

} // namespace velmox
