#pragma once

#include "conf/bundle_handler_data.h"
#include "conf/conf_lock.h"
#include "conf/i_conf_path_mapper.h"
#include "conf/ini_file.h"

#include <map>

namespace velmox {

/// Serves a directory of `.conf` files, one for each type, such as the `default` or `local` directory of an
/// app. A type is read when it is first asked for, and edited in an image of its own that keeps the file's
/// comments and order.
class ConfPathMapper : public IConfPathMapper
{
public:
    explicit ConfPathMapper(const BundleHandlerData &data);

    bool read(const ConfPath &path, ConfPathTrie &out, unsigned levels) override;
    bool collectGlobalExporters(std::set<Str> &) override { return false; }
    bool writeData(const ConfPath &path, const Str &value) override;
    /// Refused: metadata has files of its own.
    bool writeMetadata(const ConfPath &, const ConfPathMetadata &) override { return false; }
    bool remove(const ConfPath &path) override;
    bool search(const ConfSearch &search, ConfPathTrie &out) override;
    bool flush() override;
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;
    std::unique_ptr<ConfTypeState> newState() override { return std::make_unique<ConfTypeState>(); }
    bool hasChangedSince(const Str &type, ConfTypeState &state) override;
    Str describe() const override;

private:
    struct Type
    {
        bool loaded = false;
        ConfTypeState state;
    };
    using Types = std::map<Str, Type>;

    // All but the first group are called with the lock held.
    Str directoryText() const { return setup_.text(directory_); }
    Pathname fileOf(const Str &type) const;
    ConfPathMetadata fileMetadata(const ConfFileStatus &status) const;

    void listTypes();
    bool isOwn(const ConfPathBase &path) const;
    bool belongs(const ConfPathBase &path) const;
    bool copyOut(const ConfPathBase &path, ConfPathTrie &out, unsigned levels);
    void load(const Str &type, Type &record);
    void loadFor(const ConfPathBase &path);
    bool readFile(const Str &type, const ConfFileStatus &status, ConfPathTrie &content) const;

    ConfPathTrie &appNode() { return master_.node(ConfPathBase(user_, app_)); }
    const ConfPathTrie *typeNode(const Str &type) const;

    const BundlesSetup setup_;
    const Pathname directory_;
    const Pathname rootDirectory_;
    const Str user_;
    const Str app_;
    /// Values of a `local` directory can be removed; those below come to light then.
    const bool isLocal_;

    ConfLock lock_{ConfLockRank::Mapper};
    Types types_;
    ConfPathTrie master_; ///< what is loaded
};

} // namespace velmox
