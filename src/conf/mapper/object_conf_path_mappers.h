#pragma once

#include "conf/mapper/json_conf_path_mapper.h"

namespace velmox {

// Mappers of files that are objects, as far as they differ from that of `.json` files: in which names are
// objects, and in what the value of one is.

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

/// Serves the files of one directory, whatever they hold. The value of an object is the path of its file;
/// what is written is the path of a file in the run directory, which is moved in.
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
