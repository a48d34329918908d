#pragma once

#include "pipeline/input/rules/stanza_configuration.h"
#include "util/text/base_exception.h"

#include <optional>

namespace velmox {

/// What stands on standard input can't be used.
class DocumentException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// The stanzas of the input document on standard input, as the monitor would read it; nothing where that is a
/// terminal, blank or not there. Reads to the end. Throws DocumentException with what is wrong.
std::optional<Stanzas> readStanzas();

} // namespace velmox
