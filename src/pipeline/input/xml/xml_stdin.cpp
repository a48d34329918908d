#include "pipeline/input/xml/xml_stdin.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"

namespace velmox {

void readXmlFromStdin(XmlStreamingParser &parser, std::FILE *in)
{
    char bytes[8192];
    for (;;) {
        const std::size_t count = std::fread(bytes, 1, sizeof bytes, in);
        if (count > 0) {
            parser.feed(bytes, count);
        } else if (std::feof(in)) {
            return;
        } else {
            ModularInputsException::raise("Error reading XML configuration input from stdin: %m");
        }
    }
}

} // namespace velmox
