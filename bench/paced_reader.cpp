#include "bench/paced_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>

namespace velmox::bench {

namespace {

constexpr std::size_t kPieceBytes = 65536;
constexpr unsigned kTurnsPerSecond = 20;
constexpr std::size_t kMarkLength = sizeof kNumberMark - 1;
constexpr std::size_t kDigits = 9;

} // namespace

void NumbersSeen::add(std::uint64_t number)
{
    ++received;
    if (number < next) {
        ++outOfOrder;
        return;
    }
    if (number > next) {
        lost += number - next;
        firstLost = std::min(firstLost, next);
        lastLost = number - 1;
    }
    next = number + 1;
}

NumbersSeen PacedReader::numbers() const
{
    const std::lock_guard lock(mutex_);
    return numbers_;
}

Str PacedReader::finish()
{
    setBytesPerSecond(kUnlimited);
    if (thread_.joinable()) {
        thread_.join();
    }
    return rest_;
}

void PacedReader::run()
{
    try {
        static char piece[kPieceBytes];
        for (std::size_t count = 1; count > 0;) {
            const unsigned pace = bytesPerSecond_;
            if (pace != kUnlimited) {
                Sleep(1000 / kTurnsPerSecond);
            }
            if (pace != 0) {
                count = pipe_.read(piece, std::min<std::size_t>(kPieceBytes, 1 + pace / kTurnsPerSecond));
                take(piece, count);
            }
        }
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "soak: %s\n", exception.what());
    }
}

void PacedReader::take(const char *piece, std::size_t count)
{
    const std::lock_guard lock(mutex_);
    rest_.append(piece, count);
    std::size_t at = 0;
    for (std::size_t mark = 0; (mark = rest_.find(kNumberMark, at)) != Str::npos;) {
        const std::size_t end = mark + kMarkLength + kDigits;
        if (end > rest_.size()) {
            at = mark;
            break;
        }
        std::uint64_t number = 0;
        std::from_chars(rest_.data() + mark + kMarkLength, rest_.data() + end, number);
        numbers_.add(number);
        at = end;
    }
    // The mark may be cut by the end of the piece.
    rest_.erase(0, std::max(at, rest_.size() - std::min(rest_.size(), kMarkLength + kDigits)));
}

} // namespace velmox::bench
