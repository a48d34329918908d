#pragma once

#include "conf/mapper/conf_object_manager_db.h"

#include <functional>

namespace velmox {

/// The mapper of a metadata file. What an app exports decides what readers in other apps see, and what it
/// imports belongs to the register of apps: whoever observes the mappers is told of such changes, after the
/// file was written here or found to be changed.
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
    /// `directory`, whose name goes to `copy`. False, with the reason in the log and nothing left behind, on
    /// failure.
    ///
    /// When stanzas were left out, the copy bears the latest of the modification times that the others tell
    /// of themselves, if they do: so it stays the same copy while only the objects that are gone change.
    bool filter(const Pathname &directory, const std::function<bool(const ConfPathBase &)> &isThere,
                Pathname &copy) const;

private:
    /// To be called without the lock, after each operation that can have changed the tree: the observer may
    /// ask all mappers, this one too.
    void notifyObserver();
    std::optional<Timeval> latestIn(const Pathname &file) const;

    ConfChangeObserver &observer_;
};

} // namespace velmox
