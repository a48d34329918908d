#include "util/match/literal_index.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <tuple>

namespace velmox {

namespace {

constexpr std::size_t kNarrowest = 3;
constexpr std::size_t kWidest = 4;
// Each step more saves looks, and costs a window for each literal.
constexpr std::size_t kLongestStep = 4;
// From this length on a literal is rare enough.
constexpr std::size_t kLongEnough = 5;
// So few of them are set that a look at other text rarely meets one. 32 KiB at most.
constexpr std::size_t kBitsPerWindow = 64;
constexpr std::size_t kLeastBits = 1024;
constexpr std::size_t kMostBits = 1 << 18;

/// How many patterns ask for each text.
using Askers = std::map<Str, unsigned>;

/// The set to find a pattern by, or null. The best is the one that the fewest others ask for, as all begin
/// with the same roots; of long ones the last, since paths go from the general to the special.
const LiteralSet *bestSet(const std::vector<LiteralSet> &sets, const Askers &askers)
{
    const auto worth = [&](const LiteralSet &texts) {
        unsigned most = 0;
        for (const Str &text : texts) {
            most = std::max(most, askers.at(text));
        }
        return std::tuple(-static_cast<int>(most), std::min(shortestOf(texts), kLongEnough));
    };
    const LiteralSet *best = nullptr;
    for (const LiteralSet &texts : sets) {
        if (shortestOf(texts) >= kNarrowest && (best == nullptr || worth(texts) >= worth(*best))) {
            best = &texts;
        }
    }
    return best;
}

} // namespace

void LiteralIndex::add(std::vector<LiteralSet> required, const Str &aside)
{
    patterns_.push_back({std::move(required), aside});
}

void LiteralIndex::build()
{
    always_ = BitSet(patterns_.size());
    literals_.clear();
    windows_.clear();
    choose();
    if (!literals_.empty()) {
        chooseWindows();
        addWindows();
    }
}

void LiteralIndex::choose()
{
    Askers askers;
    for (const Pattern &pattern : patterns_) {
        for (const LiteralSet &texts : pattern.required) {
            for (const Str &text : texts) {
                ++askers[text];
            }
        }
    }
    std::map<Str, BitSet> patternsOf;
    for (std::size_t number = 0; number < patterns_.size(); ++number) {
        const Pattern &pattern = patterns_[number];
        const LiteralSet *best = bestSet(pattern.required, askers);
        // Nothing to look for, or something too short for a window: such a pattern is asked each time.
        if (best == nullptr || (!pattern.aside.empty() && pattern.aside.size() < kNarrowest)) {
            always_.insert(number);
            continue;
        }
        LiteralSet texts = *best;
        if (!pattern.aside.empty()) {
            texts.push_back(pattern.aside);
        }
        for (const Str &text : texts) {
            patternsOf.try_emplace(text, patterns_.size()).first->second.insert(number);
        }
    }
    for (auto &[text, patterns] : patternsOf) {
        literals_.push_back({text, std::move(patterns)});
    }
}

void LiteralIndex::chooseWindows()
{
    const auto sizeOf = [](const Literal &literal) { return literal.text.size(); };
    const std::size_t shortest = sizeOf(*std::ranges::min_element(literals_, {}, sizeOf));
    width_ = std::min(shortest, kWidest);
    mask_ = width_ == kWidest ? ~std::uint32_t{0} : (std::uint32_t{1} << 8 * width_) - 1;
    step_ = std::min(shortest - width_ + 1, kLongestStep);
}

// The last windows of each literal, one for each place that it can have between two looks. The last, because
// paths begin alike: their ends are met more rarely in a text that lacks the literal.
void LiteralIndex::addWindows()
{
    for (std::uint32_t number = 0; number < literals_.size(); ++number) {
        const Str &text = literals_[number].text;
        for (std::size_t i = 0; i < step_; ++i) {
            const std::size_t offset = text.size() - width_ - i;
            windows_.push_back({windowAt(text.data() + offset), static_cast<std::uint32_t>(offset), number});
        }
    }
    std::ranges::sort(windows_, {}, &Window::bytes);

    const std::size_t bits =
        std::clamp(std::bit_ceil(windows_.size() * kBitsPerWindow), kLeastBits, kMostBits);
    bits_ = BitSet(bits);
    shift_ = 32 - static_cast<unsigned>(std::countr_zero(bits));
    for (const Window &window : windows_) {
        bits_.insert(bitOf(window.bytes));
    }
}

// A window of three bytes takes a fourth with it: at the end of a text that is its NUL. The mask drops it, as
// the first byte of a text is the lowest of the word on the processors that this runs on.
std::uint32_t LiteralIndex::windowAt(const char *at) const
{
    std::uint32_t bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    return bytes & mask_;
}

std::uint32_t LiteralIndex::bitOf(std::uint32_t window) const
{
    constexpr std::uint32_t kSpread = 0x9E3779B1; // 2^32 by the golden ratio
    // The high bits of the product are those that all bytes of the window have gone into.
    return window * kSpread >> shift_;
}

void LiteralIndex::find(const Str &text, BitSet &found) const
{
    found = always_;
    if (literals_.empty() || text.size() < width_) {
        return;
    }
    const std::size_t last = text.size() - width_;
    // Wherever a literal stands, one of the positions looked at falls on one of its windows.
    for (std::size_t at = 0; at <= last; at += step_) {
        const std::uint32_t window = windowAt(text.data() + at);
        if (bits_.contains(bitOf(window))) {
            check(window, text, at, found);
        }
    }
}

void LiteralIndex::check(std::uint32_t window, const Str &text, std::size_t at, BitSet &found) const
{
    // The bit says only that there may be a literal: several windows share one, and several literals a
    // window.
    for (auto known = std::ranges::lower_bound(windows_, window, {}, &Window::bytes);
         known != windows_.end() && known->bytes == window; ++known) {
        const Literal &literal = literals_[known->literal];
        if (at >= known->offset && text.view().substr(at - known->offset).starts_with(literal.text.view())) {
            found |= literal.patterns;
        }
    }
}

} // namespace velmox
