#include "util/platform.h"
#include "util/str.h"
#include "util/wide_str.h"

namespace velmox {

namespace {

/// The longest message that is taken over, in 16-bit units.
constexpr std::size_t kLongestMessage = 2048;

void cutLineEnds(WideStr &text)
{
    while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n')) {
        text.pop_back();
    }
}

} // namespace

void Str::appendErrorText(unsigned error)
{
    WideStr message;
    if (!platform::systemMessage(error, message)) {
        appendFormat("FormatMessage was unable to decode error (%lu), (0x%x)",
                     static_cast<unsigned long>(error), error);
        return;
    }
    cutLineEnds(message);
    if (message.size() > kLongestMessage) {
        appendFormat("FormatMessage returned a %u character result!", static_cast<unsigned>(message.size()));
        return;
    }
    appendUtf16(message.data(), message.size());
}

} // namespace velmox
