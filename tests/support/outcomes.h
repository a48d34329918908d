#pragma once

#include "util/text/str.h"

#include <exception>

namespace velmox::testing {

/// The message of the exception that `work` raises, "nothing" if it raises none. One of another type passes.
template <class Exception = std::exception, class Work>
Str raisedBy(Work &&work)
{
    try {
        work();
        return "nothing";
    } catch (const Exception &exception) {
        return exception.what();
    }
}

/// Fails at the first part that doesn't stand in the text behind the one before it.
void expectInOrder(const Str &text, const StrVector &parts);

} // namespace velmox::testing
