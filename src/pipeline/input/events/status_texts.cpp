#include "pipeline/input/events/status_texts.h"

namespace velmox {

namespace {

// The system's message becomes part of the format, and some messages hold conversions of their own. Each of
// those takes one of the arguments passed behind the number: a pointer to zeros, which every conversion can
// read, and which one that writes can write to. The compiler must not count these against the format.
void formatMessage(Str &out, unsigned error, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    out.vformatWithError(error, fmt, args);
    va_end(args);
}

Str statusText(unsigned error, std::int32_t status)
{
    alignas(16) char zeros[64] = {};
    Str text;
    formatMessage(text, error, "(%ld)%m", static_cast<long>(status), zeros, zeros, zeros, zeros, zeros, zeros,
                  zeros, zeros);
    return text;
}

} // namespace

const Str &StatusTexts::text(std::uint32_t status)
{
    const auto cached = texts_.find(status);
    if (cached != texts_.end()) {
        return cached->second;
    }
    if (mapping_ == nullptr) {
        return unknown_;
    }
    const auto signedStatus = static_cast<std::int32_t>(status);
    const auto error = static_cast<unsigned>(mapping_(signedStatus));
    return texts_.emplace(status, statusText(error, signedStatus)).first->second;
}

} // namespace velmox
