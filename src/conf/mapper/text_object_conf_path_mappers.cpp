#include "conf/mapper/text_object_conf_path_mappers.h"

#include "util/log/logger.h"

namespace velmox {

namespace {

Logger directLog("DirectFileConfPathMapper");
Logger modelLog("ModelConfPathMapper");

} // namespace

DirectFileConfPathMapper::DirectFileConfPathMapper(const BundleHandlerData &data)
    : JSONConfPathMapper(data, directLog, {"DirectFileConfPathMapper", {"xml", "html"}})
{
    for (const auto &[type, record] : types_) {
        log_.debug("%s: Detected initial type '%s'", pathText().c_str(), type.c_str());
    }
}

ModelConfPathMapper::ModelConfPathMapper(const BundleHandlerData &data)
    : JSONConfPathMapper(data, modelLog, {"ModelConfPathMapper", {"model"}, "models"})
{
}

} // namespace velmox
