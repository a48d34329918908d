#include "tests/support/captured_log.h"

#include "util/log/log_config.h"
#include "util/log/logger.h"

#include <map>

namespace velmox::testing {

/// A file system with one file, which is in memory.
class CapturedLog::Files : public LogFileSystem
{
public:
    Str text;

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

    std::unique_ptr<LogFile> openAppend(const Pathname &) override { return std::make_unique<File>(text); }
    bool exists(const Pathname &) override { return true; }
    bool remove(const Pathname &) override { return false; }
    bool rename(const Pathname &, const Pathname &) override { return false; }
};

CapturedLog::CapturedLog() : files_(std::make_unique<Files>())
{
    static constexpr const char *kConfiguration[] = {
        "rootCategory=INFO,F",
        "appender.F.fileName=log",
        "appender.F.layout.ConversionPattern=%p %c: %m%n",
    };
    Logger::reset(files_.get());
    const std::map<Str, Str> variables;
    LogConfigLoader loader(LogSystem::instance(), variables);
    const char *const *next = std::begin(kConfiguration);
    loader.readFile("", nullptr, [&next](StrSegment &line) {
        line = next == std::end(kConfiguration) ? StrSegment() : StrSegment(*next++);
        return !line.isNull();
    });
    loader.applyCategories();
    Logger::bindAll();
    loader.finishAppenders(true);
}

CapturedLog::~CapturedLog()
{
    Logger::reset(nullptr);
    Logger::bindAll();
}

const Str &CapturedLog::text() const
{
    return files_->text;
}

} // namespace velmox::testing
