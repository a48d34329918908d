#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmox {

/// The parts of a `key_path`: views into it, but for the hive, whose text is constant.
struct RegistryPath
{
    /// HKLM, HKU, HKCU or HKCC; empty for another root.
    std::string_view hive;
    /// Below the hive, without a backslash at either end; the whole path below another root.
    std::string_view key;
    /// Empty where the path is that of a key, and for the value without a name.
    std::string_view value;
};

/// Splits a short path (`HKLM\...`) or one of the kernel (`\REGISTRY\MACHINE\...`); case does not count. With
/// `hasValue` the last component is the name of a value: the names of values may hold backslashes too, and
/// the path does not tell.
RegistryPath splitRegistryPath(std::string_view path, bool hasValue);

/// The text in lower case: the registry knows no difference of case.
std::string foldedText(std::string_view text);

/// The path in the form under which equal paths are equal: short, and in lower case.
std::string comparableRegistryPath(std::string_view path);

/// Behind the last backslash or slash.
std::string_view lastComponent(std::string_view path);

/// Whether `type` is a word that `data_type` can be, and `text` has a form that the data of this type can
/// have. It tells a separator of fields from the same bytes within a name.
bool isValueText(std::string_view type, std::string_view text);

/// Replaces `out` by the strings of a value: one of REG_SZ and REG_EXPAND_SZ, those of REG_MULTI_SZ, the
/// decimal number of REG_DWORD and REG_QWORD; none of other types, or of a number that is not there.
void readValueStrings(std::string_view type, std::string_view text, std::vector<std::string_view> &out);

} // namespace velmox
