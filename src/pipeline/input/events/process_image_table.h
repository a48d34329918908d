#pragma once

#include "pipeline/input/events/machine.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <unordered_map>

namespace velmox {

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

    /// `machine` has the clock; it must outlive the table's use. Neither this nor `destroy` takes the lock:
    /// nobody may use the table meanwhile.
    void init(Machine &machine = systemMachine());
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

    /// Another number than before whenever an answer of `lookup` may have changed.
    std::uint64_t version() const { return version_.load(std::memory_order_relaxed); }

private:
    struct Entry
    {
        /// The next one of the same process.
        Entry *next;
        std::uint32_t pid;
        /// As many units as the image has, with its NUL: one allocation holds the entry and the text.
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

    /// The entries of one process number. There may be several: Windows gives numbers anew, and an exit may
    /// come to be known late or never.
    struct Process
    {
        /// The newest first.
        Entry *live = nullptr;
        /// The oldest first.
        Entry *retired = nullptr;
    };

    /// Null for want of memory.
    static Entry *makeEntry(std::uint32_t pid, const char16_t *image);
    static void freeChain(Entry *first);
    const Entry *find(std::uint32_t pid) const;
    /// Takes an entry out of the chain of its number, and the number's row out of the map if nothing is
    /// left.
    void unlinkRetired(const Entry *entry);
    Entry *takeExpired();

    std::atomic<std::uint64_t> version_ = 0;
    // Guarded by lock_. A process without entries has no row.
    std::unordered_map<std::uint32_t, Process> processes_;
    // By the tick count after which they may go. In a queue those that have to stay would be stepped over
    // one by one for each process that begins: a backlog with thousands of exits drained at a quarter of the
    // usual rate.
    //
    // The count begins anew after 49.7 days. Entries of that moment go too early, or stay until it has come
    // round; at worst an event shows "N/A" for a process that has just ended.
    std::multimap<std::uint32_t, Entry *> retired_;
    Counters counters_ = {};
    std::mutex lock_;
    Machine *machine_ = nullptr; // from init to destroy
};

} // namespace velmox
