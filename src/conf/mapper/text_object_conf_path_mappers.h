#pragma once

#include "conf/mapper/json_conf_path_mapper.h"

namespace velmox {

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

} // namespace velmox
