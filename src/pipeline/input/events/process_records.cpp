#include "pipeline/input/events/process_records.h"

#include "pipeline/input/diagnostics/trace.h"

#include <algorithm>

namespace velmox {

namespace {

// The name in traces, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::processData";
// No stanza of today fills this group, so nothing of processes goes out; their records still feed the table.
const Str kGroup = kProcmonFilters;

bool namesProgram(std::u16string_view path)
{
    constexpr std::u16string_view kEnding = u".exe";
    const auto folded = [](char16_t unit) { return unit >= u'A' && unit <= u'Z' ? unit + 32 : +unit; };
    return path.size() > kEnding.size() &&
           std::ranges::equal(path.substr(path.size() - kEnding.size()), kEnding, {}, folded);
}

} // namespace

ProcessRecords::KnownImage::KnownImage(std::uint32_t pid)
    : isKnown(ProcessImageTable::instance().lookup(pid, text, kImageUnits))
{
}

Str ProcessRecords::displayed(const char16_t *image)
{
    return machine_.drives().deviceToDrive(Str::fromUtf16(image));
}

bool ProcessRecords::passes(const Str &process, const char *type)
{
    MonitorFilterGroup *group = rules_.group(kGroup);
    return group != nullptr && group->passes({process.lowered(), {}, type});
}

void ProcessRecords::takeImage(RecordAtHand &record)
{
    KnownImage image(record.fields().pid());
    learnImage(record, image);
    const Str process = Str::fromUtf16(image.text);
    trace::monitor(trace::Message::ImageRecord, kFunction, process);
    // Both the program and the image that was loaded into it must pass as the process.
    if (!passes(process, "image") || !passes(record.keyPath(), "image")) {
        trace::monitor(trace::Message::ImageDropped, kFunction);
        return;
    }
    // The driver has cut the path short.
    const char *suffix = record.fields().status() != 0 ? "..." : "";
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(process, stanza);
    Str body;
    body.format("pid=%d\nprocess_image=\"%s\"\nimage_path=\"%s%s\"\nregistry_type=\"ProcessImage\"\n\n",
                static_cast<int>(record.fields().pid()), displayed(image.text).c_str(),
                machine_.drives().deviceToDrive(record.nameText()).c_str(), suffix);
    trace::monitor(trace::Message::ImageEvent, kFunction, body);
    emitter_.emitEvent(body, index, stanza, clock_.time());
}

// A process that began before the driver could see it, or whose image could not be read, becomes known by the
// first program mapped into it.
void ProcessRecords::learnImage(const RecordAtHand &record, KnownImage &image)
{
    if (image.isKnown || !namesProgram(record.name())) {
        return;
    }
    const std::size_t units = record.name().copy(image.text, kImageUnits - 1);
    image.text[units] = u'\0';
    ProcessImageTable::instance().add(record.fields().pid(), image.text);
}

void ProcessRecords::takeProcess(RecordAtHand &record)
{
    trace::monitor(trace::Message::ProcessRecord, kFunction);
    if (record.fields().operation() == kProcessCreated) {
        onCreated(record);
    } else {
        onExited(record);
    }
}

void ProcessRecords::onCreated(RecordAtHand &record)
{
    trace::monitor(trace::Message::CreationRecord, kFunction);
    const MonitorRecord &fields = record.fields();
    // The parent's image is the one the table held under the new process's own number: of an earlier process
    // with that number, else "N/A". Readers know the field in this sense.
    const KnownImage earlier(fields.pid());
    char16_t newImage[kImageUnits];
    // The record does not tell it, so the system is asked, which can answer while the process runs.
    if (machine_.processImage(fields.pid(), newImage)) {
        ProcessImageTable::instance().add(fields.pid(), newImage);
    } else {
        std::copy_n(kUnknownImage, std::size(kUnknownImage), newImage);
    }
    const Str createdImage = Str::fromUtf16(newImage);
    if (!passes(createdImage, "create")) {
        trace::monitor(trace::Message::CreationDropped, kFunction);
        return;
    }
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(createdImage, stanza);
    Str body;
    body.format("parent_pid=%d\nparent_process_image=\"%s\"\npid=%d\nprocess_image=\"%s\"\n"
                "registry_type=\"ProcessCreated\"\nuser=\"%s\"\n\n",
                static_cast<int>(fields.parentPid()), displayed(earlier.text).c_str(),
                static_cast<int>(fields.pid()), displayed(newImage).c_str(), record.nameText().c_str());
    emitter_.emitEvent(body, index, stanza, clock_.time());
    trace::monitor(trace::Message::CreationWritten, kFunction);
}

void ProcessRecords::onExited(RecordAtHand &record)
{
    const MonitorRecord &fields = record.fields();
    KnownImage image(fields.pid());
    const Str process = image.isKnown ? Str::fromUtf16(image.text) : Str();
    // Also where nothing goes out: records that are still to come find it for some seconds.
    ProcessImageTable::instance().retire(fields.pid(), image.text, kImageUnits);
    trace::monitor(trace::Message::ExitRecord, kFunction,
                   {image.text, std::char_traits<char16_t>::length(image.text) + 1});
    if (!passes(process, "exit")) {
        trace::monitor(trace::Message::ExitDropped, kFunction);
        return;
    }
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(process, stanza);
    // It stands in both places, also in that of the parent's image: so readers know the event.
    const Str imageText = displayed(image.text);
    Str body;
    body.format("parent_pid=%d\nparent_process_image=\"%s\"\npid=%d\nprocess_image=\"%s\"\n"
                "registry_type=\"ProcessExited\"\n\n",
                static_cast<int>(fields.parentPid()), imageText.c_str(), static_cast<int>(fields.pid()),
                imageText.c_str());
    trace::monitor(trace::Message::ExitEvent, kFunction, body);
    emitter_.emitEvent(body, index, stanza, clock_.time());
}

} // namespace velmox
