#include "util/text/error_text.h"

#include "util/text/platform.h"
#include "util/text/wide_str.h"

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

/// What is said of a code that the system's message table lacks.
void appendUnknown(unsigned error, Str &out)
{
    const std::string_view known = componentErrorText(error);
    if (known.empty()) {
        out.appendFormat("FormatMessage was unable to decode error (%lu), (0x%x)",
                         static_cast<unsigned long>(error), error);
    } else {
        out.append(known);
    }
}

} // namespace

Str expandErrorText(const char *fmt, const Str &errorText)
{
    Str expanded;
    for (const char *at = fmt; *at != '\0'; ++at) {
        if (at[0] == '%' && at[1] == 'm') {
            expanded.append(errorText);
            ++at;
        } else if (at[0] == '%' && at[1] == '%') {
            expanded.append("%%");
            ++at;
        } else {
            expanded += *at;
        }
    }
    return expanded;
}

void Str::appendErrorText(unsigned error)
{
    WideStr message;
    if (!platform::systemMessage(error, message)) {
        appendUnknown(error, *this);
        return;
    }
    cutLineEnds(message);
    if (message.size() > kLongestMessage) {
        appendFormat("FormatMessage returned a %u character result!", static_cast<unsigned>(message.size()));
    } else {
        appendUtf16(message.data(), message.size());
    }
}

} // namespace velmox
