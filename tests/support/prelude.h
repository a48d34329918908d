#pragma once

// What every test begins with: the precompiled header of each test program (cmake/folders.cmake). A test
// includes what it tests, and of tests/support what isn't named here. Inside `namespace velmox`, names of
// GoogleTest and of tests/support need no prefix; where one of each is called the same, `testing::` or
// `::testing::` tells them apart.

#include "tests/support/captured_log.h"
#include "tests/support/log_lines.h"
#include "tests/support/outcomes.h"
#include "util/text/pathname.h"
#include "util/text/str.h"
#include "util/text/str_segment.h"
#include "util/text/wide_str.h"

#ifdef _WIN32
#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "tests/support/scoped_folder.h"
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace velmox {

// How GoogleTest shows the text types in a failure.
inline void PrintTo(const Str &text, std::ostream *out)
{
    *out << '"' << text.view() << '"';
}

inline void PrintTo(const WideStr &text, std::ostream *out)
{
    PrintTo(Str::fromUtf16(text), out);
}

namespace testing {
using namespace ::testing;
} // namespace testing

using namespace testing;
using namespace std::string_literals;
using namespace std::string_view_literals;

} // namespace velmox
