#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/tree/conf_path_pruners.h"
#include "conf/tree/conf_path_trie.h"
#include "searchthing/osfile.h"
#include "util/log/logger.h"

#include <cstdint>
#include <map>
#include <set>

namespace velmox {

// The room conf/mapper turns files into trees of settings and back. A mapper serves one place on disk: a
// directory of `.conf` files, one `.meta` file, or files each of which is an object. It knows whose place
// that is, reads a type when it is first asked for, keeps changes until they are flushed, and finds out what
// other programs changed. There may be hundreds of apps, of which a program needs a few types, so nothing is
// parsed at the start.
//
// A mapper has one lock, under which it does all of its work, file operations included: a slow disk holds up
// those who ask for the same directory, and nobody else. It calls nobody who might ask another mapper while
// it holds it.

class WatchedFileState;

/// What a mapper had of one type at some moment. The generation rises with each change and alone decides
/// whether there was one: the time of a file is too coarse to tell two writes of the same moment apart. The
/// status is for the log.
struct ConfTypeState
{
    FileStatus status;
    std::uint64_t generation = 0;

    /// The status, then " [generation: 3]".
    Str toStr() const
    {
        return status.toStr() << " [generation: " << static_cast<unsigned long long>(generation) << "]";
    }
    /// Takes over a later state, and tells `log` under the mapper's name. False when there is nothing new.
    bool follow(const ConfTypeState &current, Logger &log, const Str &name)
    {
        if (current.generation == generation) {
            return false;
        }
        log.debug("%s: Changed since: %s -> %s", name.c_str(), toStr().c_str(), current.toStr().c_str());
        *this = current;
        return true;
    }
};

/// What a mapper made of a notice that a file changed. Whoever brought the notice asks again, some seconds
/// later, until the change is settled.
enum class FileChangeAnswer
{
    /// The file could not be read: another program may be in the midst of writing it.
    Unsettled = 0,
    NoChange = 1, ///< or none that can be taken over yet
    Settled = 2,
};

/// Is told by mappers of changes that matter beyond what they serve. They call it without their lock, since
/// whoever is told may ask all mappers in turn.
class ConfChangeObserver
{
public:
    virtual ~ConfChangeObserver() = default;
    /// Settings or metadata of apps changed that count for the readers of all types: whether an app is
    /// enabled, what it imports, what it exports.
    virtual void onAppsChanged() = 0;
    /// Shared files of an app were written. The first file of a new app makes its directory, and thereby the
    /// app.
    virtual void onAppWritten(const Str &app) = 0;
};

/// What a mapper is told of the path that it is to serve.
struct BundleHandlerData
{
    BundlesSetup setup;
    /// The file or directory; absolute.
    Pathname path;
    /// The directory of the app, or of the user's app, in which the path lies.
    Pathname rootDirectory;
    Str user;
    Str app;
    /// The settings of the handler's own stanza in the bootstrap file.
    std::map<Str, Str> settings;
    /// Outlives the mapper.
    ConfChangeObserver &observer;
};

/// The bridge between one path on disk and the configuration tree. Operations may be called on any thread and
/// take the mapper's lock, of the rank `ConfLockRank::Mapper`. They report by their results and the log. The
/// trees that they fill begin above the user.
class IConfPathMapper
{
public:
    virtual ~IConfPathMapper() = default;
    /// Copies what stands at `path` and up to `levels` below it into `out`; false when nothing does.
    virtual bool read(const ConfPathBase &path, ConfPathTrie &out, unsigned levels) = 0;
    /// Adds the apps that may export to everyone; false when this mapper cannot tell.
    virtual bool collectGlobalExporters(std::set<Str> &apps) = 0;
    // Changes stay in memory until `flush`, but for files that are objects, which are replaced at once.
    // False when a change was refused or could not be prepared.
    virtual bool writeData(const ConfPathBase &path, const Str &value) = 0;
    virtual bool writeMetadata(const ConfPathBase &path, const ConfPathMetadata &metadata) = 0;
    /// Takes what lies below along.
    virtual bool remove(const ConfPathBase &path) = 0;
    /// Copies what fits the search into `out`, which holds nothing else; false when that cannot be here.
    virtual bool search(const ConfSearch &search, ConfPathTrie &out) = 0;
    /// Writes the changes to disk; false when some of them could not be written, and are given up.
    virtual bool flush() = 0;
    /// Forgets what was read of a type, or of all when it is empty, so that the next read goes to disk.
    virtual bool reload(const Str &type) = 0;
    /// Told that a file may have been changed by whomever, this mapper included.
    virtual FileChangeAnswer onFileChange(WatchedFileState &state) = 0;
    /// For `hasChangedSince`, in which it knows of no change yet.
    virtual std::unique_ptr<ConfTypeState> newState() { return std::make_unique<ConfTypeState>(); }
    /// Whether the type changed since `state`, which is brought up to date.
    virtual bool hasChangedSince(const Str &type, ConfTypeState &state) = 0;
    virtual Str describe() const = 0;
    /// The file of a type, whether it exists or not; empty for a mapper of other files than `.conf` files.
    virtual Pathname confFile(const Str &) const { return {}; }
};

} // namespace velmox
