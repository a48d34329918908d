#pragma once

#include "conf/mapper/conf_object_manager_db.h"

namespace velmox {

/// The mapper of a metadata file. What changes there and matters beyond the file it tells to those whom it
/// concerns: to the manager of applications, and to all readers, who may see more or less of other apps.
class ConfObjectManager : public ConfObjectManagerDB
{
public:
    using ConfObjectManagerDB::ConfObjectManagerDB;

    bool flush() override;
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;

    /// Writes a copy of the file, without the stanzas of what is no longer there, to a new file in
    /// `directory`, whose name goes to `copy`. False, with the reason in the log, on failure.
    bool filter(const Pathname &directory, Pathname &copy) const;

private:
    void tell();
    bool isObjectThere(const ConfPathBase &path) const;
};

} // namespace velmox
