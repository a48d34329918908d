#include "pipeline/input/xml/config_xml_streaming_parser.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"

namespace velmox {

/// An element that may stand inside another, and the state that it leads to.
struct ConfigXmlStreamingParser::Child
{
    State parent;
    const char *name;
    State state;
};

const ConfigXmlStreamingParser::Child ConfigXmlStreamingParser::kChildren[] = {
    {State::Input, "server_host", State::ServerHost},
    {State::Input, "server_uri", State::ServerUri},
    {State::Input, "session_key", State::SessionKey},
    {State::Input, "checkpoint_dir", State::CheckpointDir},
    {State::Input, "configuration", State::Configuration},
    {State::Configuration, "stanza", State::Stanza},
    {State::Stanza, "param", State::Param},
};

void ConfigXmlStreamingParser::startElement(const Str &name)
{
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
        currentStanza_ = stanzas_.try_emplace(value).first;
    } else if (state_ == State::ParamName) {
        state_ = State::Param;
        paramName_ = value;
    }
}

void ConfigXmlStreamingParser::characters(const Str &piece)
{
    switch (state_) {
    case State::ServerHost:
    case State::ServerUri:
    case State::SessionKey:
    case State::Param:
    case State::CheckpointDir:
        text_.append(piece);
        break;
    default:
        break;
    }
}

void ConfigXmlStreamingParser::endElement()
{
    switch (state_) {
    case State::ServerHost:
        serverHost_ = text_;
        state_ = State::Input;
        break;
    case State::ServerUri:
        serverUri_ = text_;
        state_ = State::Input;
        break;
    case State::SessionKey:
        sessionKey_ = text_;
        state_ = State::Input;
        break;
    case State::CheckpointDir:
        checkpointDir_ = Pathname::fromUtf8(text_);
        state_ = State::Input;
        break;
    case State::Configuration:
        state_ = State::Input;
        break;
    case State::Stanza:
        currentStanza_ = stanzas_.end();
        state_ = State::Configuration;
        break;
    case State::Param:
        storeParam();
        state_ = State::Stanza;
        break;
    case State::Input:
        state_ = State::Outside;
        break;
    default:
        break;
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

} // namespace velmox
