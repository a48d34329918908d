#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/program/command_line.h"
#include "pipeline/input/program/sysmon_migrator.h"
#include "pipeline/input/program/win_registry_monitor.h"
#include "util/crash/crash_log.h"
#include "util/process/loader_info.h"
#include "util/process/parent_watch.h"
#include "util/text/base_exception.h"
#include "util/thread/thread.h"

#include <cstdio>

namespace velmox {

namespace {

// Read by the shutdown callback, on whatever thread it comes; not cleared when the monitor is deleted.
WinRegistryMonitor *theMonitor = nullptr;

constexpr char kFunction[] = "run_regmon";
constexpr int kFailure = -1;
constexpr int kRefusedBySafeMode = ERROR_NOT_SAFEBOOT_SERVICE;
static_assert(kRefusedBySafeMode == 1084);

void shutdown_callback(void *)
{
    if (theMonitor == nullptr) {
        return;
    }
    trace::entryPoint(trace::EntryPointMessage::StopRequested);
    theMonitor->stop();
}

ParentWatchMode watchMode(const CommandLine &options)
{
    if (options.runUntilPidDies) {
        return ParentWatchMode::RunUntilProcessDies;
    }
    return options.dieWhenPidDies ? ParentWatchMode::DieWhenProcessDies
                                  : ParentWatchMode::ServerByEnvironment;
}

bool refuseSafeMode()
{
    if (!theMonitor->isSafeMode()) {
        return false;
    }
    monitorLog.error(
        "The '%s' driver cannot be started in safe mode. Error %d - This service cannot be started in "
        "Safe Mode .",
        Str::fromUtf16(theMonitor->driverName()).c_str(), kRefusedBySafeMode);
    trace::entryPoint(trace::EntryPointMessage::SafeModeRefused, kFunction);
    return true;
}

int monitorUntilStopped(const CommandLine &options)
{
    theMonitor = new WinRegistryMonitor(options.index, options.inclusive);
    if (refuseSafeMode()) {
        return kFailure;
    }
    // Armed before standard input is read, which can take as long as the server likes.
    waitForParentOrSignal(shutdown_callback, theMonitor, watchMode(options), options.parentPid);
    // Without anything to monitor the exit is a silent success: the reason stands in the log, and the server
    // must not start the program again because of, say, a configuration without enabled entries.
    if (!theMonitor->init()) {
        return 0;
    }
    if (!theMonitor->run()) {
        monitorLog.error("%s: Failed to start Registry Monitor", kFunction);
        trace::entryPoint(trace::EntryPointMessage::RunFailed, kFunction);
        return kFailure;
    }
    return 0;
}

int runInstalled(const wchar_t *const *arguments)
{
    LoaderInfo *loader = LoaderInfo::instance();
    if (loader == nullptr) {
        std::fputs("Fail to run Registry Monitor: error getting LoaderInfo instance", stderr);
        return kFailure;
    }
    // Until the log is configured failures go to standard error by hand: there is no place for a log yet.
    loader->readEnvironment();
    const Pathname home = loader->getHome();
    if (home.empty()) {
        std::fputs("VELMOX_HOME must be set. Stopping.\n", stderr);
        return kFailure;
    }
    Logger::loadConfig(loader->getConfDir().join("log-cmdline.cfg"), nullptr, {{"VELMOX_HOME", home.toStr()}},
                       true);
    armCrashLog(crashLogFolder());
    // No thread can be made before the main thread has its object.
    const EmptyMainThread mainThread;
    CommandLine options;
    // A call that makes no sense, which is something else than a run that failed.
    if (!scanCommandLine(arguments, options)) {
        return 1;
    }
    if (options.migrateSysmon) {
        SysmonMigrator().migrate();
        if (options.migrateOnly) {
            std::fputs("sysmon migration complete.", stdout);
            return 0;
        }
    }
    return monitorUntilStopped(options);
}

int run_regmon(const wchar_t *const *arguments)
{
    int exitCode = 0;
    try {
        exitCode = runInstalled(arguments);
    } catch (const std::exception &exception) {
        monitorLog.error("%s: Fail to run Registry Monitor: '%s'", kFunction, exception.what());
        exitCode = kFailure;
    }
    // Ends the stream. The watch stays armed, so a last request to stop can still meet the deleted object;
    // the process is about to end by itself then.
    delete theMonitor;
    return exitCode;
}

} // namespace

} // namespace velmox

int wmain(int, wchar_t **arguments)
{
    // First, so that a session sees all of the run, and last to go.
    const velmox::trace::Provider provider;
    velmox::trace::entryPoint(velmox::trace::EntryPointMessage::Started);
    return velmox::run_regmon(arguments);
}
