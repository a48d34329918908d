#include "testbed/handle_count.h"

#include <cstring>
#include <vector>

/// The system headers' own form takes an enumeration that lacks the class that is asked for here.
extern "C" __declspec(dllimport) LONG __stdcall NtQuerySystemInformation(int, void *, ULONG, ULONG *);

namespace velmox::testbed {

namespace {

/// SYSTEM_HANDLE_TABLE_ENTRY_INFO_EX. In front of the first entry stand their count and a reserved word.
struct HandleEntry
{
    void *object;
    ULONG_PTR processId;
    ULONG_PTR rest[3];
};
static_assert(sizeof(HandleEntry) == 40);

constexpr int kExtendedHandleInformation = 64;
constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);

} // namespace

unsigned handleCount(DWORD pid)
{
    std::vector<ULONG_PTR> words(8192);
    const auto bytes = [&] { return static_cast<ULONG>(words.size() * sizeof words[0]); };
    while (NtQuerySystemInformation(kExtendedHandleInformation, words.data(), bytes(), nullptr) ==
           kLengthMismatch) {
        words.resize(2 * words.size());
    }
    unsigned count = 0;
    for (std::size_t i = 0; i < words[0]; ++i) {
        HandleEntry entry;
        std::memcpy(&entry, reinterpret_cast<const char *>(words.data() + 2) + i * sizeof entry,
                    sizeof entry);
        count += entry.processId == pid ? 1 : 0;
    }
    return count;
}

} // namespace velmox::testbed
