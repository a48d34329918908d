#pragma once

#include "util/str.h"

namespace velmox {

/// The open elements of an XML document, outermost first.
class ElementPath
{
public:
    /// False for a declaration, whose name begins with `?` or `!`: it is no element and has no end.
    bool enter(const Str &name);
    /// An end without a start is passed over.
    void leave();

    bool empty() const { return names_.empty(); }
    /// The names, with slashes between.
    Str str() const { return joined(names_.size()); }
    /// The same without the innermost.
    Str parent() const { return joined(empty() ? 0 : names_.size() - 1); }
    /// Of the innermost element; there must be one.
    const Str &name() const { return names_.back(); }

private:
    Str joined(std::size_t count) const;

    StrVector names_;
};

} // namespace velmox
