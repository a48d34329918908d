#pragma once

#include "conf/bundle_handler_data.h"
#include "conf/conf_lock.h"
#include "conf/i_conf_path_mapper.h"
#include "conf/ini_file.h"
#include "util/log_level.h"

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

    /// The image in which a type is edited. It lives from the first change to the flush.
    struct Edit
    {
        IniFile image;
        bool changed = false;
    };

    Str directoryText() const { return setup_.text(directory_); }
    Pathname fileOf(const Str &type) const;
    ConfPathMetadata fileMetadata(const ConfFileStatus &status) const;
    bool isOwn(const ConfPathBase &path) const;
    static bool isFileName(const Str &type);

    // All below are called with the lock held.
    bool belongs(const ConfPathBase &path) const;
    ConfPathTrie &appNode() { return master_.node(ConfPathBase(user_, app_)); }
    bool copyOut(const ConfPathBase &path, ConfPathTrie &out, unsigned levels);

    void listTypes();
    void loadFor(const ConfPathBase &path);
    void load(const Str &type, Type &record);
    bool readFile(const Str &type, const ConfFileStatus &status, ConfPathTrie &content) const;

    Edit *editOf(const Str &type, bool create);
    void knowType(const Str &type);
    void change(Edit &edit, const ConfPathBase &path, const Str &value);
    void setPending(const ConfPathBase &path, const Str &value);
    bool removeFromImage(const ConfPathBase &path);
    void restamp(const Str &type);
    void logWrite(LogLevel level, const ConfPathBase &path, const Str &value, const char *what) const;

    FileChangeAnswer takeFileChange(const Pathname &file, bool &appChanged);
    FileChangeAnswer takeContent(const Str &type, Type &record, const ConfFileStatus &status);
    FileChangeAnswer takeDeletion(const Str &type, Type &record);
    bool reloadType(const Str &type);
    bool reloadAll();

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
    std::map<Str, Edit> edits_;
    ConfPathTrie pending_; ///< what was written and not flushed
};

} // namespace velmox
