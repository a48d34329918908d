#pragma once

#include "conf/file/ini_file.h"
#include "conf/mapper/lazy_conf_path_mapper.h"
#include "util/log/log_message.h"

namespace velmox {

/// Serves a directory of `.conf` files, one for each type, such as the `default` or `local` directory of an
/// app. A type is edited in an image of its own that keeps the file's comments and order, since people edit
/// these files too.
///
/// Readers go on seeing what is on disk until the flush, which shows them all that was written since the one
/// before at once. While a type is edited, changes that other programs make to its file are left alone: the
/// flush replaces the whole file.
class ConfPathMapper : public LazyConfPathMapper
{
public:
    explicit ConfPathMapper(const BundleHandlerData &data);

    bool writeData(const ConfPathBase &path, const Str &value) override;
    bool remove(const ConfPathBase &path) override;
    bool flush() override;
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;
    Pathname confFile(const Str &type) const override { return fileOf(type); }

private:
    /// The image in which a type is edited. It lives from the first change to the flush.
    struct Edit
    {
        IniFile image;
        /// False for an image that was loaded for a removal that found nothing: the flush leaves its file as
        /// it is.
        bool changed = false;
    };

    static constexpr char kExtension[] = "conf";

    /// To be called without the lock.
    void notifyAppChanged() const;

    /// The type's file, which need not be there.
    Pathname fileOf(const Str &type) const;
    void logWrite(LogLevel level, const ConfPathBase &path, const Str &value, const char *what) const;

    // All below are called with the lock held.
    void listTypes();
    bool readType(const Str &type, Type &record, ConfPathTrie &content) override;
    bool readFile(const Str &type, const FileStatus &status, ConfPathTrie &content) const;

    Edit *editOf(const Str &type, bool create);
    bool setInImage(const ConfPathBase &path, const Str &value);
    /// Makes sure that the type is known and its file loaded.
    void knowType(const Str &type);
    /// Writes a value into the image.
    void change(Edit &edit, const ConfPathBase &path, const Str &value);
    void setPending(const ConfPathBase &path, const Str &value);
    bool removeFromImage(const ConfPathBase &path);
    /// Does the flush, and says what is to be told when the lock is given back.
    bool flushEdits(bool &hadEdits, bool &appChanged);
    void restamp(const Str &type);

    /// Takes over what a file says by now; `appChanged` as above.
    FileChangeAnswer takeFileChange(const Pathname &file, bool &appChanged);
    FileChangeAnswer takeContent(const Str &type, Type &record, const FileStatus &status);
    FileChangeAnswer takeDeletion(const Str &type, Type &record);
    bool reloadType(const Str &type);
    bool reloadAll();

    /// By type. An entry is what tells notices and reloads that a write is under way.
    std::map<Str, Edit> edits_;
    ConfPathTrie pending_;    ///< what was written and not flushed
    bool appChanged_ = false; ///< whether app.conf is among what was changed and not flushed
};

} // namespace velmox
