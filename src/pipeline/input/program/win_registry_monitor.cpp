#include "pipeline/input/program/win_registry_monitor.h"

#include "pipeline/input/baseline/baseline_scan.h"
#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/driver_service.h"
#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/system/windows_api.h"

#include <new>
#include <utility>

namespace velmox {

namespace {

// How long a stop can take to be seen while nothing comes.
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
    trace::monitor(trace::Message::MonitorMade, "WinRegistryMonitor::WinRegistryMonitor");
}

WinRegistryMonitor::~WinRegistryMonitor()
{
    stopFlag_.set();
    // After an exception out of `run` the worker still reads into what is freed here.
    if (workerThread_ != nullptr && workerDone_.isValid()) {
        WaitForSingleObject(workerDone_.get(), INFINITE);
    }
    trace::monitor(trace::Message::MonitorGone, "WinRegistryMonitor::~WinRegistryMonitor");
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
    trace::monitor(trace::Message::InitEntered, kFunction);
    if (!findStatusMapping() || !readConfiguration()) {
        return false;
    }
    checkpoint_.setDirectory(checkpointDir_.concat("\\"));
    // The driver comes last: without stanzas nothing is installed.
    if (!StartDriver()) {
        trace::monitor(trace::Message::DriverNotReady, kFunction);
        return false;
    }
    if (!setRegEvtTypesToMonitor()) {
        trace::monitor(trace::Message::FilterNotSet, kFunction);
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
        // First: stanzas are translated by these names as they are read.
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
    return device_.openOrInstall(driverName_, driverImagePath_);
}

bool WinRegistryMonitor::setRegEvtTypesToMonitor()
{
    constexpr char kFunction[] = "WinRegistryMonitor::setRegEvtTypesToMonitor";
    trace::monitor(trace::Message::SetFilterEntered, kFunction);
    const MonitorFilterGroup *group = rules_.group(kRegmonFilters);
    if (group == nullptr) {
        trace::monitor(trace::Message::NoGroupForFilter, kFunction);
        return false;
    }
    // Told once: for another configuration the server starts the program anew.
    const MonitorFilterConfig block = makeFilterBlock(*group, hiveNames_, registryOperationMasks());
    if (!device_.setFilter(block)) {
        const DWORD error = GetLastError();
        trace::monitor(trace::Message::FilterRefused, kFunction);
        monitorLog.error("%s: Unable to set driver configuration: '(%d)%m'", kFunction,
                         static_cast<int>(error));
        return false;
    }
    monitorLog.info(
        "%s: Driver filter configured successfully: masks values are events=0x%x status=0x%x ops=0x%x",
        kFunction, block.events, block.status, block.ops);
    trace::monitor(trace::Message::FilterSet, kFunction);
    return true;
}

bool WinRegistryMonitor::run()
{
    constexpr char kFunction[] = "WinRegistryMonitor::run";
    trace::monitor(trace::Message::RunEntered, kFunction);
    bool started = false;
    workerDone_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (workerDone_.isValid()) {
        // Processes that run already are entered before the first record can name one.
        ProcessImageTable::instance().init();
        ProcessEnumeration();
        started = StartMonitorWorker();
        if (started) {
            serveQueue();
        } else {
            trace::monitor(trace::Message::WorkerNotStarted, kFunction);
            monitorLog.error("%s: Failed to start Registry Monitor: device driver has not been installed",
                             kFunction);
        }
    } else {
        trace::monitor(trace::Message::NoWorkerEvent, kFunction);
    }
    tearDown();
    return started;
}

void WinRegistryMonitor::ProcessEnumeration()
{
    enumerateProcesses(
        [](std::uint32_t pid, const char16_t *image) { ProcessImageTable::instance().add(pid, image); });
}

bool WinRegistryMonitor::StartMonitorWorker()
{
    constexpr char kFunction[] = "WinRegistryMonitor::StartMonitorWorker";
    trace::monitor(trace::Message::StartWorkerEntered, kFunction);
    if (rules_.group(kRegmonFilters) == nullptr) {
        trace::monitor(trace::Message::NothingToMonitor, kFunction);
        return false;
    }
    trace::monitor(trace::Message::BaselineBegins, kFunction);
    if (!establishBaseline()) {
        trace::monitor(trace::Message::BaselineFailed, kFunction);
        monitorLog.error("%s: Unable to establish baseline for the registry keys that are being monitored",
                         kFunction);
        return false;
    }
    trace::monitor(trace::Message::BaselineEnds, kFunction);
    auto *thread = new (std::nothrow) WinRegistryMonitorThread(*this);
    if (thread == nullptr) {
        const DWORD error = GetLastError();
        trace::monitor(trace::Message::NoWorkerThread, kFunction);
        monitorLog.error("%s: Failed to create the Registry monitor worker thread: '(%d)%m'", kFunction,
                         static_cast<int>(error));
        return false;
    }
    // The baseline stands on the stream before the first change, so the worker begins only now; what happens
    // meanwhile waits in the driver.
    thread->start();
    // From here on there is an end to wait for.
    workerThread_ = thread;
    trace::monitor(trace::Message::WorkerStarted, kFunction);
    return true;
}

bool WinRegistryMonitor::establishBaseline()
{
    return BaselineScan(rules_, hiveNames_, checkpoint_, emitter_, stopFlag_).establishBaseline();
}

void WinRegistryMonitor::serveQueue()
{
    constexpr char kFunction[] = "WinRegistryMonitor::run";
    trace::monitor(trace::Message::ServingBegins, kFunction);
    while (!stopFlag_.isSet()) {
        EventBuffer buffer;
        // The wait is short so that a stop is seen soon; what is queued by then is dropped unread.
        if (!queue_.get(buffer, kQueueMilliseconds)) {
            continue;
        }
        if (buffer.bytes == 0) {
            trace::monitor(trace::Message::EmptyBuffer, kFunction);
        } else {
            records_.processData(buffer.data.get(), buffer.bytes);
        }
    }
    trace::monitor(trace::Message::ServingEnds, kFunction);
}

// The table goes before the worker has ended, which is right: the worker does not use it.
void WinRegistryMonitor::tearDown()
{
    stopFlag_.set();
    if (workerDone_.isValid()) {
        ProcessImageTable::instance().destroy();
        // Without a worker nobody ever sets the event: the process then stays, silent, until its parent ends
        // it, and the reason stands in the log.
        WaitForSingleObject(workerDone_.get(), INFINITE);
        workerDone_.reset();
    }
    trace::monitor(trace::Message::WorkerHasEnded, "WinRegistryMonitor::run");
    // The driver cannot stop while this process holds its device.
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
        trace::monitor(trace::Message::StartNotRecorded, kFunction);
    }
}

void WinRegistryMonitor::MonitorWorker()
{
    constexpr char kFunction[] = "WinRegistryMonitor::MonitorWorker";
    recordStart();
    DriverReader(device_, queue_, stopFlag_).run();
    monitorLog.info("%s: Monitor Worker Exiting...", kFunction);
    trace::monitor(trace::Message::WorkerEnds, kFunction);
    // After a fatal error as after a stop, the end of the worker ends the program.
    stopFlag_.set();
    // Or the main thread would see the flag only when its wait is over.
    queue_.wakeTaker();
    // The very last: who waits for it takes away what this thread uses.
    SetEvent(workerDone_.get());
}

} // namespace velmox
