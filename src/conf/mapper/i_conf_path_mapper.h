#pragma once

#include "conf/tree/conf_path_trie.h"
#include "conf/tree/conf_search.h"
#include "searchthing/osfile.h"

#include <cstdint>
#include <set>

namespace velmox {

class ConfPath;
class WatchedFileState;

/// What a mapper had of one type at some moment. The generation rises with each change.
struct ConfTypeState
{
    FileStatus status;
    std::uint64_t generation = 0;

    /// The status, then " [generation: 3]".
    Str toStr() const;
};

/// What a mapper made of a notice that a file changed.
enum class FileChangeAnswer
{
    Unsettled = 0,
    NoChange = 1, ///< or none that can be taken over yet
    Settled = 2,
};

/// The bridge between one path on disk and the configuration tree. Operations may be called on any thread and
/// take the mapper's lock, of the rank `ConfLockRank::Mapper`. They report by their results and the log. The
/// trees that they fill begin above the user.
class IConfPathMapper
{
public:
    virtual ~IConfPathMapper() = default;
    /// Copies what stands at `path` and up to `levels` below it into `out`; false when nothing does.
    virtual bool read(const ConfPath &path, ConfPathTrie &out, unsigned levels) = 0;
    /// Adds the apps that may export to everyone; false when this mapper cannot tell.
    virtual bool collectGlobalExporters(std::set<Str> &apps) = 0;
    // Changes stay in memory until `flush`.
    virtual bool writeData(const ConfPath &path, const Str &value) = 0;
    virtual bool writeMetadata(const ConfPath &path, const ConfPathMetadata &metadata) = 0;
    virtual bool remove(const ConfPath &path) = 0;
    /// Copies what fits the search into `out`, which holds nothing else; false when that cannot be here.
    virtual bool search(const ConfSearch &search, ConfPathTrie &out) = 0;
    /// Writes the changes to disk; false when some of them could not be written, and are given up.
    virtual bool flush() = 0;
    /// Forgets what was read of a type, or of all when it is empty, so that the next read goes to disk.
    virtual bool reload(const Str &type) = 0;
    /// Told that a file may have been changed by whomever, this mapper included.
    virtual FileChangeAnswer onFileChange(WatchedFileState &state) = 0;
    /// For `hasChangedSince`, in which it knows of no change yet.
    virtual std::unique_ptr<ConfTypeState> newState() = 0;
    /// Whether the type changed since `state`, which is brought up to date.
    virtual bool hasChangedSince(const Str &type, ConfTypeState &state) = 0;
    virtual Str describe() const = 0;
};

} // namespace velmox
