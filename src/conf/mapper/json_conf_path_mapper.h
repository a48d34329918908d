#pragma once

#include "conf/mapper/lazy_conf_path_mapper.h"

#include <optional>

namespace velmox {

/// Keeps one `.json` file for each object: the path's type names the directory and its stanza the file. A
/// file has one value and no keys; what is in it is nobody's business here. Changes reach the disk at once,
/// since there is no second value that would have to go with them. The mappers of other kinds of files that
/// are objects derive from it and tell how theirs differ.
class JSONConfPathMapper : public LazyConfPathMapper
{
public:
    explicit JSONConfPathMapper(const BundleHandlerData &data);

    /// Throws ConfPathDirectoryTraversalException for a stanza that would lead out of its directory.
    bool writeData(const ConfPathBase &path, const Str &value) override;
    /// Throws as `writeData` does.
    bool remove(const ConfPathBase &path) override;
    bool flush() override { return true; }
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;

protected:
    /// Which files are objects.
    struct Form
    {
        const char *className;
        /// Their extensions, the first that of new files. None when any file is one, by its whole name.
        StrVector extensions;
        /// The type of all files of the path. Empty where each directory in it is a type.
        Str onlyType = Str();
    };

    JSONConfPathMapper(const BundleHandlerData &data, Logger &log, const Form &form);

private:
    struct Object
    {
        Str type;
        Str stanza;
    };

    virtual bool isReadOnly() const { return false; }
    /// The value of a file. False, logged, when there is none to be had.
    virtual bool readObject(const Pathname &file, Str &value) const;
    /// Whether `value` is what the file held when `known` was read.
    virtual bool isUnchanged(const ConfPathTrie &known, const Str &value, const FileStatus &status) const;
    /// Gives the file a value, which becomes that by which it is read. False, logged, on failure.
    virtual bool writeObject(const Pathname &file, Str &value) const;

    StrVector listTypes() const;
    bool isType(const Str &type) const;
    Pathname directoryOf(const Str &type) const;
    /// Empty for the name of a file that is no object.
    Str stanzaOf(const Pathname &name) const;
    Pathname fileOf(const ConfPathBase &path) const;
    /// False, logged, when the path names no object of this mapper, or this run changes none. `request` says
    /// in the log what was to be done: "write to" or "remove".
    bool canChange(const ConfPathBase &path, const char *request) const;
    /// Nothing for a file that is no object of this mapper.
    std::optional<Object> objectOf(const Pathname &file) const;

    // Called with the lock held.
    bool readType(const Str &type, Type &record, ConfPathTrie &content) override;
    bool holds(const Pathname &file, const ConfPathBase &path, const Str &value) const;
    void take(ConfPathTrie &node, const Str &value, const FileStatus &status) const;
    FileChangeAnswer takeContent(const Pathname &file, const Object &object);
    FileChangeAnswer takeDeletion(const Pathname &file, const Object &object);
    bool reloadType(const Str &type);
    bool reloadAll();

    const Form form_;
};

/// Serves the `.xml` and `.html` files in the directories below a path, each of which is a type. They are
/// only read.
class DirectFileConfPathMapper : public JSONConfPathMapper
{
public:
    explicit DirectFileConfPathMapper(const BundleHandlerData &data);

private:
    bool isReadOnly() const override { return true; }
};

/// Keeps models, in the `.model` files of one directory; all are of the type "models".
class ModelConfPathMapper : public JSONConfPathMapper
{
public:
    explicit ModelConfPathMapper(const BundleHandlerData &data);
};

/// Serves the files of one directory, whatever they hold. The value of an object is the path of its file, as
/// tables may be too large to be carried about; what is written is the path of a file in the run directory,
/// which is moved in.
class LookupTableConfPathMapper : public JSONConfPathMapper
{
public:
    /// All objects are of the type that bears the handler's name.
    LookupTableConfPathMapper(const BundleHandlerData &data, const Str &handler);

    Str describe() const override;

private:
    bool readObject(const Pathname &file, Str &value) const override;
    bool isUnchanged(const ConfPathTrie &known, const Str &value, const FileStatus &status) const override;
    bool writeObject(const Pathname &file, Str &value) const override;

    const Str type_;
};

} // namespace velmox
