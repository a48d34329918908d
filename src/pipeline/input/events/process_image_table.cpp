#include "pipeline/input/events/process_image_table.h"

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <string_view>

namespace velmox {

namespace {

constexpr DWORD kRetentionMilliseconds = 5000;

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

void ProcessImageTable::init()
{
    retiredHead_ = nullptr;
    retiredTail_ = &retiredHead_;
    lock_.emplace();
}

void ProcessImageTable::destroy()
{
    freeChain(live_);
    freeChain(retiredHead_);
    live_ = nullptr;
    retiredHead_ = nullptr;
    retiredTail_ = &retiredHead_;
    lock_.reset();
}

void ProcessImageTable::add(std::uint32_t pid, const char16_t *image)
{
    Entry *entry = *image == u'\0' ? nullptr : makeEntry(pid, image);
    if (entry == nullptr) {
        return;
    }
    Entry *expired = nullptr;
    {
        const std::lock_guard guard(*lock_);
        entry->next = live_;
        live_ = entry;
        expired = takeExpired();
        ++counters_.added;
    }
    freeChain(expired);
}

bool ProcessImageTable::lookup(std::uint32_t pid, char16_t *out, int units)
{
    copyImage(kUnknownImage, out, units);
    const std::lock_guard guard(*lock_);
    const Entry *entry = find(live_, pid);
    if (entry == nullptr) {
        entry = find(retiredHead_, pid);
    }
    if (entry != nullptr) {
        copyImage(entry->image, out, units);
    }
    ++counters_.lookedUp;
    return entry != nullptr;
}

void ProcessImageTable::retire(std::uint32_t pid, char16_t *out, int units)
{
    const std::lock_guard guard(*lock_);
    if (Entry *entry = unlinkLive(pid)) {
        copyImage(entry->image, out, units);
        entry->expiresAt = GetTickCount() + kRetentionMilliseconds;
        entry->next = nullptr;
        *retiredTail_ = entry;
        retiredTail_ = &entry->next;
    }
    ++counters_.removed;
}

ProcessImageTable::Entry *ProcessImageTable::makeEntry(std::uint32_t pid, const char16_t *image)
{
    const std::u16string_view text(image);
    const std::size_t bytes = offsetof(Entry, image) + (text.size() + 1) * sizeof(char16_t);
    auto *entry = static_cast<Entry *>(LocalAlloc(LMEM_FIXED, bytes));
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
        LocalFree(first);
        first = next;
    }
}

const ProcessImageTable::Entry *ProcessImageTable::find(const Entry *first, std::uint32_t pid)
{
    while (first != nullptr && first->pid != pid) {
        first = first->next;
    }
    return first;
}

// The newest entry of the process; one that it shadowed stays.
ProcessImageTable::Entry *ProcessImageTable::unlinkLive(std::uint32_t pid)
{
    for (Entry **link = &live_; *link != nullptr; link = &(*link)->next) {
        if ((*link)->pid == pid) {
            Entry *entry = *link;
            *link = entry->next;
            return entry;
        }
    }
    return nullptr;
}

// Every expired entry as a chain for the caller to free outside the lock.
ProcessImageTable::Entry *ProcessImageTable::takeExpired()
{
    const DWORD now = GetTickCount();
    Entry *expired = nullptr;
    Entry **link = &retiredHead_;
    while (Entry *entry = *link) {
        if (entry->expiresAt < now) {
            *link = entry->next;
            entry->next = expired;
            expired = entry;
            ++counters_.expired;
        } else {
            link = &entry->next;
        }
    }
    retiredTail_ = link;
    return expired;
}

} // namespace velmox
