#pragma once

#include "pipeline/input/baseline/baseline_scan.h"
#include "pipeline/input/driver/buffer_queue.h"
#include "pipeline/input/driver/device_channel.h"
#include "pipeline/input/driver/shared_state.h"
#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/events/status_texts.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"
#include "pipeline/input/rules/stanza_configuration.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/text/pathname.h"
#include "util/thread/thread.h"

// The room `program`: the monitor as a program. This object joins the parts of the rooms below; `main.cpp`
// gives the order of start-up and the exit codes.
namespace velmox {

class WinRegistryMonitor;

/// The worker: reads from the driver until the monitor stops.
class WinRegistryMonitorThread : public Thread
{
public:
    explicit WinRegistryMonitorThread(WinRegistryMonitor &monitor)
        : Thread("WinRegistryMonitorThread"), monitor_(monitor)
    {
    }

protected:
    void main() override;

private:
    WinRegistryMonitor &monitor_;
};

/// The one object of the running program: owns the device, the configuration read at start and the event
/// stream, and joins the two threads.
///
/// The worker thread only pulls buffers out of the driver and queues them; the main thread filters, renders
/// and writes. Everything but `stop` and `MonitorWorker` belongs to the main thread. One run is one
/// configuration.
class WinRegistryMonitor
{
public:
    /// `index` is for stanzas that name none, empty meaning "default"; `inclusive` is the sense of the
    /// filters.
    WinRegistryMonitor(Str index, bool inclusive);
    /// Closes the event stream, if an event was ever written.
    virtual ~WinRegistryMonitor();
    WinRegistryMonitor(const WinRegistryMonitor &) = delete;
    WinRegistryMonitor &operator=(const WinRegistryMonitor &) = delete;

    bool isSafeMode() const;
    const char16_t *driverName() const { return driverName_; }

    /// Reads the configuration and makes the driver ready. False, with the reason logged, when there is
    /// nothing to run.
    bool init();

    /// Runs until stopped. False only when it could not begin. Does not return at all when the worker could
    /// not be started; the parent watch then ends the process.
    bool run();

    /// Asks both threads to end; from any thread.
    void stop() { stopFlag_.set(); }

    /// The body of the worker thread.
    void MonitorWorker();

private:
    /// Where the stanzas come from: all of standard input. The result lives in the parser.
    virtual const Stanzas &readInputStanzas(ConfigXmlStreamingParser &parser);
    /// Called after each event has been written, with its body text.
    virtual void eventWritten(const Str &text);

    bool findStatusMapping();
    bool readConfiguration();
    bool configure(const char *filterFileName);
    bool StartDriver();
    bool setRegEvtTypesToMonitor();

    void ProcessEnumeration();
    bool StartMonitorWorker();
    bool establishBaseline();
    /// The main thread's work, until the stop flag is set.
    void serveQueue();
    /// Notes the time of the start in its checkpoint file; on the worker thread.
    void recordStart() const;
    /// Waits for the worker, closes the device and removes the driver.
    void tearDown();

    DeviceChannel device_;
    const char16_t *const driverName_;
    const Pathname driverImagePath_;
    StanzaDefaults defaults_;
    Pathname checkpointDir_;
    BaselineCheckPoint checkpoint_;
    // Not deleted before the process ends: its last act is to set `workerDone_`, behind which it still runs
    // for a moment.
    WinRegistryMonitorThread *workerThread_ = nullptr;
    BufferQueue queue_;
    StopFlag stopFlag_;
    // Manual-reset; the worker sets it as its last act, and waiting for it stands in for a join.
    KernelHandle workerDone_;
    // From here on only the main thread's. Each may refer to those above it, and goes before them; the
    // emitter closes the stream when it goes.
    HiveNames hiveNames_;
    MonitorRules rules_;
    StatusTexts statusTexts_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

} // namespace velmox
