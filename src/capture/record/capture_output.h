#pragma once

#include "util/files/file_descriptor.h"
#include "util/text/str.h"

namespace velmox {

/// The file that a recording goes into. For one thread. Failures throw ComponentException, with the path and
/// what the system says of it.
class CaptureOutput
{
public:
    /// Throws unless the path names nothing, an empty file or a capture, and leaves it as it is: a name that
    /// was mistaken costs nothing.
    static void refuseForeignFile(const Str &path);

    /// Empties or creates the file. Others can read it meanwhile: a recording that goes on can be looked at.
    explicit CaptureOutput(const Str &path);

    void write(std::string_view bytes);

private:
    Str path_;
    FileDescriptor file_;
};

} // namespace velmox
