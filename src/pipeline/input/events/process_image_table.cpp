#include "pipeline/input/events/process_image_table.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>

namespace velmox {

namespace {

constexpr std::uint32_t kRetentionMilliseconds = 5000;

void copyImage(std::u16string_view image, char16_t *out, int units)
{
    if (units <= 0) {
        return;
    }
    const std::size_t length = std::min(image.size(), static_cast<std::size_t>(units) - 1);
    std::copy_n(image.data(), length, out);
    out[length] = u'\0';
}

} // namespace

ProcessImageTable &ProcessImageTable::instance()
{
    // Never destroyed: the watch of a parent may end the process while records are being processed.
    static ProcessImageTable &table = *new ProcessImageTable;
    return table;
}

void ProcessImageTable::init(Machine &machine)
{
    retired_.clear();
    machine_ = &machine;
}

void ProcessImageTable::destroy()
{
    for (auto &[pid, process] : processes_) {
        freeChain(process.live);
        freeChain(process.retired);
    }
    processes_.clear();
    ++version_;
    retired_.clear();
    machine_ = nullptr;
}

void ProcessImageTable::add(std::uint32_t pid, const char16_t *image)
{
    Entry *entry = *image == u'\0' ? nullptr : makeEntry(pid, image);
    if (entry == nullptr) {
        return;
    }
    Entry *expired = nullptr;
    {
        const std::lock_guard guard(lock_);
        try {
            Process &process = processes_[pid];
            entry->next = process.live;
            process.live = entry;
        } catch (const std::bad_alloc &) {
            std::free(entry);
            return;
        }
        // Only here: a table in which no process begins does not grow either.
        expired = takeExpired();
        ++counters_.added;
        ++version_;
    }
    // Outside the lock, which is to be held for short.
    freeChain(expired);
}

bool ProcessImageTable::lookup(std::uint32_t pid, char16_t *out, int units)
{
    copyImage(kUnknownImage, out, units);
    const std::lock_guard guard(lock_);
    const Entry *entry = find(pid);
    if (entry != nullptr) {
        copyImage(entry->image, out, units);
    }
    ++counters_.lookedUp;
    return entry != nullptr;
}

void ProcessImageTable::retire(std::uint32_t pid, char16_t *out, int units)
{
    const std::lock_guard guard(lock_);
    ++counters_.removed;
    const auto found = processes_.find(pid);
    if (found == processes_.end() || found->second.live == nullptr) {
        return;
    }
    // The newest alone. One of the same number that it hid stays, and is found again.
    Process &process = found->second;
    Entry *entry = process.live;
    retired_.emplace(machine_->tickCount() + kRetentionMilliseconds, entry);
    process.live = entry->next;
    copyImage(entry->image, out, units);
    entry->next = nullptr;
    // At the end of a chain that is short: few processes have had one number within some seconds.
    Entry **last = &process.retired;
    while (*last != nullptr) {
        last = &(*last)->next;
    }
    *last = entry;
    ++version_;
}

ProcessImageTable::Entry *ProcessImageTable::makeEntry(std::uint32_t pid, const char16_t *image)
{
    const std::u16string_view text(image);
    const std::size_t bytes = offsetof(Entry, image) + (text.size() + 1) * sizeof(char16_t);
    // Without memory the process is one that is not known, which is no failure.
    auto *entry = static_cast<Entry *>(std::malloc(bytes));
    if (entry != nullptr) {
        entry->pid = pid;
        std::copy_n(text.data(), text.size() + 1, entry->image);
    }
    return entry;
}

void ProcessImageTable::freeChain(Entry *first)
{
    while (first != nullptr) {
        Entry *next = first->next;
        std::free(first);
        first = next;
    }
}

const ProcessImageTable::Entry *ProcessImageTable::find(std::uint32_t pid) const
{
    const auto found = processes_.find(pid);
    if (found == processes_.end()) {
        return nullptr;
    }
    // A running process comes before those that have exited.
    return found->second.live != nullptr ? found->second.live : found->second.retired;
}

void ProcessImageTable::unlinkRetired(const Entry *entry)
{
    const auto found = processes_.find(entry->pid);
    Entry **link = &found->second.retired;
    while (*link != entry) {
        link = &(*link)->next;
    }
    *link = entry->next;
    // Or numbers that were given once would stay in the map for as long as the program runs.
    if (found->second.live == nullptr && found->second.retired == nullptr) {
        processes_.erase(found);
    }
}

// Every expired entry as a chain for the caller to free outside the lock.
ProcessImageTable::Entry *ProcessImageTable::takeExpired()
{
    // Ordered by their moments, so those that may go stand in front.
    const auto end = retired_.lower_bound(machine_->tickCount());
    Entry *expired = nullptr;
    for (auto at = retired_.begin(); at != end; ++at) {
        unlinkRetired(at->second);
        at->second->next = expired;
        expired = at->second;
        ++counters_.expired;
    }
    retired_.erase(retired_.begin(), end);
    return expired;
}

} // namespace velmox
