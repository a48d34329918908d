#include "pipeline/input/modinputs/scheme_merge.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "pipeline/input/diagnostics/modular_inputs_log.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace velmox {

namespace {

using Texts = Introspection::Texts;

constexpr std::string_view kDataTypes[] = {"string", "number", "boolean"};

const Str *find(const Texts &texts, const char *name)
{
    const auto found = texts.find(name);
    return found == texts.end() ? nullptr : &found->second;
}

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
    if (script.file.findFirst(CharSet("\\/:"), 0, true) != -1) {
        ModularInputsException::raise(
            "The \"script\" value from introspection can only be a file name, no directory can be specified "
            "with it.  Command line arguments are allowed.  (Specified \"%s\")",
            value->c_str());
    }
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
    for (const auto &[name, arg] : introspection.args) {
        checkArgument(name, arg, spec);
    }
    for (const auto &[name, arg] : introspection.args) {
        setArgument(name, arg, scheme.args[name]);
    }
    modularInputsLog.info("Introspection setup completed for scheme \"%s\".", scheme.name.c_str());
}

} // namespace velmox
