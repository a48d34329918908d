#pragma once

#include "util/log/logger.h"
#include "util/text/str.h"

#include <cstddef>

namespace velmox {

class CrashSink;

/// Writes a block of memory as lines of hexadecimal bytes, under a line that tells what it is.
///
/// The pointer may be a bad one: nothing is read beyond the page that it points into, and nothing at all
/// below address 4096. Where the lines go, the derived classes say.
class HexDumper
{
public:
    virtual ~HexDumper();

    void dump(const void *start, std::size_t length, const char *label);

private:
    /// Text without a line end, valid for the call.
    virtual void writeLine(const char *text) = 0;
};

/// Each line ends in CR LF.
class HexDumper_to_Str : public HexDumper
{
public:
    explicit HexDumper_to_Str(Str &out) : out_(out) {}

private:
    void writeLine(const char *text) override;

    Str &out_;
};

/// One element a line.
class HexDumper_to_StrVector : public HexDumper
{
public:
    explicit HexDumper_to_StrVector(StrVector &out) : out_(out) {}

private:
    void writeLine(const char *text) override;

    StrVector &out_;
};

/// One message a line.
class HexDumper_to_Logger : public HexDumper
{
public:
    HexDumper_to_Logger(Logger &logger, LogLevel level) : logger_(logger), level_(level) {}

private:
    void writeLine(const char *text) override;

    Logger &logger_;
    LogLevel level_;
};

/// Each line ends in CR LF. Takes nothing from the heap.
class HexDumper_to_CrashLog : public HexDumper
{
public:
    explicit HexDumper_to_CrashLog(CrashSink &sink) : sink_(sink) {}

private:
    void writeLine(const char *text) override;

    CrashSink &sink_;
};

} // namespace velmox
