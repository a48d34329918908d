#pragma once

#include "util/log/log_file.h"
#include "util/log/log_loader.h"
#include "util/log/log_system.h"

#include <map>
#include <memory>

namespace velmox::testing {

/// Takes what all loggers write during the object's life, from INFO on: "LEVEL logger: message" and LF each.
/// Only one at a time; afterwards everything is back on standard error.
class CapturedLog : private LogFileSystem
{
public:
    CapturedLog()
    {
        static constexpr const char *kConfiguration[] = {
            "rootCategory=INFO,F",
            "appender.F.fileName=log",
            "appender.F.layout.ConversionPattern=%p %c: %m%n",
        };
        LogSystem::instance().reset(this);
        const std::map<Str, Str> variables;
        LogConfigLoader loader(LogSystem::instance(), variables);
        const char *const *next = std::begin(kConfiguration);
        loader.readFile("", nullptr, [&next](StrSegment &line) {
            line = next == std::end(kConfiguration) ? StrSegment() : StrSegment(*next++);
            return !line.isNull();
        });
        loader.applyCategories();
        LogSystem::instance().bindAll();
        loader.finishAppenders(true);
    }
    ~CapturedLog() override
    {
        LogSystem::instance().reset(nullptr);
        LogSystem::instance().bindAll();
    }
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;

    const Str &text() const { return text_; }

private:
    struct File : LogFile
    {
        explicit File(Str &out) : text(out) {}
        bool size(std::uint64_t &bytes) override
        {
            bytes = text.size();
            return true;
        }
        std::ptrdiff_t write(const char *bytes, std::size_t length) override
        {
            for (const char byte : std::string_view(bytes, length)) {
                if (byte != '\r') {
                    text += byte;
                }
            }
            return static_cast<std::ptrdiff_t>(length);
        }
        Str &text;
    };

    std::unique_ptr<LogFile> openAppend(const Pathname &) override { return std::make_unique<File>(text_); }
    bool exists(const Pathname &) override { return true; }
    bool remove(const Pathname &) override { return false; }
    bool rename(const Pathname &, const Pathname &) override { return false; }

    Str text_;
};

} // namespace velmox::testing
