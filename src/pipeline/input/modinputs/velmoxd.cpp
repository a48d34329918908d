#include "conf/pages/property_pages.h"
#include "conf/store/application_manager.h"
#include "conf/store/shared_conf_services.h"
#include "pipeline/input/modinputs/modinputs_helper_thread.h"
#include "pipeline/input/modinputs/velmoxd_command_line.h"
#include "util/crash/crash_log.h"
#include "util/log/logger.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"
#include "util/system/program_version.h"
#include "util/system/windows_api.h"
#include "util/thread/thread.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace velmox {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

int fail(const char *text)
{
    std::fputs(text, stderr);
    return kFailure;
}

bool isAppUsable(const Str &app)
{
    return BundlesSetup().shared().applications().isUsable(app);
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
    std::fflush(stdout);
    _setmode(_fileno(stdout), _O_BINARY);
    const bool isWritten = std::fwrite(document.data(), 1, document.size(), stdout) == document.size() &&
                           std::fflush(stdout) == 0;
    return isWritten ? kSuccess : fail("Unable to write to standard output.\n");
}

int printModinputConfig(const VelmoxdCommandLine &options, const LoaderInfo &loader)
{
    if (options.debug && !Logger::setThreshold("ModularInputs", LogLevel::Debug)) {
        return fail("ERROR: Unable to set log level to DEBUG.\n");
    }
    ModularInputs inputs(serverHost(loader));
    inputs.initializeSchemes();
    ModinputsHelperThread helper(inputs, options.scheme, options.stanza);
    helper.start();
    helper.join();
    if (!helper.document()) {
        return fail(Str::concat(helper.error(), "\n").c_str());
    }
    return writeOut(*helper.document());
}

int runInstalled(const VelmoxdCommandLine &options)
{
    LoaderInfo &loader = *LoaderInfo::instance();
    loader.readEnvironment();
    const Pathname home = loader.getHome();
    if (home.empty()) {
        return fail("VELMOX_HOME must be set. Stopping.\n");
    }
    Logger::loadConfig(loader.getConfDir().join("log-velmoxd.cfg"), nullptr, {{"VELMOX_HOME", home.toStr()}},
                       true);
    armCrashLog(crashLogFolder());
    const EmptyMainThread mainThread;
    return printModinputConfig(options, loader);
}

int runVelmoxd(const wchar_t *const *arguments)
{
    StrVector words;
    for (const wchar_t *const *word = arguments + 1; *word != nullptr; ++word) {
        words.push_back(Str::fromUtf16(asUtf16(*word)));
    }
    if (words == StrVector{"--version"}) {
        std::printf("velmoxd %s\n", ProgramVersion::ofThisProgram().text().c_str());
        return kSuccess;
    }
    const std::optional<VelmoxdCommandLine> options = readVelmoxdCommandLine(words);
    if (!options) {
        return fail(kVelmoxdUsage);
    }
    try {
        return runInstalled(*options);
    } catch (const std::exception &exception) {
        return fail(Str::fromFormat("velmoxd: %s\n", exception.what()).c_str());
    }
}

} // namespace

} // namespace velmox

int wmain(int, wchar_t **arguments)
{
    return velmox::runVelmoxd(arguments);
}
