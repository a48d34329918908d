#pragma once

#include "pipeline/input/modinputs/input_document.h"
#include "pipeline/input/modinputs/introspection.h"
#include "pipeline/input/modinputs/scheme_files.h"
#include "pipeline/input/modinputs/script_run.h"
#include "util/thread/thread.h"

#include <functional>
#include <optional>
#include <vector>

namespace velmox {

/// What kind of process this is. Only the server, or what serves its REST requests, runs input programs.
enum class ProcessContext
{
    Server,
    Rest,
    Other
};

/// What ModularInputs needs of the process around it. Handed in, so that the room knows neither where the
/// process keeps its folders nor how it talks to users.
struct ModularInputsHost
{
    ProcessContext context = ProcessContext::Other;
    Pathname home;
    /// The system's folder of configuration, and the folders of which each folder is an app.
    Pathname systemDir;
    std::vector<Pathname> appParents;
    Pathname db;
    ServerConnection server;
    /// Whether an app is there and enabled. Schemes of others are passed over.
    std::function<bool(const Str &app)> isAppUsable;
    /// The enabled stanzas of inputs.conf whose names begin with a prefix. May throw.
    std::function<Stanzas(const Str &prefix)> enabledStanzas;
    /// Shows the user a message; `key` says what kind it is.
    std::function<void(const char *key, const Str &text)> showMessage;
    ScriptLimits limits;
};

/// The server's side of input programs: finds the schemes that are installed, learns from their scripts what
/// they are, has proposed configurations judged, and puts together what a script gets when it is started.
///
/// For one thread at a time.
class ModularInputs
{
public:
    using IntrospectXmlStreamingParser = velmox::IntrospectXmlStreamingParser;

    static constexpr char kInitFailureKey[] = "MessageHandler:MOD_INPUT_INIT";

    explicit ModularInputs(ModularInputsHost host) : host_(std::move(host)) {}

    /// Replaces the known schemes by those that can be initialised. What fails is logged and shown to the
    /// user, and the others go on. Runs one script for each scheme, one after the other.
    void initializeSchemes();
    /// Null if there is no such scheme. Good until the schemes are initialised again.
    const Scheme *find(const Str &name) const;

    ScriptCommand locateScript(const AppFolder &app, const Str &scheme,
                               const ScriptCandidates &candidates) const;
    /// Asks the script what it is. Throws ModularInputsException.
    Introspection introspect(const Str &scheme, const ScriptCommand &script) const;
    /// Has the script judge stanzas, if its scheme says that it does so. Throws ModularInputsException when
    /// it refuses them, with its reason, or cannot be run.
    void validate(const Scheme &scheme, const Stanzas &stanzaConfiguration) const;

    /// What the scheme's script gets when it is started: all enabled stanzas, or the one that is named in
    /// full. Nothing, with the reason in the log, when there is no such stanza or the gathering failed.
    std::optional<InputDocument> gatherConfiguration(const Scheme &scheme,
                                                     const std::optional<Str> &stanza) const;

private:
    /// Scripts of schemes are run by the server and by what serves its requests, and by nothing else.
    bool isAllowedHere() const;
    void initializeUnlessKnown(const SchemeSpec &spec, std::set<Str> &known);
    void reportFailure(const SchemeSpec &spec, const std::exception &exception) const;
    /// Nothing for a scheme of the system's that this installation has no script for.
    std::optional<Scheme> initialize(const SchemeSpec &spec) const;
    std::optional<InputDocument> gather(const Scheme &scheme, const std::optional<Str> &stanza) const;
    InputDocument document(const Str &scheme, Stanzas stanzas) const;

    ModularInputsHost host_;
    std::map<Str, Scheme> schemes_;
};

/// Does the work of `print-modinput-config`: puts together what a scheme's script gets on standard input. A
/// thread, so that the server can go on meanwhile.
///
/// Start it, join it, then ask. `inputs` must have its schemes, and no one else may use it meanwhile.
class ModinputsHelperThread : public Thread
{
public:
    /// `stanza` is `scheme://name` or the name alone; none for a scheme with one instance for all stanzas.
    ModinputsHelperThread(const ModularInputs &inputs, const Str &scheme, const std::optional<Str> &stanza);
    ~ModinputsHelperThread() noexcept(false) override { joinOrCancel(); }

    /// The document, or nothing.
    const std::optional<Str> &document() const { return document_; }
    /// What was wrong if there is no document.
    const Str &error() const { return error_; }

private:
    void main() override;
    void printConfiguration();
    /// With the scheme in front, if it was named without.
    std::optional<Str> fullStanzaName() const;

    const ModularInputs &inputs_;
    const Str scheme_;
    const std::optional<Str> stanza_;
    std::optional<Str> document_;
    Str error_;
};

} // namespace velmox
