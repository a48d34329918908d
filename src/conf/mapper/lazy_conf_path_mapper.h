#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/mapper/i_conf_path_mapper.h"

#include <map>

namespace velmox {

/// What the mappers have in common that serve one user and one app and read a type when it is first asked
/// for: what they know, and how it is read and searched. Names of paths in the log are the setup's texts.
class LazyConfPathMapper : public IConfPathMapper
{
public:
    bool read(const ConfPathBase &path, ConfPathTrie &out, unsigned levels) override;
    bool collectGlobalExporters(std::set<Str> &) override { return false; }
    /// Refused: metadata has files of its own.
    bool writeMetadata(const ConfPathBase &, const ConfPathMetadata &) override { return false; }
    bool search(const ConfSearch &search, ConfPathTrie &out) override;
    bool hasChangedSince(const Str &type, ConfTypeState &state) override;
    Str describe() const override;

protected:
    struct Type
    {
        /// Whether the tree has what the files say. A type that is listed and not loaded is known by name
        /// alone.
        bool loaded = false;
        ConfTypeState state;
    };

    /// `className` names the mapper and must outlive it. `isLocal` says whether what is read can be removed:
    /// what it covers comes to light then. What an app was shipped with stays.
    LazyConfPathMapper(const BundleHandlerData &data, Logger &log, const char *className, bool isLocal);

    /// Whether a part can name a file or directory: one that stays where it is put, and no device or stream.
    static bool isFileName(const Str &part);
    /// Whether the path is of this mapper's user and app.
    bool isOwn(const ConfPathBase &path) const;
    Str text(const Pathname &path) const { return setup_.text(path); }
    Str pathText() const { return setup_.text(path_); }
    /// What each node of a file's content says of the file.
    ConfPathMetadata metadataOf(const FileStatus &status) const;

    // These are called with the lock held.

    /// Whether what the path names can be here.
    bool belongs(const ConfPathBase &path) const;
    ConfPathTrie &typeNode(const Str &type);
    ConfPathTrie &appNode() { return master_.node(ConfPathBase(user_, app_)); }
    /// Loads the type of the path, or all if it has none. The types must be known.
    void loadFor(const ConfPathBase &path);
    void load(const Str &type, Type &record);
    /// Takes over the status of a file of the type that another program changed, and logs it under `name`.
    void noteChange(Type &record, const FileStatus &status, const Str &name);

    // These never change, so that they are read without the lock.
    const BundlesSetup setup_;
    const Pathname path_;
    const Pathname rootDirectory_;
    const Str user_; ///< in lower case
    const Str app_;
    Logger &log_;
    ConfChangeObserver &observer_;

    /// Guards what follows, and what derived classes add to it.
    ConfLock lock_{ConfLockRank::Mapper};
    /// Those that have files, and those that were asked for by a write or a notice.
    std::map<Str, Type> types_;
    ConfPathTrie master_; ///< what is loaded

private:
    /// Puts what the files of a type say into `content`; false when that is to be tried again with the next
    /// read.
    virtual bool readType(const Str &type, Type &record, ConfPathTrie &content) = 0;

    /// Copies what can fit the search from below `path`, its type or its app.
    void copyFitting(ConfPathBase path, const ConfSearch &search, ConfPathTrie &out);
    /// False when there is nothing at the path.
    bool copyOut(const ConfPathBase &path, ConfPathTrie &out, unsigned levels);

    const char *const className_;
    const bool isLocal_;
};

} // namespace velmox
