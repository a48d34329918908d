#pragma once

#include "util/text/str.h"

#include <exception>
#include <gtest/gtest.h>

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
inline void expectInOrder(const Str &text, const StrVector &parts)
{
    std::size_t at = 0;
    for (const Str &part : parts) {
        const std::size_t found = text.find(part.view(), at);
        ASSERT_NE(found, Str::npos) << part.c_str() << "\nis missing behind byte " << at << " of\n"
                                    << text.c_str();
        at = found + part.size();
    }
}

} // namespace velmox::testing
