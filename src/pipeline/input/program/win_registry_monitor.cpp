#include "pipeline/input/program/win_registry_monitor.h"

#include "pipeline/input/baseline/baseline_scan.h"
#include "pipeline/input/diagnostics/monitor_log.h"
#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/driver_service.h"
#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "pipeline/input/xml/xml_stdin.h"
#include "util/system/library_routine.h"

#include <new>
#include <utility>

namespace velmox {

namespace {

using trace::Kind;

constexpr DWORD kQueueMilliseconds = 500;

} // namespace

void WinRegistryMonitorThread::main()
{
    monitor_.MonitorWorker();
}

WinRegistryMonitor::WinRegistryMonitor(Str index, bool inclusive)
    : driverName_(chooseDriverName()),
      driverImagePath_(driverPath(driverName_)), defaults_{index.empty() ? Str("default") : std::move(index),
                                                           inclusive},
      emitter_([this](const Str &text) { eventWritten(text); }),
      records_(rules_, hiveNames_, statusTexts_, emitter_)
{
    trace::monitor(Kind::Entry, 10, "WinRegistryMonitor::WinRegistryMonitor");
}

WinRegistryMonitor::~WinRegistryMonitor()
{
    stopFlag_.set();
    // After an exception out of `run` the worker still reads into what is freed here.
    if (workerThread_ != nullptr && workerDone_.isValid()) {
        WaitForSingleObject(workerDone_.get(), INFINITE);
    }
    trace::monitor(Kind::Entry, 11, "WinRegistryMonitor::~WinRegistryMonitor");
}

bool WinRegistryMonitor::isSafeMode() const
{
    return velmox::isSafeMode();
}

const Stanzas &WinRegistryMonitor::readInputStanzas(ConfigXmlStreamingParser &parser)
{
    readXmlFromStdin(parser);
    return parser.stanzas();
}

void WinRegistryMonitor::eventWritten(const Str &) {}

bool WinRegistryMonitor::init()
{
    constexpr char kFunction[] = "WinRegistryMonitor::init";
    trace::monitor(Kind::Entry, 25, kFunction);
    if (!findStatusMapping() || !readConfiguration()) {
        return false;
    }
    checkpoint_.setDirectory(checkpointDir_.concat("\\"));
    if (!StartDriver()) {
        trace::monitor(Kind::Error, 29, kFunction);
        return false;
    }
    eventTypeMasks_ = registryOperationMasks();
    if (!setRegEvtTypesToMonitor()) {
        trace::monitor(Kind::Error, 30, kFunction);
        monitorLog.error("%s: Failed to set event type class configuration to monitor", kFunction);
        return false;
    }
    return true;
}

// False without ntdll.dll; without the routine the status of each event stays "N/A".
bool WinRegistryMonitor::findStatusMapping()
{
    constexpr char kFunction[] = "WinRegistryMonitor::init";
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    if (ntdll == nullptr) {
        monitorLog.error("%s: Failed to load ntdll.dll: '%m'", kFunction);
        return false;
    }
    StatusTexts::StatusToError mapping = nullptr;
    if (!findRoutine(ntdll, "RtlNtStatusToDosError", mapping)) {
        monitorLog.error("%s: Failed to get RtlNtStatusToDosError function pointer from ntdll.dll: '%m'",
                         kFunction);
    }
    statusTexts_.setMapping(mapping);
    return true;
}

bool WinRegistryMonitor::readConfiguration()
{
    if (!configure(kRegmonFilters)) {
        monitorLog.debug("No enabled entries were found for procmon or regmon.");
        return false;
    }
    return true;
}

bool WinRegistryMonitor::configure(const char *filterFileName)
{
    constexpr char kFunction[] = "WinRegistryMonitor::configure";
    try {
        hiveNames_.initHiveNameKeyMap();
        ConfigXmlStreamingParser parser;
        const auto &stanzas = readInputStanzas(parser);
        checkpointDir_ = parser.checkpointDirectory();
        std::unique_ptr<MonitorFilterGroup> group = makeFilterGroup(stanzas, defaults_, hiveNames_);
        if (!group) {
            return false;
        }
        if (!rules_.insert(filterFileName, std::move(group))) {
            monitorLog.error("%s: failed to insert config='%s' into map", kFunction, filterFileName);
            return false;
        }
        return true;
    } catch (const std::exception &exception) {
        monitorLog.error("%s: Failed to get configuration settings: '%s'", kFunction, exception.what());
        return false;
    }
}

bool WinRegistryMonitor::StartDriver()
{
    constexpr char kFunction[] = "WinRegistryMonitor::StartDriver";
    if (!device_.open()) {
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND) {
            monitorLog.error("%s: CreateFile failed ! error: '(%d)%m'", kFunction, static_cast<int>(error));
            return false;
        }
        if (!manageDriver(driverName_, driverImagePath_.c_str(), kInstallAndStart)) {
            monitorLog.error("%s: Unable to install driver.", kFunction);
            manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove);
            return false;
        }
        if (!device_.open()) {
            monitorLog.error("%s: CreateFile failed: '%m'", kFunction);
            return false;
        }
    }
    trace::monitor(Kind::Information, 79, kFunction);
    return true;
}

