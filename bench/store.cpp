#include "bench/store.h"

#include "bench/program.h"
#include "conf/file/conf_read_counters.h"
#include "conf/pages/property_pages.h"
#include "util/files/file_copy.h"
#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"

#include <stdexcept>

namespace velmox::bench {

namespace {

constexpr unsigned kApps = 200;
constexpr unsigned kDefaultStanzas = 10;
constexpr char kType[] = "inputs";
constexpr unsigned kDisabled = 1000;
constexpr char kDisabledType[] = "regmon-filters";

void makeFile(const Pathname &path, const Str &text)
{
    FileDescriptor file;
    if (!makeDirs(path.dirname(), true) || !file.openWrite(path, FilePermissions::PublicRead) ||
        file.write(text.data(), text.size()) != static_cast<std::ptrdiff_t>(text.size())) {
        throw std::runtime_error(Str::fromLastErrorFormat("%s: %m", path.toStr().c_str()).c_str());
    }
}

Str stanzas(unsigned app, unsigned first, unsigned count)
{
    Str text;
    for (unsigned i = first; i < first + count; ++i) {
        text << Str::fromFormat("[WinRegMon://app%u-%u]\nproc = .*\nhive = HKLM\\\\Software\\\\App%u\\\\.*\n"
                                "type = set|create|delete|rename\nbaseline = 0\nindex = main\n\n",
                                app, i, app);
    }
    return text;
}

void copyBootstrap(const Pathname &root)
{
    const Pathname bootstrap = root.join("system\\default\\conf.conf");
    makeDirs(bootstrap.dirname(), true);
    if (!copyFileTo(Pathname(u"C:\\velmox\\etc\\system\\default\\conf.conf"), bootstrap,
                    FilePermissions::PublicRead)) {
        throw std::runtime_error("the installation has no conf.conf");
    }
}

/// A configuration root of a round's own, for the services of a root are kept to the end of the process.
class Root
{
public:
    explicit Root(unsigned round) : path_(Pathname::fromUtf8(Str::fromFormat("C:\\bench-store-%u", round)))
    {
        copyBootstrap(path_);
        for (unsigned app = 0; app < kApps; ++app) {
            makeApp(app);
        }
    }

    const Pathname &path() const { return path_; }
    /// The files of the type that is read.
    const std::vector<Pathname> &files() const { return files_; }

private:
    /// Other types must not cost anything. One local stanza changes a default, one stands alone.
    void makeApp(unsigned app)
    {
        const Pathname folder = path_.join(Str::fromFormat("apps\\app%u", app));
        makeFile(folder.join("default\\app.conf"), "[ui]\nlabel = An app\n\n[launcher]\nversion = 1.0\n");
        makeFile(folder.join("default\\other.conf"), stanzas(app, 0, kDefaultStanzas));
        makeFile(folder.join("metadata\\default.meta"), "[]\naccess = read : [ * ]\nexport = system\n");
        makeTypeFile(folder.join("default\\inputs.conf"), stanzas(app, 0, kDefaultStanzas));
        makeTypeFile(folder.join("local\\inputs.conf"), stanzas(app, kDefaultStanzas - 1, 2));
    }

    void makeTypeFile(const Pathname &path, const Str &text)
    {
        makeFile(path, text);
        files_.push_back(path);
    }

