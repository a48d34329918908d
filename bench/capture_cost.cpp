#include "bench/capture_cost.h"

#include "capture/file/capture_reader.h"

namespace velmox::bench {

namespace {

/// The size of the monitor's first reads, and so of most blocks of a capture.
constexpr std::size_t kReadBytes = 8192;

/// Hands over whole records by the read.
template <class Take>
void split(std::span<const unsigned char> records, Take take)
{
    while (!records.empty()) {
        std::size_t bytes = 0;
        while (const std::size_t length = wholeRecordBytes(records.subspan(bytes))) {
            if (bytes + length > kReadBytes) {
                break;
            }
            bytes += length;
        }
        take(records.first(bytes));
        records = records.subspan(bytes);
    }
}

} // namespace

RecordedRecords::RecordedRecords()
    : sink_(FileStar::tempFile()), writer_([this](std::string_view bytes) {
          sink_.write(bytes.data(), bytes.size());
          sink_.flush();
      }),
      recording_(systemMachine(), statusTexts_, writer_)
{
}

void RecordedRecords::take(std::span<const unsigned char> records)
{
    std::rewind(sink_.get());
    split(records, [this](std::span<const unsigned char> read) { recording_.take(read, 0); });
}

ReplayedRecords::ReplayedRecords(std::span<const unsigned char> records, const Stanzas &stanzas)
    : sink_(FileStar::tempFile())
{
    CaptureWriter writer([this](std::string_view bytes) { capture_ += bytes; });
    CaptureStart start;
    start.filter = {kAllEvents, kStatusMask, 127, kUserHives | kMachineHives};
    start.userPath = u"\\REGISTRY\\USER\\S-1-5-21-7";
    writer.write(start);
    StatusTexts statusTexts;
    Recording recording(systemMachine(), statusTexts, writer);
    split(records, [&recording](std::span<const unsigned char> read) { recording.take(read, 0); });
    recording.end(0);
    replay_ = std::make_unique<CaptureReplay>(start, stanzas, StanzaDefaults{"main", true}, sink_.get());
}

void ReplayedRecords::take()
{
    std::rewind(sink_.get());
    std::string_view rest = capture_;
    CaptureReader reader([&rest](char *out, std::size_t wanted) {
        const std::size_t count = rest.copy(out, wanted);
        rest.remove_prefix(count);
        return count;
    });
    for (CapturedBuffer buffer; reader.next(buffer);) {
        replay_->take(buffer);
    }
}

} // namespace velmox::bench