bool WinRegistryMonitor::setRegEvtTypesToMonitor()
{
    constexpr char kFunction[] = "WinRegistryMonitor::setRegEvtTypesToMonitor";
    trace::monitor(Kind::Entry, 80, kFunction);
    const MonitorFilterGroup *group = rules_.group(kRegmonFilters);
    if (group == nullptr) {
        trace::monitor(Kind::Error, 81, kFunction);
        return false;
    }
    const MonitorFilterConfig block = makeFilterBlock(*group, hiveNames_, eventTypeMasks_);
    if (!device_.setFilter(block)) {
        const DWORD error = GetLastError();
        trace::monitor(Kind::Error, 84, kFunction);
        monitorLog.error("%s: Unable to set driver configuration: '(%d)%m'", kFunction,
                         static_cast<int>(error));
        return false;
    }
    monitorLog.info(
        "%s: Driver filter configured successfully: masks values are events=0x%x status=0x%x ops=0x%x",
        kFunction, block.events, block.status, block.ops);
    trace::monitor(Kind::Information, 85, kFunction);
    return true;
}

bool WinRegistryMonitor::run()
{
    constexpr char kFunction[] = "WinRegistryMonitor::run";
    trace::monitor(Kind::Entry, 31, kFunction);
    bool processTableReady = false;
    bool started = false;
    if (createWorkerDone()) {
        ProcessImageTable::instance().init();
        processTableReady = true;
        ProcessEnumeration();
        started = StartMonitorWorker();
        if (started) {
            serveQueue();
        } else {
            trace::monitor(Kind::Error, 34, kFunction);
            monitorLog.error("%s: Failed to start Registry Monitor: device driver has not been installed",
                             kFunction);
        }
    }
    tearDown(processTableReady);
    return started;
}

bool WinRegistryMonitor::createWorkerDone()
{
    constexpr char kFunction[] = "WinRegistryMonitor::run";
    workerDone_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!workerDone_.isValid()) {
        trace::monitor(Kind::Error, 33, kFunction);
        return false;
    }
    return true;
}

void WinRegistryMonitor::ProcessEnumeration()
{
    enumerateProcesses(ProcessImageTable::instance());
}

bool WinRegistryMonitor::StartMonitorWorker()
{
    constexpr char kFunction[] = "WinRegistryMonitor::StartMonitorWorker";
    trace::monitor(Kind::Entry, 54, kFunction);
    if (rules_.group(kRegmonFilters) == nullptr) {
        trace::monitor(Kind::Error, 55, kFunction);
        return false;
    }
    trace::monitor(Kind::Information, 56, kFunction);
    if (!establishBaseline()) {
        trace::monitor(Kind::Error, 57, kFunction);
        monitorLog.error("%s: Unable to establish baseline for the registry keys that are being monitored",
                         kFunction);
        return false;
    }
    trace::monitor(Kind::Information, 58, kFunction);
    auto *thread = new (std::nothrow) WinRegistryMonitorThread(*this);
    if (thread == nullptr) {
        const DWORD error = GetLastError();
        trace::monitor(Kind::Error, 59, kFunction);
        monitorLog.error("%s: Failed to create the Registry monitor worker thread: '(%d)%m'", kFunction,
                         static_cast<int>(error));
        return false;
    }
    thread->start();
    // From here on there is an end to wait for.
    workerThread_ = thread;
    trace::monitor(Kind::Information, 60, kFunction);
    return true;
}

bool WinRegistryMonitor::establishBaseline()
{
    return BaselineScan(rules_, hiveNames_, checkpoint_, emitter_, stopFlag_).establishBaseline();
}

void WinRegistryMonitor::serveQueue()
{
    constexpr char kFunction[] = "WinRegistryMonitor::run";
    trace::monitor(Kind::Information, 35, kFunction);
    while (!stopFlag_.isSet()) {
        EventBuffer buffer;
        if (!queue_.get(buffer, kQueueMilliseconds)) {
            continue;
        }
        if (buffer.bytes == 0) {
            trace::monitor(Kind::Information, 36, kFunction);
        } else {
            records_.processData(buffer.data.get(), buffer.bytes);
        }
    }
    trace::monitor(Kind::Information, 37, kFunction);
}

void WinRegistryMonitor::tearDown(bool processTableReady)
{
    stopFlag_.set();
    if (processTableReady) {
        ProcessImageTable::instance().destroy();
    }
    if (workerDone_.isValid()) {
        // Without a worker nobody ever sets the event: the process then stays, silent, until its parent ends
        // it, and the reason stands in the log.
        WaitForSingleObject(workerDone_.get(), INFINITE);
        workerDone_.reset();
    }
    trace::monitor(Kind::Information, 38, "WinRegistryMonitor::run");
    if (device_.isOpen()) {
        device_.close();
        manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove);
    }
}

// Once per run: the interval between baselines counts from the last start, whether or not that start walked
// anything.
void WinRegistryMonitor::recordStart() const
{
    constexpr char kFunction[] = "WinRegistryMonitor::MonitorWorker";
    if (!checkpoint_.setLastTimeRun()) {
        monitorLog.error("%s: Failed to set checkpoint '%s'", kFunction, kLastTimeRun);
        trace::monitor(Kind::Error, 62, kFunction);
    }
}

void WinRegistryMonitor::MonitorWorker()
{
    constexpr char kFunction[] = "WinRegistryMonitor::MonitorWorker";
    recordStart();
    DriverReader(device_, queue_, stopFlag_).run();
    monitorLog.info("%s: Monitor Worker Exiting...", kFunction);
    trace::monitor(Kind::Information, 74, kFunction);
    stopFlag_.set();
    queue_.wakeTaker();
    SetEvent(workerDone_.get());
}

} // namespace velmox
