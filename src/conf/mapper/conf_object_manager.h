#pragma once

#include "conf/mapper/conf_object_manager_db.h"

#include <functional>

namespace velmox {

/// The mapper of a metadata file. What changes there and matters beyond the file it tells to those whom it
/// concerns: to the manager of applications, and to all readers, who may see more or less of other apps.
class ConfObjectManager : public ConfObjectManagerDB
{
public:
    explicit ConfObjectManager(const BundleHandlerData &data)
        : ConfObjectManagerDB(data), observer_(data.observer)
    {
    }

    bool flush() override;
    bool reload(const Str &type) override;
    FileChangeAnswer onFileChange(WatchedFileState &state) override;

    /// Writes a copy of the file, without the stanzas of whose paths `isThere` says no, to a new file in
    /// `directory`, whose name goes to `copy`. False, with the reason in the log, on failure.
    bool filter(const Pathname &directory, const std::function<bool(const ConfPathBase &)> &isThere,
                Pathname &copy) const;

private:
    void tell();

    ConfChangeObserver &observer_;
};

} // namespace velmox
