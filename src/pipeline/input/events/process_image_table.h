#pragma once

#include "util/thread/critical_section.h"

#include <cstdint>
#include <optional>

namespace velmox {

/// Room for an image path, in 16-bit units, in every buffer that the table's users pass.
inline constexpr int kImageUnits = 260;

/// What stands for the image of an unknown process.
inline constexpr char16_t kUnknownImage[] = u"N/A";

/// Table from process number to image path, mostly in device form.
///
/// The entry of an exited process is kept for 5 seconds, so that records that were queued before the exit and
/// are handled after it still find their image. Usable from any thread between `init` and `destroy`.
class ProcessImageTable
{
public:
    /// The one table of the process.
    static ProcessImageTable &instance();

    ProcessImageTable() = default;
    ProcessImageTable(const ProcessImageTable &) = delete;
    ProcessImageTable &operator=(const ProcessImageTable &) = delete;

    void init();
    void destroy();

    /// Puts the process in front of any older one of the same number. An empty image, or no memory, adds
    /// nothing.
    void add(std::uint32_t pid, const char16_t *image);
    /// Copies the image into `out`, cut to `units` with its NUL, else "N/A"; returns whether the process is
    /// known.
    bool lookup(std::uint32_t pid, char16_t *out, int units);
    /// Moves the process from the running to the exited ones and copies its image into `out`, which stays as
    /// it was when no such process runs.
    void retire(std::uint32_t pid, char16_t *out, int units);

private:
    struct Entry
    {
        Entry *next;
        std::uint32_t pid;
        std::uint32_t expiresAt;
        char16_t image[1];
    };

    // Counts for a debugger's eyes; nothing reads them.
    struct Counters
    {
        std::uint32_t added;
        std::uint32_t removed;
        std::uint32_t lookedUp;
        std::uint32_t expired;
    };

    static Entry *makeEntry(std::uint32_t pid, const char16_t *image);
    static void freeChain(Entry *first);
    static const Entry *find(const Entry *first, std::uint32_t pid);
    Entry *unlinkLive(std::uint32_t pid);
    Entry *takeExpired();

    // Guarded by lock_.
    Entry *live_ = nullptr;
    Entry *retiredHead_ = nullptr;
    Entry **retiredTail_ = &retiredHead_;
    Counters counters_ = {};
    std::optional<CriticalSection> lock_; // from init to destroy
};

} // namespace velmox
