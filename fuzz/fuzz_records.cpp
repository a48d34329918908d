#include "fuzz/fuzz_target.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/rules/registry_operations.h"
#include "pipeline/input/rules/stanza_configuration.h"
#include "testbed/record_builder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace velmox::fuzz {
namespace {

using testbed::Bytes;
using testbed::RecordFields;

/// In which processes of even numbers have an image, and whose clock jumps.
class FuzzMachine : public Machine
{
public:
    bool localTime(Timeval utc, Timeval &local) override
    {
        local = utc;
        return true;
    }
    bool processImage(std::uint32_t pid, char16_t *out) override
    {
        constexpr char16_t kImage[] = u"\\Device\\HarddiskVolume2\\A.exe";
        std::ranges::copy(kImage, out);
        return pid % 2 == 0;
    }
    std::uint32_t tickCount() const override { return ticks_ += 1000; }
    DriveMap &drives() override { return drives_; }

private:
    mutable std::uint32_t ticks_ = 0xFFFF'0000;
    DriveMap drives_{[](DriveMappings &out) { out.push_back({"c:", "\\device\\harddiskvolume2"}); }};
};

/// A C stream into memory.
class MemoryStream
{
public:
    MemoryStream() : file_(open_memstream(&text_, &size_)) {}
    ~MemoryStream()
    {
        std::fclose(file_);
        std::free(text_);
    }
    MemoryStream(const MemoryStream &) = delete;
    MemoryStream &operator=(const MemoryStream &) = delete;

