#pragma once

#include <string_view>
#include <vector>

namespace velmox {

/// Whether `type` is one that `data_type` can be, and `text` has a form that its `data` can have.
bool isValueText(std::string_view type, std::string_view text);

/// Replaces `out` by the strings of a value: one of REG_SZ and REG_EXPAND_SZ, those of REG_MULTI_SZ, the
/// decimal number of REG_DWORD and REG_QWORD; none of other types, or of a number that is not there.
void readValueStrings(std::string_view type, std::string_view text, std::vector<std::string_view> &out);

} // namespace velmox
