#include "tests/support/outcomes.h"

#include <gtest/gtest.h>

namespace velmox::testing {

void expectInOrder(const Str &text, const StrVector &parts)
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
