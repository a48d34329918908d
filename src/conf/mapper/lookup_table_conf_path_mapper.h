#pragma once

#include "conf/mapper/json_conf_path_mapper.h"

namespace velmox {

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
