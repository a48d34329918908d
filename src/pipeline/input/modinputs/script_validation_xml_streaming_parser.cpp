#include "pipeline/input/modinputs/script_validation_xml_streaming_parser.h"

namespace velmox {

namespace {

constexpr char kMessage[] = "error/message";

} // namespace

void ScriptValidationXmlStreamingParser::characters(const Str &piece)
{
    if (path_.view() == kMessage) {
        text_.append(piece);
    }
}

void ScriptValidationXmlStreamingParser::endElement()
{
    if (path_.view() == kMessage) {
        if (message_.empty()) {
            message_ = text_.trimmed(kWhiteSpace);
        }
        text_.clear();
    }
    path_.leave();
}

} // namespace velmox
