#include "pipeline/input/modinputs/modinputs_helper_thread.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"

namespace velmox {

namespace {

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

ModinputsHelperThread::ModinputsHelperThread(const ModularInputs &inputs, const Str &scheme,
                                             const std::optional<Str> &stanza)
    : Thread("ModinputsHelperThread"), inputs_(inputs), scheme_(scheme), stanza_(stanza)
{
}

void ModinputsHelperThread::main()
{
    try {
        printConfiguration();
    } catch (const std::exception &exception) {
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
