#pragma once

#include "pipeline/input/xml/xml_streaming_parser.h"

#include <cstdio>

namespace velmox {

/// Feeds standard input to the parser up to its end. A read error throws ModularInputsException, and what the
/// parser throws passes through. `in` is not closed.
void readXmlFromStdin(XmlStreamingParser &parser, std::FILE *in = stdin);

} // namespace velmox
