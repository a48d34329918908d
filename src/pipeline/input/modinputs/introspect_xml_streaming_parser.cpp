#include "pipeline/input/modinputs/introspect_xml_streaming_parser.h"

#include "pipeline/input/diagnostics/modular_inputs_log.h"

namespace velmox {

namespace {

constexpr char kScheme[] = "scheme";
constexpr char kEndpoint[] = "scheme/endpoint";
constexpr char kArg[] = "scheme/endpoint/args/arg";

/// Whether the white space around a text is part of it: it is written for people, or may be white space
/// itself.
bool isTakenWhole(const Str &name)
{
    return name == "title" || name == "description" || name == "list_delimiter";
}

} // namespace

void ModularInputs::IntrospectXmlStreamingParser::startElement(const Str &name)
{
    if (!path_.enter(name)) {
        return;
    }
    text_.clear();
    isLeaf_ = true;
    const std::string_view path = path_.view();
    if (path == kScheme) {
        result_.found = true;
    } else if (path == kArg) {
        argName_.clear();
        arg_.clear();
    }
}

void ModularInputs::IntrospectXmlStreamingParser::attributeValue(const Str &value)
{
    if (isNameAttribute_ && path_.view() == kArg) {
        argName_ = value;
    }
}

void ModularInputs::IntrospectXmlStreamingParser::endElement()
{
    if (path_.empty()) {
        return;
    }
    if (path_.view() == kArg) {
        endArgument();
    } else if (isLeaf_) {
        store(path_.parent());
    }
    isLeaf_ = false;
    path_.leave();
}

void ModularInputs::IntrospectXmlStreamingParser::endArgument()
{
    if (argName_.empty()) {
        modularInputsLog.warn(
            "Specification at path=\"%s\" will be ignored, because the arg name has not been specified.",
            kArg);
        return;
    }
    result_.args[argName_] = std::move(arg_);
    arg_.clear();
}

void ModularInputs::IntrospectXmlStreamingParser::store(std::string_view path)
{
    const Str name(path_.name());
    if (!isTakenWhole(name)) {
        text_.trim(kWhiteSpace);
    }
    if (text_.empty()) {
        return;
    }
    if (path == kScheme) {
        modularInputsLog.debug("XML scheme path \"%s\": \"%s\" -> \"%s\"", kScheme, name.c_str(),
                               text_.c_str());
        result_.scheme[name] = text_;
    } else if (path == kEndpoint) {
        modularInputsLog.debug("XML endpoint path \"%s\": \"%s\" -> \"%s\"", kEndpoint, name.c_str(),
                               text_.c_str());
    } else if (path == kArg) {
        modularInputsLog.debug("XML arg path  \"%s\": \"%s\" -> \"%s\"", kArg, name.c_str(), text_.c_str());
        arg_[name] = text_;
    }
}

} // namespace velmox
