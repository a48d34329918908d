#pragma once

#include "util/text/str.h"

#include <string_view>
#include <vector>

namespace velmox {

/// The open elements of an XML document, outermost first. What is asked of it costs the same at any depth.
class ElementPath
{
public:
    /// False for a declaration, whose name begins with `?` or `!`: it is no element and has no end.
    bool enter(const Str &name);
    /// An end without a start is passed over.
    void leave();

    bool empty() const { return starts_.empty(); }

    // Good until the next element begins or ends.
    /// The names, with slashes between.
    std::string_view view() const { return path_.view(); }
    /// The same without the innermost element; there must be one, as for its name.
    std::string_view parent() const { return view().substr(0, starts_.size() > 1 ? starts_.back() - 1 : 0); }
    std::string_view name() const { return view().substr(starts_.back()); }

private:
    Str path_;
    /// Where each element's name begins in the path.
    std::vector<std::size_t> starts_;
};

} // namespace velmox
