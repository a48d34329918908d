#pragma once

#include "util/text/str.h"

#include <map>
#include <utility>
#include <vector>

namespace velmox::fuzz {

/// An event as a strict reader sees it: attributes of its element, and the texts of its children by name, in
/// their order.
struct JudgedEvent
{
    std::map<Str, Str> attributes;
    std::vector<std::pair<Str, Str>> children;

    bool operator==(const JudgedEvent &) const = default;
};

/// Reads an event stream with libxml2, without recovery. False when that refuses it, or when anything but
/// events with plain children stands in it.
bool judgeStream(const Str &stream, std::vector<JudgedEvent> &out);

/// What XML has no place for, ill-formed UTF-8 and U+FFFE and U+FFFF, gives way to U+FFFD.
Str presentable(const Str &text);

} // namespace velmox::fuzz
