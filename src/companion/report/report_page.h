#pragma once

#include <string>
#include <string_view>

namespace velmox {

/// The whole page around the data that `ReportData` made. It needs nothing besides itself.
std::string reportPage(std::string_view data);

} // namespace velmox
