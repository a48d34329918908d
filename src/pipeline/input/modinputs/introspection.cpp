#include "pipeline/input/modinputs/introspection.h"

#include "pipeline/input/diagnostics/diagnostics.h"

#include <algorithm>
#include <iterator>

namespace velmox {

namespace {

using Texts = Introspection::Texts;

constexpr char kScheme[] = "scheme";
constexpr char kEndpoint[] = "scheme/endpoint";
constexpr char kArg[] = "scheme/endpoint/args/arg";

/// Whether the white space around a text is part of it: it is written for people, or may be white space
/// itself.
bool isTakenWhole(const Str &name)
{
    return name == "title" || name == "description" || name == "list_delimiter";
}

constexpr char kMessage[] = "error/message";

constexpr std::string_view kDataTypes[] = {"string", "number", "boolean"};

const Str *find(const Texts &texts, const char *name)
{
    const auto found = texts.find(name);
    return found == texts.end() ? nullptr : &found->second;
}

/// Each setting is logged as it is taken, which is how authors of scripts see what came of their
/// description.
void setText(const Texts &texts, const char *name, Str &out)
{
    if (const Str *text = find(texts, name)) {
        modularInputsLog.debug("Setting \"%s\" to \"%s\".", name, text->c_str());
        out = *text;
    }
}

void setBool(const Texts &texts, const char *name, bool &out)
{
    const Str *text = find(texts, name);
    if (!text) {
        return;
    }
    if (!text->toBool(out)) {
        ModularInputsException::raise(
            "Introspection parameter \"%s\" contained invalid data: \"%s\".  Expected a true or false value.",
            name, text->c_str());
    }
    modularInputsLog.debug("Setting \"%s\" to %s.", name, out ? "true" : "false");
}

/// The names are compared as they are: `XML` is no mode.
void setStreamingMode(const Texts &texts, Scheme &scheme)
{
    // Judged before it is taken, so that a mode that is refused is not logged as set.
    Str mode = scheme.streamingMode == StreamingMode::Xml ? "xml" : "simple";
    if (const Str *text = find(texts, "streaming_mode"); text && *text != "simple" && *text != "xml") {
        ModularInputsException::raise(
            "When introspecting the scheme \"%s\", we found an invalid \"streaming_mode\" value specified "
            "(\"%s\").  The only valid values are \"simple\" and \"xml\".",
            scheme.name.c_str(), text->c_str());
    }
    setText(texts, "streaming_mode", mode);
    scheme.streamingMode = mode == "xml" ? StreamingMode::Xml : StreamingMode::Simple;
}

void setScript(const Texts &texts, const ScriptFinder &findScript, Scheme &scheme)
{
    const Str *value = find(texts, "script");
    if (!value) {
        return;
    }
    const ScriptName script = ScriptName::fromText(*value);
    // An app may name scripts of its own folders and of the installation's, and no other program.
    if (script.file.findFirst(CharSet("\\/:"), 0, true) != -1) {
        ModularInputsException::raise(
            "The \"script\" value from introspection can only be a file name, no directory can be specified "
            "with it.  Command line arguments are allowed.  (Specified \"%s\")",
            value->c_str());
    }
    // Looked for now, so that a wrong name fails the scheme and not each later start of the script.
    const ScriptCommand found = findScript(script);
    if (found.empty()) {
        ModularInputsException::raise("The \"script\" value from introspection (\"%s\") did not refer to a "
                                      "suitable script on the file system.",
                                      value->c_str());
    }
    scheme.script = found;
    modularInputsLog.debug("Setting \"%s\" to \"%s\".", "script", found.text().c_str());
}

void checkArgument(const Str &name, const Texts &texts, const SchemeSpec &spec)
{
    // The spec file is what administrators read; a setting that is not in it would be nowhere described.
    if (!spec.parameters.contains(name)) {
        ModularInputsException::raise(
            "Endpoint argument \"%s\" has not been defined in the inputs.conf.spec file.  All args defined "
            "via introspection must also be defined in the spec file.",
            name.c_str());
    }
    if (isInternalArgument(name)) {
        ModularInputsException::raise("Endpoint argument \"%s\" is an internal argument that is handled "
                                      "specially within Velmox, and it should not be defined via "
                                      "introspection.",
                                      name.c_str());
    }
    const Str *type = find(texts, "data_type");
    if (type &&
        std::find(std::begin(kDataTypes), std::end(kDataTypes), type->view()) == std::end(kDataTypes)) {
        ModularInputsException::raise("The \"%s\" value from introspection (\"%s\") did not refer to a "
                                      "proper data type.  The following data types are supported: "
                                      "\"string\", \"number\" and \"boolean\".",
                                      "data_type", type->c_str());
    }
}

void setArgument(const Str &name, const Texts &texts, SchemeArgument &argument)
{
    modularInputsLog.info("Endpoint argument settings for \"%s\":", name.c_str());
    setText(texts, "title", argument.title);
    setText(texts, "description", argument.description);
    setBool(texts, "required_on_create", argument.required_on_create);
    setBool(texts, "required_on_edit", argument.required_on_edit);
    setText(texts, "validation", argument.validation);
    setText(texts, "list_delimiter", argument.list_delimiter);
    setText(texts, "data_type", argument.data_type);
}

} // namespace

bool ElementPath::enter(const Str &name)
{
    const bool isElement = !name.startsWith("?") && !name.startsWith("!");
    if (isElement) {
        path_ << (empty() ? "" : "/");
        starts_.push_back(path_.size());
        path_ << name;
    }
    return isElement;
}

void ElementPath::leave()
{
    if (!empty()) {
        path_.resize(parent().size());
        starts_.pop_back();
    }
}

void IntrospectXmlStreamingParser::startElement(const Str &name)
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

void IntrospectXmlStreamingParser::attributeValue(const Str &value)
{
    // An argument is named by its attribute. Other elements may have one of the name too, which means
    // nothing.
    if (isNameAttribute_ && path_.view() == kArg) {
        argName_ = value;
    }
}

void IntrospectXmlStreamingParser::endElement()
{
    if (path_.empty()) {
        return;
    }
    // An element with others inside has no text of its own, whatever stands between them.
    if (path_.view() == kArg) {
        endArgument();
    } else if (isLeaf_) {
        store(path_.parent());
    }
    isLeaf_ = false;
    path_.leave();
}

void IntrospectXmlStreamingParser::endArgument()
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

void IntrospectXmlStreamingParser::store(std::string_view path)
{
    const Str name(path_.name());
    if (!isTakenWhole(name)) {
        text_.trim(kWhiteSpace);
    }
    // An empty element is as good as none: it leaves the default.
    if (text_.empty()) {
        return;
    }
    if (path == kScheme) {
        modularInputsLog.debug("XML scheme path \"%s\": \"%s\" -> \"%s\"", kScheme, name.c_str(),
                               text_.c_str());
        result_.scheme[name] = text_;
    } else if (path == kEndpoint) {
        // Nothing of this is used; the author of the script sees in the log that it was read.
        modularInputsLog.debug("XML endpoint path \"%s\": \"%s\" -> \"%s\"", kEndpoint, name.c_str(),
                               text_.c_str());
    } else if (path == kArg) {
        modularInputsLog.debug("XML arg path  \"%s\": \"%s\" -> \"%s\"", kArg, name.c_str(), text_.c_str());
        arg_[name] = text_;
    }
}

void ScriptValidationXmlStreamingParser::characters(const Str &piece)
{
    if (path_.view() == kMessage) {
        text_.append(piece);
    }
}

void ScriptValidationXmlStreamingParser::endElement()
{
    if (path_.view() == kMessage) {
        // An empty message says nothing, so the next one may speak.
        if (message_.empty()) {
            message_ = text_.trimmed(kWhiteSpace);
        }
        text_.clear();
    }
    path_.leave();
}

void mergeIntrospection(const Introspection &introspection, const SchemeSpec &spec,
                        const ScriptFinder &findScript, Scheme &scheme)
{
    modularInputsLog.debug("Setting up values from introspection for scheme \"%s\".", scheme.name.c_str());
    const Texts &texts = introspection.scheme;
    setText(texts, "title", scheme.title);
    setText(texts, "description", scheme.description);
    setBool(texts, "use_single_instance", scheme.useSingleInstance);
    setBool(texts, "use_external_validation", scheme.useExternalValidation);
    setStreamingMode(texts, scheme);
    setScript(texts, findScript, scheme);
    // All are checked before the first is taken, so that none is logged as set for a scheme
    // that is refused.
    for (const auto &[name, arg] : introspection.args) {
        checkArgument(name, arg, spec);
    }
    for (const auto &[name, arg] : introspection.args) {
        setArgument(name, arg, scheme.args[name]);
    }
    modularInputsLog.info("Introspection setup completed for scheme \"%s\".", scheme.name.c_str());
}

} // namespace velmox
