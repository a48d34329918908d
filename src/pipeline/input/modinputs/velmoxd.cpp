// velmoxd.exe: stands in for the data-collection server, as far as somebody needs who writes an input
// program or its stanzas: it prints what the program would get on standard input.

#include "conf/pages/property_pages.h"
#include "conf/pages/shared_conf_services.h"
#include "conf/store/application_manager.h"
#include "pipeline/input/check/check_command.h"
#include "pipeline/input/explain/explain_command.h"
#include "pipeline/input/modinputs/modular_inputs.h"
#include "pipeline/input/modinputs/scheme_files.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/crash/crash_log.h"
#include "util/log/logger.h"
#include "util/process/loader_info.h"
#include "util/system/console_output.h"
#include "util/system/environment.h"
#include "util/system/program_version.h"
#include "util/system/windows_api.h"
#include "util/thread/thread.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <iterator>
#include <optional>

namespace velmox {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
/// For commands whose exit code 1 is an answer, such as "there are findings": what they could not do has to
/// differ.
constexpr int kUnusable = 2;
constexpr std::size_t kMostArguments = 16;

constexpr char kMonitorScheme[] = "WinRegMon";

/// One call of the program: what stands behind the command's name, and whether `--debug` stands before it.
struct Invocation
{
    bool debug = false;
    StrVector arguments;
};

/// What velmoxd can be asked to do.
struct Command
{
    const char *name;
    /// Whole lines for the usage.
    const char *usage;
    std::size_t fewestArguments;
    std::size_t mostArguments;
    bool takesDebug;
    /// The exit code when it cannot do what it is asked for.
    int failure;
    /// Gives the exit code, or nothing when the arguments make no sense. Runs within the installation; its
    /// exceptions are told on standard error.
    std::optional<int> (*run)(const Invocation &invocation);
};

int fail(const char *text)
{
    std::fputs(text, stderr);
    return kFailure;
}

bool isAppUsable(const Str &app)
{
    return SharedConfServices::of(BundlesSetup()).applications().isUsable(app);
}

Stanzas enabledStanzas(const Str &prefix)
{
    Stanzas stanzas;
    PropertyPages::get("inputs")->enumerateStanzasWithPrefix(prefix, stanzas, DisabledMode::OnlyEnabled);
    return stanzas;
}

/// Who a script would talk to. Without a session there is no key.
ServerConnection serverConnection(const LoaderInfo &loader)
{
    const WideStr host = environmentVariable(u"COMPUTERNAME");
    return {Str::fromUtf16(host.empty() ? loader.getServerName() : host),
            Str::concat("https://127.0.0.1:", loader.getDefaultPortText()),
            {}};
}

ModularInputsHost serverHost(const LoaderInfo &loader)
{
    ModularInputsHost host;
    host.context = ProcessContext::Server;
    host.home = loader.getHome();
    const BundlesSetup setup;
    host.systemDir = setup.systemDir();
    host.appParents = {setup.appsDir(), setup.slaveAppsDir()};
    host.db = loader.getDb();
    host.server = serverConnection(loader);
    host.isAppUsable = isAppUsable;
    host.enabledStanzas = enabledStanzas;
    host.showMessage = [](const char *key, const Str &text) {
        std::fprintf(stderr, "%s: %s\n", key, text.c_str());
    };
    return host;
}

/// To the byte as a script gets it, without line ends of this system's own.
int writeOut(const Str &document)
{
    showUtf8OnConsole();
    // What was printed before keeps its line ends.
    std::fflush(stdout);
    _setmode(_fileno(stdout), _O_BINARY);
    const bool isWritten = std::fwrite(document.data(), 1, document.size(), stdout) == document.size() &&
                           std::fflush(stdout) == 0;
    return isWritten ? kSuccess : fail("Unable to write to standard output.\n");
}

std::optional<int> printModinputConfig(const Invocation &invocation)
{
    const StrVector &arguments = invocation.arguments;
    // Behind the configuration of the log, which it overrides.
    if (invocation.debug && !Logger::setThreshold("ModularInputs", LogLevel::Debug)) {
        return fail("ERROR: Unable to set log level to DEBUG.\n");
    }
    ModularInputs inputs(serverHost(*LoaderInfo::instance()));
    inputs.initializeSchemes();
    ModinputsHelperThread helper(inputs, arguments[0],
                                 arguments.size() == 2 ? std::optional<Str>(arguments[1]) : std::nullopt);
    helper.start();
    helper.join();
    if (!helper.document()) {
        return fail(Str::concat(helper.error(), "\n").c_str());
    }
    return writeOut(*helper.document());
}

/// The keys that the spec files name for the scheme, and those that the server reads in any stanza.
CheckRequest checkRequest(const Str &scheme)
{
    const BundlesSetup setup;
    CheckRequest request{scheme, {}, {}};
    for (const AppFolder &app : appFolders(setup.systemDir(), {setup.appsDir(), setup.slaveAppsDir()})) {
        if (!isAppUsable(app.name)) {
            continue;
        }
        for (const SchemeSpec &spec : readSchemeSpecs(app)) {
            // The first to define a scheme has it, as where schemes are initialised.
            if (request.schemes.insert(spec.name).second && spec.name == scheme) {
                request.keys = spec.parameters;
            }
        }
    }
    request.keys.insert(std::begin(kInternalArguments), std::end(kInternalArguments));
    return request;
}

std::optional<int> checkConfiguration(const Invocation &invocation)
{
    const std::optional<CheckOptions> options = readCheckOptions(invocation.arguments);
    if (!options) {
        return std::nullopt;
    }
    CheckRequest request = checkRequest(options->scheme);
    if (!request.schemes.contains(options->scheme)) {
        fail(Str::fromFormat("No inputs.conf.spec defines the scheme \"%s\".\n", options->scheme.c_str())
                 .c_str());
        return kUnusable;
    }
    showUtf8OnConsole();
    return runCheck(*options, std::move(request));
}

/// The stanzas as they come out of the document that the monitor gets: put into XML and read again, so that
/// what the way changes is seen here as well.
Stanzas monitoredStanzas()
{
    const Str document = InputDocument{{}, {}, enabledStanzas(stanzaPrefix(kMonitorScheme))}.toXml();
    ConfigXmlStreamingParser parser;
    parser.feed(document.data(), document.size());
    return parser.stanzas();
}

std::optional<int> writeAnswer(const std::optional<ExplainAnswer> &answer)
{
    if (!answer) {
        return std::nullopt;
    }
    showUtf8OnConsole();
    std::fputs(answer->remarks.c_str(), stderr);
    return writeOut(answer->output) == kSuccess ? answer->exitCode : kUnusable;
}

std::optional<int> printPattern(const Invocation &invocation)
{
    return writeAnswer(answerPattern(invocation.arguments));
}

std::optional<int> printExplanation(const Invocation &invocation)
{
    return writeAnswer(answerExplain(invocation.arguments, monitoredStanzas));
}

constexpr Command kCommands[] = {
    {"print-modinput-config",
     "    velmoxd [--debug] print-modinput-config scheme stanza    (script instance per stanza)\n"
     "    velmoxd [--debug] print-modinput-config scheme           (single instance)\n"
     "        such as: velmoxd print-modinput-config WinRegMon | velmox-regmon\n",
     1, 2, true, kFailure, printModinputConfig},
    {"check",
     "    velmoxd check [--json] [--strict] [--notes] [scheme]     (what is wrong with the scheme's "
     "stanzas)\n"
     "        such as: velmoxd check --strict WinRegMon\n",
     0, 4, false, kUnusable, checkConfiguration},
    {"pattern",
     "    velmoxd pattern PATH [--wow64]\n"
     "        the line of a stanza for a key with all below it; --wow64: and for what 32-bit programs get, "
     "as in\n"
     "        velmoxd pattern \"HKLM\\SOFTWARE\\Policies\" --wow64\n",
     1, 2, false, kUnusable, printPattern},
    {"explain",
     "    velmoxd explain --key PATH [--process PATH] [--operation WORD] [--value-type TYPE] [--json]\n"
     "                    [-index NAME] [-inclusive 0]\n"
     "        what becomes of an operation, and why; exit code 0 for an event, 1 for none, as in\n"
     "        velmoxd explain --key \"HKCU\\Environment\\Path\" --operation set --process "
     "C:\\Windows\\regedit.exe\n",
     2, kMostArguments, false, kUnusable, printExplanation},
};

Str usage()
{
    Str text = "Usage:\n";
    for (const Command &command : kCommands) {
        text += command.usage;
    }
    return text;
}

/// Takes `--debug` and the command's name off the front of the words; null when they name no command.
const Command *takeCommand(StrVector words, Invocation &invocation)
{
    auto word = words.begin();
    if (word != words.end() && *word == "--debug") {
        invocation.debug = true;
        ++word;
    }
    const auto named = [&](const Command &command) { return *word == command.name; };
    const Command *const command =
        word == words.end() ? std::end(kCommands) : std::ranges::find_if(kCommands, named);
    if (command == std::end(kCommands)) {
        return nullptr;
    }
    invocation.arguments.assign(word + 1, words.end());
    return command;
}

std::optional<int> runInstalled(const Command &command, const Invocation &invocation)
{
    LoaderInfo &loader = *LoaderInfo::instance();
    loader.readEnvironment();
    const Pathname home = loader.getHome();
    if (home.empty()) {
        fail("VELMOX_HOME must be set. Stopping.\n");
        return command.failure;
    }
    Logger::loadConfig(loader.getConfDir().join("log-velmoxd.cfg"), nullptr, {{"VELMOX_HOME", home.toStr()}},
                       true);
    armCrashLog(crashLogFolder());
    // No thread can be made before the main thread has its object.
    const EmptyMainThread mainThread;
    return command.run(invocation);
}

int runCommand(const Command &command, const Invocation &invocation)
{
    try {
        const std::size_t count = invocation.arguments.size();
        const bool isDebugTaken = command.takesDebug || !invocation.debug;
        if (isDebugTaken && command.fewestArguments <= count && count <= command.mostArguments) {
            if (const std::optional<int> exitCode = runInstalled(command, invocation)) {
                return *exitCode;
            }
        }
        fail(usage().c_str());
    } catch (const std::exception &exception) {
        fail(Str::fromFormat("velmoxd: %s\n", exception.what()).c_str());
    }
    return command.failure;
}

int runVelmoxd(const wchar_t *const *arguments)
{
    StrVector words;
    for (const wchar_t *const *word = arguments + 1; *word != nullptr; ++word) {
        words.push_back(Str::fromUtf16(asUtf16(*word)));
    }
    // Answered without an installation, since it may be asked of a program that was only copied somewhere.
    if (words == StrVector{"--version"}) {
        std::printf("velmoxd %s\n", ProgramVersion::ofThisProgram().text().c_str());
        return kSuccess;
    }
    if (words == StrVector{"--help"}) {
        std::fputs(usage().c_str(), stdout);
        return kSuccess;
    }
    Invocation invocation;
    const Command *const command = takeCommand(words, invocation);
    return command != nullptr ? runCommand(*command, invocation) : fail(usage().c_str());
}

} // namespace

} // namespace velmox

int wmain(int, wchar_t **arguments)
{
    return velmox::runVelmoxd(arguments);
}
