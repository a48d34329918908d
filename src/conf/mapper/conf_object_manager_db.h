#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/mapper/meta_file.h"
#include "conf/tree/conf_path_base.h"

#include <map>
#include <memory>
#include <optional>

namespace velmox {

/// Keeps one metadata file, which says who may see and change what of an app, and what other apps it imports:
/// its tree, read when it is first asked for, and the changes that are to be written. Any thread.
///
/// What a write leaves as it is does not touch the file, and a file that is missing is not made for it.
class ConfObjectManagerDB : public IConfPathMapper
{
public:
    explicit ConfObjectManagerDB(const BundleHandlerData &data);

    bool read(const ConfPathBase &path, ConfPathTrie &out, unsigned levels) override;
    bool collectGlobalExporters(std::set<Str> &apps) override;
    bool writeData(const ConfPathBase &path, const Str &value) override;
    /// Sets what is set in `metadata` and leaves the rest as it is.
    bool writeMetadata(const ConfPathBase &path, const ConfPathMetadata &metadata) override;
    bool remove(const ConfPathBase &path) override;
    bool search(const ConfSearch &search, ConfPathTrie &out) override;
    bool flush() override;
    /// A file that was read is read anew at once, whatever the type, so that others can be told of changes.
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;
    bool hasChangedSince(const Str &type, ConfTypeState &state) override;
    Str describe() const override;

    const BundlesSetup &setup() const { return setup_; }
    const Pathname &file() const { return file_; }
    /// Whose metadata this is: a path without parts.
    const ConfPathBase &owner() const { return owner_; }

protected:
    /// What the observer must be told of once no lock is held.
    struct PendingNotice
    {
        bool appChanged = false;     ///< the metadata of the app itself
        bool exportsChanged = false; ///< perhaps: what readers of other apps see
    };
    /// Puts what a metadata file of `app` says into `out`. False, with the reason in the last error, when it
    /// cannot be opened or read to its end.
    static bool readFile(const Pathname &file, const ConfPathBase &app, ConfPathTrie &out);
    /// What happened since the last call.
    PendingNotice takePendingNotice();

private:
    /// Changes under way. On disk they go through the image, in memory alone through the tree.
    struct Edit
    {
        Edit(IniFile onDisk, const ConfPathBase &app) : image(std::move(onDisk), app) {}

        MetaImage image;
        ConfPathTrie tree;
        bool changed = false;
        /// Nothing is flushed then: the image is empty, and would replace what is there by the changes
        /// alone.
        bool isUnreadable = false;
    };

    Str text() const { return setup_.text(file_); }

    // To be called with the lock held.
    /// False while the file cannot be read.
    bool ensureLoaded();
    /// Reads the file; tells whether that changed anything, or nothing when it cannot be opened.
    std::optional<bool> refresh();
    /// Makes the tree the one that readers see; true when it differs from the one before.
    bool takeOver(ConfPathTrie &&tree, const FileStatus &status);
    void noteChanges(const ConfPathTrie &tree, const ConfPathTrie &difference);
    void noteAppLevel(const ConfPathTrie &tree);
    std::uint64_t generationOf(const Str &type) const;
    /// The changes under way, begun when there are none.
    Edit &edit();
    /// Takes down what came of an edit of the image; false when it was refused.
    bool note(MetaEdit result);
    bool setInTree(const ConfPathBase &path, const ConfPathMetadata &metadata);
    FileChangeAnswer takeFileChange();

    const BundlesSetup setup_;
    const Pathname file_;
    const ConfPathBase owner_;

    // What follows is under the lock.
    ConfLock lock_{ConfLockRank::Mapper};
    bool loaded_ = false;
    ConfPathTrie tree_;
    FileStatus status_;
    std::set<Str> exporters_; ///< apps of which something is exported to everyone
    /// From the first change to the flush; null in between.
    std::unique_ptr<Edit> edit_;
    PendingNotice notice_;
    /// Changes that concern all types, and those of one; a type's generation is the sum.
    std::uint64_t generation_ = 0;
    std::map<Str, std::uint64_t> typeGenerations_;
};

} // namespace velmox
