#include "pipeline/input/events/process_texts.h"

#include "pipeline/input/events/process_image_table.h"

namespace velmox {

namespace {

// Few machines run as many processes, and where one does texts are made anew. Numbers without end, from a
// driver gone wrong, must not make the map grow.
constexpr std::size_t kMostTexts = 4096;

} // namespace

const ProcessText &ProcessTexts::of(std::uint32_t pid)
{
    const ProcessImageTable &table = ProcessImageTable::instance();
    if (version_ != table.version() || texts_.size() == kMostTexts) {
        texts_.clear();
        version_ = table.version();
    }
    const auto [entry, isNew] = texts_.try_emplace(pid);
    ProcessText &text = entry->second;
    if (isNew) {
        char16_t image[kImageUnits];
        if (ProcessImageTable::instance().lookup(pid, image, kImageUnits)) {
            text.folded.appendUtf16Lowered(image);
        }
        text.displayed = drives_.deviceToDrive(Str::fromUtf16(image));
    }
    return text;
}

} // namespace velmox
