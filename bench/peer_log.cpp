#include "bench/peers.h"
#include "util/log/log_config.h"
#include "util/log/logger.h"

#include <fcntl.h>
#include <filesystem>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace velmox::bench {

namespace {

constexpr int kLines = 100'000;

/// The system's files as the program has them on Windows: each write is a call of the system.
class NativeLogFile : public LogFile
{
public:
    explicit NativeLogFile(int file) : file_(file) {}
    ~NativeLogFile() override { close(file_); }

    bool size(std::uint64_t &bytes) override
    {
        struct stat status = {};
        const bool known = fstat(file_, &status) == 0;
        bytes = static_cast<std::uint64_t>(status.st_size);
        return known;
    }
    std::ptrdiff_t write(const char *bytes, std::size_t length) override
    {
        return ::write(file_, bytes, length);
    }

private:
    const int file_;
};

class NativeLogFiles : public LogFileSystem
{
public:
    std::unique_ptr<LogFile> openAppend(const Pathname &path) override
    {
        const int file = open(path.toStr().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        return file < 0 ? nullptr : std::make_unique<NativeLogFile>(file);
    }
    bool exists(const Pathname &path) override { return std::filesystem::exists(path.toStr().c_str()); }
    bool remove(const Pathname &) override { return false; }
    bool rename(const Pathname &, const Pathname &) override { return false; }
};

/// A folder for the files of a run.
class ScratchFolder
{
public:
    ScratchFolder() : path_(std::filesystem::temp_directory_path() / "velmox-peers-XXXXXX")
    {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no folder for log files");
        }
    }
    ~ScratchFolder() { std::filesystem::remove_all(path_); }
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    std::string operator/(const char *name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void configure(const std::string &file)
{
    static NativeLogFiles files;
    static const std::map<Str, Str> noVariables;
    const Str lines[] = {
        "rootCategory=INFO,F",
        Str::concat("appender.F.fileName=", file.c_str()),
        "appender.F.layout=PatternLayout",
        "appender.F.layout.ConversionPattern=%d %-5p %c - %m%n",
    };
    Logger::reset(&files);
    LogConfigLoader loader(LogSystem::instance(), noVariables);
    std::size_t at = 0;
    loader.readFile("peers", nullptr, [&](StrSegment &line) {
        line = at < std::size(lines) ? StrSegment(lines[at]) : StrSegment();
        return at++ < std::size(lines);
    });
    loader.applyCategories();
    Logger::bindAll();
    loader.finishAppenders(true);
    if (!loader.reportErrors()) {
        throw std::runtime_error("the log's configuration is wrong");
    }
}

double ownSeconds(Logger &logger)
{
    return secondsOf([&] {
        for (int line = 0; line < kLines; ++line) {
            logger.info("value %6d of %s", line, "text");
        }
    });
}

double peerSeconds(spdlog::logger &logger)
{
    return secondsOf([&] {
        for (int line = 0; line < kLines; ++line) {
            logger.info("value {:6d} of {}", line, "text");
        }
        logger.flush();
    });
}

/// A logger of the peer's that hands each line to the system, or waits until its buffer is full.
std::unique_ptr<spdlog::logger> makePeer(const std::string &file, bool flushes)
{
    auto logger =
        std::make_unique<spdlog::logger>("Bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file));
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%Y-%m-%d %H:%M:%S,%e %-5l %n - %v", spdlog::pattern_time_type::local, "\r\n"));
    logger->flush_on(flushes ? spdlog::level::info : spdlog::level::off);
    return logger;
}

} // namespace

Figures measureLog(unsigned rounds)
{
    const ScratchFolder folder;
    const std::string ownFile = folder / "own.log";
    const std::string peerFile = folder / "peer.log";
    configure(ownFile);
    Logger own("Bench");
    // The program's log hands each line to the system, as it has to outlive a crash. The second peer shows
    // what that costs.
    const auto flushing = makePeer(peerFile, true);
    const auto buffering = makePeer(folder / "buffered.log", false);
    Figure line("log: a line into a file, date, level, name and message", "spdlog, each line flushed", {},
                "ns");
    Figure buffered("the same", "spdlog, which keeps lines in its buffer", {}, "ns");
    for (unsigned round = 0; round < rounds; ++round) {
        const double seconds = ownSeconds(own);
        line.add(peerSeconds(*flushing) / seconds, seconds / kLines * 1e9);
        buffered.add(peerSeconds(*buffering) / seconds, seconds / kLines * 1e9);
    }
    // Both wrote the same, or the comparison says nothing.
    if (std::filesystem::file_size(ownFile) != std::filesystem::file_size(peerFile)) {
        throw std::runtime_error("the logs are not of the same length");
    }
    Logger::reset(nullptr);
    return {line, buffered};
}

} // namespace velmox::bench
