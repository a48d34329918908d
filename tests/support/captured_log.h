#pragma once

#include "util/text/str.h"

#include <memory>

namespace velmox::testing {

/// Takes what all loggers write during the object's life, from INFO on: "LEVEL logger: message" and LF each.
/// Only one at a time; afterwards everything is back on standard error.
class CapturedLog
{
public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;

    const Str &text() const;

private:
    class Files;
    const std::unique_ptr<Files> files_;
};

/// What `work` logs.
template <class Work>
Str logOf(Work &&work)
{
    const CapturedLog log;
    work();
    return log.text();
}

} // namespace velmox::testing