    std::FILE *file() const { return file_; }
    /// As far as it was flushed.
    std::string_view text() const { return {text_, size_}; }

private:
    char *text_ = nullptr;
    std::size_t size_ = 0;
    std::FILE *file_;
};

/// What the monitor makes of buffers, one behind the other.
class Run
{
public:
    Run()
    {
        hives_.fill(u"\\REGISTRY\\USER\\S-1-5-21-1");
        insert(kRegmonFilters, {R"(HKLM\\SOFTWARE\\.*)", R"(HKLM\\SYSTEM\\CurrentControlSet\\.*)"}, "set");
        insert(kProcmonFilters, {".*"}, "create|exit|image");
        ProcessImageTable::instance().init(machine_);
    }
    ~Run() { ProcessImageTable::instance().destroy(); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    void take(const Bytes &bytes)
    {
        // Just as long, so that a byte too far is seen.
        const std::unique_ptr<unsigned char[]> buffer(new unsigned char[bytes.size()]);
        std::ranges::copy(bytes, buffer.get());
        records_.processData(buffer.get(), static_cast<std::uint32_t>(bytes.size()));
    }

    const StrVector &bodies() const { return bodies_; }
    std::string_view stream() const { return stream_.text(); }

private:
    void insert(const char *group, std::initializer_list<const char *> hives, const char *type)
    {
        Stanzas stanzas;
        for (const char *hive : hives) {
            PropertiesMap &stanza = stanzas[Str::concat("WinRegMon://", hive)];
            stanza.set("hive", hive);
            stanza.set("proc", ".*");
            stanza.set("type", type);
        }
        rules_.insert(group, makeFilterGroup(stanzas, {"main", true}, hives_, machine_.drives()));
    }

    FuzzMachine machine_;
    HiveNames hives_;
    MonitorRules rules_;
    StatusTexts statuses_;
    StrVector bodies_;
    MemoryStream stream_;
    EventEmitter emitter_{[this](const Str &text) { bodies_.push_back(text); }, stream_.file(), machine_};
    RecordProcessor records_{rules_, hives_, statuses_, emitter_, machine_};
};

/// Whether a pattern that ends in `.*` takes the rest of a path.
bool holdsNoLineEnd(std::u16string_view name)
{
    return name.find_first_of(u"\n\v\f\r\u0085\u2028\u2029") == name.npos;
}

/// The type of the event that a record comes to; empty when it is dropped.
Str expectedType(const RecordFields &record)
{
    // Of a name's length the low 16 bits count.
    const std::size_t units = (record.name.size() * sizeof(char16_t) & 0xFFFF) / sizeof(char16_t);
    const std::u16string_view name = std::u16string_view(record.name).substr(0, units);
    const Str path = Str::fromUtf16(name).lowered();
    switch (record.recordClass) {
    case kProcessRecord:
        return record.operation == kProcessCreated ? "ProcessCreated" : "ProcessExited";
    case kImageRecord:
        return "ProcessImage";
    case kRegistryRecord:
        for (const char *watched :
             {R"(\registry\machine\software\)", R"(\registry\machine\system\controlset001\)",
              R"(\registry\machine\system\currentcontrolset\)"}) {
            const RegistryOperation operation = registryOperation(record.operation);
            if (path.startsWith(watched) && holdsNoLineEnd(name) &&
                operation.word == std::string_view("set")) {
                return operation.name;
            }
        }
    }
    return {};
}

/// Names of all kinds: on watched keys, beside them, of nonsense, and longer than a record's text can be.
std::u16string nameOf(Input &input)
{
    constexpr const char16_t *kBeginnings[] = {u"\\REGISTRY\\MACHINE\\SOFTWARE\\",
                                               u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet001\\",
                                               u"\\Registry\\Machine\\System\\ControlSet0012",
                                               u"\\REGISTRY\\USER\\S-1-5-21-1\\",
                                               u"\\Device\\HarddiskVolume2\\B.exe",
                                               u""};
    std::u16string name = kBeginnings[input.choice(std::size(kBeginnings))];
    name += wideText(input.line());
    if (input.choice(16) == 15) {
        name.resize(32768 + input.choice(64), u'x');
    }
    return name;
}

std::vector<RecordFields> recordsOf(Input &input)
{
    constexpr std::uint32_t kClasses[] = {1, 1, 1, 1, 2, 2, 4, 3, 0};
    std::vector<RecordFields> records;
    while (!input.empty()) {
        RecordFields &record = records.emplace_back();
        record.recordClass = kClasses[input.choice(std::size(kClasses))];
        record.operation = record.recordClass == kProcessRecord ? input.choice(3) : input.choice(40);
        record.status = input.choice(4);
        record.pid = 10 + input.choice(6);
        record.parentPid = input.choice(5);
        record.dataType = input.choice(14);
        record.timestamp += input.choice(8) == 7 ? input.number() : input.choice(256) * 1000;
        record.name = nameOf(input);
        const std::string_view data = input.line();
        record.data.assign(data.begin(), data.end());
    }
    return records;
}

} // namespace

/// Whole records of all kinds, at odd addresses too. Nothing is read outside of them, each that is accepted
/// comes out once and in order, and the stream is the one that comes of a buffer for each record.
VELMOX_FUZZ_TARGET(records)
{
    Input input(bytes);
    const std::vector<RecordFields> records = recordsOf(input);
    std::string singly;
    {
        Run run; // there is one table of processes
        for (const RecordFields &record : records) {
            run.take(testbed::recordBytes(record));
        }
        singly = run.stream();
    }
    Run run;
    run.take(testbed::recordBuffer(records));
    std::size_t count = 0;
    for (const RecordFields &record : records) {
        if (const Str type = expectedType(record); !type.empty()) {
            require(count < run.bodies().size(), "an accepted record comes out");
            const Str &body = run.bodies()[count++];
            require(body.contains(Str::fromFormat("registry_type=\"%s\"\n", type.c_str())), "with its type");
            require(body.contains(Str::fromFormat("pid=%u\n", record.pid)), "with its process");
        }
    }
    require(count == run.bodies().size(), "nothing else comes out");
    require(run.stream() == singly, "a buffer reads as its records one by one");
    comparisons += records.size();
}

} // namespace velmox::fuzz
