#pragma once

#include "pipeline/input/modinputs/element_path.h"
#include "pipeline/input/xml/xml_streaming_parser.h"

namespace velmox {

/// Reads a script's answer to `--validate-arguments`: an element `error` whose element `message` says what is
/// wrong. Of several messages the first counts.
class ScriptValidationXmlStreamingParser : public XmlStreamingParser
{
public:
    /// Empty if the script gave none.
    const Str &message() const { return message_; }

    void startElement(const Str &name) override { path_.enter(name); }
    void endElement() override;
    void characters(const Str &piece) override;

private:
    ElementPath path_;
    Str text_;
    Str message_;
};

} // namespace velmox
