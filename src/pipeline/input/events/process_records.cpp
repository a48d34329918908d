#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/rules/drive_map.h"

#include <algorithm>
#include <cwchar>

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::processData";
const Str kGroup = kProcmonFilters;
const Str kNoKey;

bool namesProgram(std::u16string_view path)
{
    constexpr std::size_t kEnding = 4;
    return path.size() > kEnding &&
           _wcsnicmp(asWide(path.data() + path.size() - kEnding), L".exe", kEnding) == 0;
}

} // namespace

void RecordProcessor::onImageRecord(const MonitorRecord &record)
{
    learnImage(record);
    processImage_ = Str::fromUtf16(imageBuffer_);
    trace::monitor(trace::Kind::Information, 51, kFunction, processImage_);
    // Both the program and the image that was loaded into it must pass as the process.
    if (!passes(kGroup, processImage_, kNoKey, "image") || !passes(kGroup, keyPath_, kNoKey, "image")) {
        trace::monitor(trace::Kind::Information, 52, kFunction);
        return;
    }
    const char *suffix = record.status() != 0 ? "..." : "";
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(processImage_, stanza);
    Str body;
    body.format("pid=%d\nprocess_image=\"%s\"\nimage_path=\"%s%s\"\nregistry_type=\"ProcessImage\"\n\n",
                static_cast<int>(record.pid()), displayed(imageBuffer_).c_str(),
                deviceToDrive(rawPath_).c_str(), suffix);
    trace::monitor(trace::Kind::Information, 53, kFunction, body);
    emitter_.emitEvent(body, index, stanza, eventTime_);
}

// A process that began before the driver could see it, or whose image could not be read, becomes known by the
// first program mapped into it.
void RecordProcessor::learnImage(const MonitorRecord &record)
{
    if (imageKnown_ || !namesProgram(name_)) {
        return;
    }
    const std::size_t units = name_.copy(imageBuffer_, kImageUnits - 1);
    imageBuffer_[units] = u'\0';
    ProcessImageTable::instance().add(record.pid(), imageBuffer_);
}

void RecordProcessor::onProcessRecord(const MonitorRecord &record)
{
    trace::monitor(trace::Kind::Information, 44, kFunction);
    if (record.operation() == kProcessCreated) {
        onProcessCreated(record);
    } else {
        onProcessExited(record);
    }
}

void RecordProcessor::onProcessCreated(const MonitorRecord &record)
{
    trace::monitor(trace::Kind::Information, 45, kFunction);
    char16_t newImage[kImageUnits];
    if (queryProcessImage(record.pid(), newImage)) {
        ProcessImageTable::instance().add(record.pid(), newImage);
    } else {
        std::copy_n(kUnknownImage, std::size(kUnknownImage), newImage);
    }
    const Str createdImage = Str::fromUtf16(newImage);
    if (!passes(kGroup, createdImage, kNoKey, "create")) {
        trace::monitor(trace::Kind::Information, 46, kFunction);
        return;
    }
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(createdImage, stanza);
    // The parent's image is the one the table held under the new process's own number: of an earlier process
    // with that number, else "N/A". Readers know the field in this sense.
    Str body;
    body.format("parent_pid=%d\nparent_process_image=\"%s\"\npid=%d\nprocess_image=\"%s\"\n"
                "registry_type=\"ProcessCreated\"\nuser=\"%s\"\n\n",
                static_cast<int>(record.parentPid()), displayed(imageBuffer_).c_str(),
                static_cast<int>(record.pid()), displayed(newImage).c_str(), rawPath_.c_str());
    emitter_.emitEvent(body, index, stanza, eventTime_);
    trace::monitor(trace::Kind::Information, 47, kFunction);
}

void RecordProcessor::onProcessExited(const MonitorRecord &record)
{
    ProcessImageTable::instance().retire(record.pid(), imageBuffer_, kImageUnits);
    trace::monitor(trace::Kind::Information, 48, kFunction,
                   {imageBuffer_, std::char_traits<char16_t>::length(imageBuffer_) + 1});
    if (!passes(kGroup, processImage_, kNoKey, "exit")) {
        trace::monitor(trace::Kind::Information, 49, kFunction);
        return;
    }
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForProcmon(processImage_, stanza);
    const Str imageText = displayed(imageBuffer_);
    Str body;
    body.format("parent_pid=%d\nparent_process_image=\"%s\"\npid=%d\nprocess_image=\"%s\"\n"
                "registry_type=\"ProcessExited\"\n\n",
                static_cast<int>(record.parentPid()), imageText.c_str(), static_cast<int>(record.pid()),
                imageText.c_str());
    trace::monitor(trace::Kind::Information, 50, kFunction, body);
    emitter_.emitEvent(body, index, stanza, eventTime_);
}

} // namespace velmox
