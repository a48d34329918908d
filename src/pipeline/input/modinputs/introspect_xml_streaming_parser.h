#pragma once

#include "pipeline/input/modinputs/element_path.h"
#include "pipeline/input/modinputs/introspection.h"
#include "pipeline/input/modinputs/modular_inputs.h"
#include "pipeline/input/xml/xml_streaming_parser.h"

namespace velmox {

/// Reads a script's description of itself. Elements that are not known to stand where they do are passed
/// over, with what is in them.
class ModularInputs::IntrospectXmlStreamingParser : public XmlStreamingParser
{
public:
    const Introspection &result() const { return result_; }

    void startElement(const Str &name) override;
    void endElement() override;
    void attributeName(const Str &name) override { isNameAttribute_ = name == "name"; }
    void attributeValue(const Str &value) override;
    void characters(const Str &piece) override { text_.append(piece); }

private:
    void endArgument();
    void store(std::string_view path);

    Introspection result_;
    ElementPath path_;
    /// Text of the innermost element, which counts when it holds no other element.
    Str text_;
    bool isLeaf_ = false;
    bool isNameAttribute_ = false;
    /// The open `arg`.
    Str argName_;
    Introspection::Texts arg_;
};

} // namespace velmox
