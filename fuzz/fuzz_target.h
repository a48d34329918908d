#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What the fuzz targets share. A target is one function over bytes that states properties and throws where
/// one does not hold. libFuzzer drives one target a program; the replay runs the corpora of all.
namespace velmox::fuzz {

/// How many comparisons were made by targets that count them.
inline unsigned long long comparisons = 0;

/// Throws with `what` if `holds` is false.
void require(bool holds, const char *what);

/// Takes an input apart: choices from its front, text from the rest. Choices are read from any byte, so that
/// inputs can stay printable, and are 0 behind the end.
class Input
{
public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }
    unsigned choice(unsigned count);
    /// Up to the next line feed, which is left out, or to the end.
    std::string_view line();
    std::string_view rest() const { return rest_; }
    std::vector<Str> lines();
    std::uint64_t number();

private:
    std::string_view rest_;
};

/// 16-bit text of any kind from bytes: printable ASCII stands for itself, other bytes choose surrogates,
/// byte-order marks, non-characters and the like.
std::u16string wideText(std::string_view bytes);

/// Calls `feed` with consecutive pieces of `bytes`, cut in a way that `seed` determines; the seed 0 cuts
/// between all bytes.
template <class Feed>
void inPieces(std::string_view bytes, unsigned seed, Feed feed)
{
    while (!bytes.empty()) {
        const std::size_t length = seed == 0 ? 1 : std::min<std::size_t>(1 + (seed >> 8) % 7, bytes.size());
        seed = seed == 0 ? 0 : seed * 1103515245u + 12345u;
        feed(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
}

struct Target
{
    const char *name;
    void (*run)(std::string_view bytes);
    const Target *next;

    static const Target *first;
    Target(const char *targetName, void (*targetRun)(std::string_view))
        : name(targetName), run(targetRun), next(first)
    {
        first = this;
    }
};

} // namespace velmox::fuzz

/// Defines a target. Its name is that of its folder of inputs.
#define VELMOX_FUZZ_TARGET(name)                                                                             \
    static void fuzz_##name(std::string_view bytes);                                                         \
    static const ::velmox::fuzz::Target fuzz_target_##name(#name, fuzz_##name);                              \
    static void fuzz_##name([[maybe_unused]] std::string_view bytes)
