#include "pipeline/input/modinputs/modular_inputs.h"

#include "pipeline/input/diagnostics/diagnostics.h"

namespace velmox {

namespace {

/// Internal arguments are passed over: the server knows them without any spec file. They stay among the
/// parameters, so that a script that declares one is told what it is.
void checkParameters(const SchemeSpec &spec)
{
    for (const Str &parameter : spec.parameters) {
        if (isInternalArgument(parameter)) {
            modularInputsLog.debug("Ignoring parameter \"%s\" from the spec file: it is an internal arg that "
                                   "gets handled in a special way.",
                                   parameter.c_str());
        } else if (parameter == "name") {
            ModularInputsException::raise(
                "Parameter \"name\" serves a special purpose, and it should not be specified in the spec "
                "file.  Please choose a different parameter name.");
        }
    }
}

/// `request` begins with a blank.
Str commandLine(const ScriptCommand &script, const char *request)
{
    return Str::concat(script.commandLine(), request);
}

/// Runs the script and returns its exit status.
int validateBy(const Scheme &scheme, const InputDocument &document, const ScriptLimits &limits,
               ScriptValidationXmlStreamingParser &answer)
{
    const Str label = Str::concat("Argument validation for scheme=", scheme.name);
    try {
        return runScript(
            label, commandLine(scheme.script, " --validate-arguments"), document.toXml(),
            [&answer](std::string_view piece) { answer.feed(piece.data(), piece.size()); }, limits);
    } catch (const ModularInputsException &) {
        // The reason has been logged where it was thrown; the user is told where to look.
        ModularInputsException::raise("Unable to run external validation for scheme=\"%s\".  Please see "
                                      "velmoxd.log for more details.",
                                      scheme.name.c_str());
    }
}

/// The scheme, when the stanza that was named or not named fits its script.
const Scheme &checkedScheme(const ModularInputs &inputs, const Str &name, bool hasStanza)
{
    const Scheme *scheme = inputs.find(name);
    if (!scheme) {
        ModularInputsException::raise("Scheme \"%s\" is not initialized.", name.c_str());
    }
    if (!scheme->useSingleInstance && !hasStanza) {
        ModularInputsException::raise("Stanza name must be specified.");
    }
    if (scheme->useSingleInstance && hasStanza) {
        ModularInputsException::raise(
            "Stanza name should not be specified when \"use_single_instance\" is set "
            "to true in introspection.");
    }
    return *scheme;
}

} // namespace

void ModularInputs::initializeSchemes()
{
    if (!isAllowedHere()) {
        modularInputsLog.info("Not running in velmoxd or REST context: Will not initialize modular inputs.");
        return;
    }
    // The system's folder comes first and apps in the order of their names: the first to define a scheme has
    // it.
    schemes_.clear();
    std::set<Str> known;
    for (const AppFolder &app : appFolders(host_.systemDir, host_.appParents)) {
        // The files of a disabled app are there, but its schemes are not.
        if (host_.isAppUsable(app.name)) {
            for (const SchemeSpec &spec : readSchemeSpecs(app)) {
                initializeUnlessKnown(spec, known);
            }
        }
    }
}

bool ModularInputs::isAllowedHere() const
{
    return host_.context == ProcessContext::Server || host_.context == ProcessContext::Rest;
}

/// `known` holds the names met before, also those of schemes that failed.
void ModularInputs::initializeUnlessKnown(const SchemeSpec &spec, std::set<Str> &known)
{
    modularInputsLog.debug("===================================================");
    modularInputsLog.debug("Found scheme=\"%s\".", spec.name.c_str());
    if (!known.insert(spec.name).second) {
        modularInputsLog.debug("Scheme \"%s\" already defined.  Skipping.", spec.name.c_str());
        return;
    }
    try {
        if (std::optional<Scheme> scheme = initialize(spec)) {
            schemes_.emplace(spec.name, std::move(*scheme));
        }
    } catch (const std::exception &exception) {
        // One broken app must not cost the others.
        reportFailure(spec, exception);
    }
}

void ModularInputs::reportFailure(const SchemeSpec &spec, const std::exception &exception) const
{
    Str text = Str::fromFormat("Unable to initialize modular input \"%s\" ", spec.name.c_str());
    if (spec.app.isSystem()) {
        text << " defined in the system context: ";
    } else {
        text << " defined inside the app \"" << spec.app.name << "\": ";
    }
    text << exception.what();
    modularInputsLog.error("%s", text.c_str());
    host_.showMessage(kInitFailureKey, text);
}

std::optional<Scheme> ModularInputs::initialize(const SchemeSpec &spec) const
{
    checkParameters(spec);
    Scheme scheme;
    scheme.name = spec.name;
    // A script bears its scheme's name. Asked what it is, it may name another one that does the work.
    scheme.script = locateScript(spec.app, spec.name, ScriptCandidates({spec.name, {}}));
    // The system's spec files describe schemes that an installation may lack; an app brings its own script.
    if (scheme.script.empty()) {
        if (!spec.app.isSystem()) {
            ModularInputsException::raise("Unable to locate suitable script for introspection.");
        }
        modularInputsLog.debug("Unable to find suitable script for scheme \"%s\" defined in the system "
                               "context.  This scheme will not be initialized.",
                               spec.name.c_str());
        return std::nullopt;
    }
    const auto findScript = [&](const ScriptName &script) {
        return locateScript(spec.app, spec.name, ScriptCandidates(script));
    };
    mergeIntrospection(introspect(spec.name, scheme.script), spec, findScript, scheme);
    return scheme;
}

const Scheme *ModularInputs::find(const Str &name) const
{
    const auto found = schemes_.find(name);
    return found == schemes_.end() ? nullptr : &found->second;
}

ScriptCommand ModularInputs::locateScript(const AppFolder &app, const Str &scheme,
                                          const ScriptCandidates &candidates) const
{
    return velmox::locateScript(app, scheme, candidates, host_.home);
}

Introspection ModularInputs::introspect(const Str &scheme, const ScriptCommand &script) const
{
    const Str label = Str::concat("Introspecting scheme=", scheme);
    IntrospectXmlStreamingParser parser;
    const int status = runScript(
        label, commandLine(script, " --scheme"), {},
        [&parser](std::string_view piece) { parser.feed(piece.data(), piece.size()); }, host_.limits);
    if (status != 0) {
        raiseScriptFailed(label, Str::fromFormat("exited with status %d", status));
    }
    // No fault: a script that says nothing of itself may run with what its spec file says.
    if (!parser.result().found) {
        modularInputsLog.warn("%s: the script printed no <scheme> element, so all its settings are defaults.",
                              label.c_str());
    }
    return parser.result();
}

void ModularInputs::validate(const Scheme &scheme, const Stanzas &stanzaConfiguration) const
{
    if (!scheme.useExternalValidation) {
        return;
    }
    ScriptValidationXmlStreamingParser answer;
    const int status = validateBy(scheme, document(scheme.name, stanzaConfiguration), host_.limits, answer);
    if (status == 0) {
        return;
    }
    const Str reason = answer.message().empty()
                           ? Str::fromFormat("The script returned with exit status %d.", status)
                           : answer.message();
    // Not by `raise`: a refusal is the user's fault, no error of the server.
    const Str text =
        Str::fromFormat("Validation for scheme=%s failed: %s", scheme.name.c_str(), reason.c_str());
    modularInputsLog.warn("%s", text.c_str());
    throw ModularInputsException(text);
}

std::optional<InputDocument> ModularInputs::gatherConfiguration(const Scheme &scheme,
                                                                const std::optional<Str> &stanza) const
{
    try {
        return gather(scheme, stanza);
    } catch (const std::exception &exception) {
        modularInputsLog.error("Error generating configuration arguments for scheme \"%s\"",
                               scheme.name.c_str());
        modularInputsLog.error(exception);
        return std::nullopt;
    }
}

std::optional<InputDocument> ModularInputs::gather(const Scheme &scheme,
                                                   const std::optional<Str> &stanza) const
{
    Stanzas stanzas = host_.enabledStanzas(stanzaPrefix(scheme.name));
    if (stanzas.empty()) {
        modularInputsLog.info("No stanzas found for scheme \"%s\" in inputs.conf at script (re)start.",
                              scheme.name.c_str());
        return std::nullopt;
    }
    if (stanza) {
        const auto found = stanzas.find(*stanza);
        if (found == stanzas.end()) {
            modularInputsLog.debug("Unable to find stanza \"%s\" in inputs.conf.  This is normal for "
                                   "use_single_instance=true modular inputs.",
                                   stanza->c_str());
            return std::nullopt;
        }
        stanzas = Stanzas{*found};
    }
    return document(scheme.name, std::move(stanzas));
}

InputDocument ModularInputs::document(const Str &scheme, Stanzas stanzas) const
{
    // The folder is made along the way: the script may use it at once.
    return {host_.server, checkpointFolder(host_.db, scheme), std::move(stanzas)};
}

ModinputsHelperThread::ModinputsHelperThread(const ModularInputs &inputs, const Str &scheme,
                                             const std::optional<Str> &stanza)
    // The store matches paths with patterns of its settings.
    : Thread(kMainStackSize, "ModinputsHelperThread"), inputs_(inputs), scheme_(scheme), stanza_(stanza)
{
}

void ModinputsHelperThread::main()
{
    try {
        printConfiguration();
    } catch (const std::exception &exception) {
        // An exception that left the thread would end the process.
        error_ = exception.what();
    }
}

void ModinputsHelperThread::printConfiguration()
{
    const Scheme &scheme = checkedScheme(inputs_, scheme_, stanza_.has_value());
    const std::optional<Str> stanza = fullStanzaName();
    if (const std::optional<InputDocument> document = inputs_.gatherConfiguration(scheme, stanza)) {
        document_ = document->toXml();
    } else if (stanza) {
        error_.format("No configuration for stanza \"%s\": it is not in inputs.conf or disabled, or the log "
                      "says what is wrong.",
                      stanza->c_str());
    } else {
        error_.format(
            "No configuration for scheme \"%s\": inputs.conf has no enabled stanza of it, or the log "
            "says what is wrong.",
            scheme_.c_str());
    }
}

std::optional<Str> ModinputsHelperThread::fullStanzaName() const
{
    const Str prefix = stanzaPrefix(scheme_);
    if (!stanza_ || stanza_->startsWith(prefix.view())) {
        return stanza_;
    }
    return Str::concat(prefix, *stanza_);
}

} // namespace velmox
