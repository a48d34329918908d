#pragma once

#include "conf/tree/properties_map.h"
#include "pipeline/input/xml/xml_streaming_parser.h"
#include "util/text/pathname.h"

#include <cstdio>

namespace velmox {

/// Reads the input document: the connection to the server, the checkpoint directory and the configured
/// stanzas.
///
/// The root is `input`; an element inside it that has no business there throws ModularInputsException from
/// `feed`. Attributes other than `name` are ignored, and what was read before a missing end counts.
class ConfigXmlStreamingParser : public XmlStreamingParser
{
public:
    ConfigXmlStreamingParser() : currentStanza_(stanzas_.end()) {}

    const Stanzas &stanzas() const { return stanzas_; }
    /// Empty where the document has none.
    const Pathname &checkpointDirectory() const { return checkpointDir_; }
    const Str &serverHost() const { return serverHost_; }
    const Str &serverUri() const { return serverUri_; }
    const Str &sessionKey() const { return sessionKey_; }

    void startElement(const Str &name) override;
    void endElement() override;
    void attributeName(const Str &name) override;
    void attributeValue(const Str &value) override;
    void characters(const Str &piece) override;

private:
    /// The innermost element, or the attribute `name` of one, whose value is to come.
    enum class State : std::uint32_t
    {
        Outside,
        Input,
        ServerHost,
        ServerUri,
        SessionKey,
        Configuration,
        Stanza,
        StanzaName,
        Param,
        ParamName,
        CheckpointDir
    };
    struct Child;
    static const Child kChildren[];

    const Child *innermost() const;
    void enterRoot();
    void enterChild(const Str &name);
    void storeParam();

    /// The open elements, joined as a path: messages show them with the backslashes of one. Outside the root
    /// it is all that tells where an element stands.
    Pathname path_;
    State state_ = State::Outside;
    Str serverHost_;
    Str serverUri_;
    Str sessionKey_;
    Pathname checkpointDir_;
    Stanzas stanzas_;
    /// Where params go; the end of the map when they go nowhere.
    Stanzas::iterator currentStanza_;
    Str paramName_;
    /// Text of the open element.
    Str text_;
};

/// Feeds standard input to the parser up to its end. A read error throws ModularInputsException, and what the
/// parser throws passes through. `in` is not closed.
void readXmlFromStdin(XmlStreamingParser &parser, std::FILE *in = stdin);

} // namespace velmox
