#pragma once

#include "conf/mapper/object_file_conf_path_mapper.h"

namespace velmox {

/// Keeps objects in `.json` files, in a directory for each type.
class JSONConfPathMapper : public ObjectFileConfPathMapper
{
public:
    explicit JSONConfPathMapper(const BundleHandlerData &data);
};

/// Serves the `.xml` and `.html` files in the directories below a path, each of which is a type. They are
/// only read.
class DirectFileConfPathMapper : public ObjectFileConfPathMapper
{
public:
    explicit DirectFileConfPathMapper(const BundleHandlerData &data);

private:
    bool isReadOnly() const override { return true; }
};

/// Keeps models, in the `.model` files of one directory; all are of the type "models".
class ModelConfPathMapper : public ObjectFileConfPathMapper
{
public:
    explicit ModelConfPathMapper(const BundleHandlerData &data);
};

} // namespace velmox