    const Pathname path_;
    std::vector<Pathname> files_;
};

struct Cost
{
    double seconds;
    std::uint64_t files;
    std::uint64_t bytes;
};

template <class Work>
Cost costOf(Work work)
{
    const std::uint64_t files = confReadCounters.filesOpened;
    const std::uint64_t bytes = confReadCounters.bytesParsed;
    const std::uint64_t start = ticksNow();
    work();
    const double seconds = secondsBetween(start, ticksNow());
    return {seconds, confReadCounters.filesOpened - files, confReadCounters.bytesParsed - bytes};
}

std::uint64_t readPlainly(const Pathname &path)
{
    const FileHandle file(
        CreateFileW(asWide(path), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    std::uint64_t bytes = 0;
    char piece[8192];
    for (DWORD count = 0; ReadFile(file.get(), piece, sizeof piece, &count, nullptr) && count != 0;) {
        bytes += count;
    }
    return bytes;
}

Cost plainReads(const std::vector<Pathname> &files)
{
    Cost cost = {0, files.size(), 0};
    const std::uint64_t start = ticksNow();
    for (const Pathname &file : files) {
        cost.bytes += readPlainly(file);
    }
    cost.seconds = secondsBetween(start, ticksNow());
    return cost;
}

void readType(const ConfContext &context)
{
    Stanzas stanzas;
    PropertyPages::get(kType, context)->enumerateStanzasWithPrefix("", stanzas, DisabledMode::All);
    if (stanzas.size() != kApps * (kDefaultStanzas + 1)) {
        throw std::runtime_error(
            Str::fromFormat("%u stanzas were read", static_cast<unsigned>(stanzas.size())).c_str());
    }
}

/// Three rows: the time beside a reference, and the files and bytes beside those of the type.
class CostFigures
{
public:
    CostFigures(const char *what, const char *reference)
        : time_(what, reference, {}, "ms"),
          files_(Str::concat("files opened, ", what), "files of the type", {}, "files"),
          bytes_(Str::concat("bytes parsed, ", what), "bytes of the type", {}, "KiB")
    {
    }

    void add(const Cost &cost, double referenceSeconds, const Cost &plain)
    {
        const auto files = static_cast<double>(cost.files);
        const auto bytes = static_cast<double>(cost.bytes);
        time_.add(cost.seconds / referenceSeconds, cost.seconds * 1e3);
        files_.add(files / static_cast<double>(plain.files), files);
        bytes_.add(bytes / static_cast<double>(plain.bytes), bytes / 1024);
    }

    void appendTo(Figures &figures) const { figures.insert(figures.end(), {time_, files_, bytes_}); }

private:
    Figure time_;
    Figure files_;
    Figure bytes_;
};

/// Disables the stanzas of an app's defaults by a write each, as the migration of old settings does. The file
/// that is written grows with each.
void disableEach(const BundlesSetup &setup)
{
    Stanzas stanzas;
    PropertyPages::get(kDisabledType, {setup, Str(), Str()})
        ->enumerateStanzasWithPrefix("", stanzas, DisabledMode::All);
    for (auto &[name, stanza] : stanzas) {
        stanza.set("disabled", "1");
        PropertyPages::get(kDisabledType, {setup, Str(), stanza.appName()})
            ->write(Str(), name, stanza, false);
    }
}

/// Replaces a file as often, by one with as much in it.
void replaceEach(const Pathname &file)
{
    const Pathname temporary = file.concat(".tmp");
    std::uint64_t size = 0;
    fileSize(file, size);
    for (unsigned i = 1; i <= kDisabled; ++i) {
        makeFile(temporary, Str(static_cast<std::size_t>(size * i / kDisabled), 'x'));
        if (!moveFile(temporary, file)) {
            throw std::runtime_error("a file could not be replaced");
        }
    }
}

/// The log goes where the installed program's goes, into a file.
void logIntoFile()
{
    const Pathname config(u"C:\\bench-log.cfg");
    makeFile(config, "rootCategory=INFO,file\nappender.file.fileName=C:\\bench-log.txt\n");
    Logger::loadConfig(config, nullptr, {}, true);
}

Figure measureWrites(unsigned rounds)
{
    Figure figure("1,000 stanzas disabled, a write each", "1,000 plain replacements of the file written", {},
                  "ms");
    for (unsigned round = 0; round < rounds; ++round) {
        const Pathname root = Pathname::fromUtf8(Str::fromFormat("C:\\bench-writes-%u", round));
        copyBootstrap(root);
        makeFile(root.join("apps\\app0\\default\\regmon-filters.conf"), stanzas(0, 0, kDisabled));
        const BundlesSetup setup(root);
        const Cost cost = costOf([&] { disableEach(setup); });
        const Cost plain = costOf([&] { replaceEach(root.join("apps\\app0\\local\\regmon-filters.conf")); });
        figure.add(cost.seconds / plain.seconds, cost.seconds * 1e3);
    }
    return figure;
}

} // namespace

Figures measureStore(const Options &options)
{
    logIntoFile();
    constexpr char kPlain[] = "plain reads of the type's files";
    CostFigures services("making the services of a root with 200 apps", kPlain);
    CostFigures first("first read of a type from 200 apps", kPlain);
    CostFigures repeated("repeated read", "first read");
    CostFigures user("a user's first read behind it", kPlain);
    CostFigures again("a user's repeated read", "first read");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const Root root(round);
        const Cost plain = plainReads(root.files());
        services.add(costOf([&] { BundlesSetup(root.path()); }), plain.seconds, plain);
        const ConfContext everyone = {BundlesSetup(root.path()), Str(), Str()};
        const ConfContext someone = {everyone.setup, "someone", "app0"};
        const Cost firstCost = costOf([&] { readType(everyone); });
        first.add(firstCost, plain.seconds, plain);
        repeated.add(costOf([&] { readType(everyone); }), firstCost.seconds, plain);
        const Cost userCost = costOf([&] { readType(someone); });
        user.add(userCost, plain.seconds, plain);
        again.add(costOf([&] { readType(someone); }), userCost.seconds, plain);
    }
    Figures figures;
    for (const CostFigures &part : {services, first, repeated, user, again}) {
        part.appendTo(figures);
    }
    figures.push_back(measureWrites(options.rounds));
    return figures;
}

} // namespace velmox::bench
