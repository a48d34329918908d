#include "pipeline/input/xml/config_xml_streaming_parser.h"

#include "pipeline/input/diagnostics/diagnostics.h"

namespace velmox {

/// An element, where it may stand, and the state while it is the innermost one.
struct ConfigXmlStreamingParser::Child
{
    State parent;
    const char *name;
    State state;
    bool hasText;
};

const ConfigXmlStreamingParser::Child ConfigXmlStreamingParser::kChildren[] = {
    {State::Outside, "input", State::Input, false},
    {State::Input, "server_host", State::ServerHost, true},
    {State::Input, "server_uri", State::ServerUri, true},
    {State::Input, "session_key", State::SessionKey, true},
    {State::Input, "checkpoint_dir", State::CheckpointDir, true},
    {State::Input, "configuration", State::Configuration, false},
    {State::Configuration, "stanza", State::Stanza, false},
    {State::Stanza, "param", State::Param, true},
};

void ConfigXmlStreamingParser::startElement(const Str &name)
{
    // Declarations have no end, so they must not become part of the path.
    if (name.startsWith("?") || name.startsWith("!")) {
        return;
    }
    path_.append(name.data(), name.size());
    if (state_ == State::Outside) {
        enterRoot();
    } else {
        enterChild(name);
    }
}

/// What stands beside or below another root is skipped.
void ConfigXmlStreamingParser::enterRoot()
{
    static const Pathname root = Pathname().join("input");
    if (path_ == root) {
        state_ = State::Input;
    }
}

/// What is not known is refused, not skipped: a misspelt element would be a setting that does nothing,
/// without a word.
void ConfigXmlStreamingParser::enterChild(const Str &name)
{
    for (const Child &child : kChildren) {
        if (child.parent == state_ && name == child.name) {
            state_ = child.state;
            return;
        }
    }
    ModularInputsException::raise(
        "Unexpected entity \"%s\" found under path \"%s\" in the XML configuration input.", name.c_str(),
        path_.toStr().c_str());
}

void ConfigXmlStreamingParser::attributeName(const Str &name)
{
    if (name != "name") {
        return;
    }
    if (state_ == State::Stanza) {
        // The value comes next. Should it stay away, the params that follow belong to nobody.
        state_ = State::StanzaName;
        currentStanza_ = stanzas_.end();
    } else if (state_ == State::Param) {
        state_ = State::ParamName;
        paramName_.clear();
    }
}

void ConfigXmlStreamingParser::attributeValue(const Str &value)
{
    if (state_ == State::StanzaName) {
        state_ = State::Stanza;
        // Two stanzas of one name are one; of two params of one key the later counts.
        currentStanza_ = stanzas_.try_emplace(value).first;
    } else if (state_ == State::ParamName) {
        state_ = State::Param;
        paramName_ = value;
    }
}

/// The row of the state; null outside, and while an attribute `name` waits for its value.
const ConfigXmlStreamingParser::Child *ConfigXmlStreamingParser::innermost() const
{
    for (const Child &child : kChildren) {
        if (child.state == state_) {
            return &child;
        }
    }
    return nullptr;
}

void ConfigXmlStreamingParser::characters(const Str &piece)
{
    // Where there is no text of interest none is kept, such as the indentation between elements.
    if (const Child *element = innermost(); element != nullptr && element->hasText) {
        text_.append(piece);
    }
}

void ConfigXmlStreamingParser::endElement()
{
    switch (state_) {
    case State::ServerHost:
        serverHost_ = text_;
        break;
    case State::ServerUri:
        serverUri_ = text_;
        break;
    case State::SessionKey:
        sessionKey_ = text_;
        break;
    case State::CheckpointDir:
        checkpointDir_ = Pathname::fromUtf8(text_);
        break;
    case State::Stanza:
        currentStanza_ = stanzas_.end();
        break;
    case State::Param:
        storeParam();
        break;
    default:
        break;
    }
    if (const Child *element = innermost()) {
        state_ = element->parent;
    }
    text_.clear();
    path_.dirnameInPlace();
}

void ConfigXmlStreamingParser::storeParam()
{
    if (currentStanza_ != stanzas_.end() && !paramName_.empty()) {
        currentStanza_->second.set(paramName_, text_);
    }
    paramName_.clear();
}

void readXmlFromStdin(XmlStreamingParser &parser, std::FILE *in)
{
    // That `fread` waits until these are full does no harm: nothing is done with the document before its
    // end.
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
