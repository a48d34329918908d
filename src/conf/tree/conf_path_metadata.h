#pragma once

#include "conf/tree/conf_acl.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <optional>

namespace velmox {

/// Who sees a setting besides the app in which it stands.
enum class ConfExport : std::uint32_t
{
    NotSet = 0,
    None = 1,
    System = 2, ///< readers in every app
};

/// What metadata files and places on disk say about one node of the configuration. All fields are optional.
/// Copying is cheap: what may be long is shared.
struct ConfPathMetadata
{
    ConfAclPtr access;
    ConfExport exported = ConfExport::NotSet;
    /// In lower case; null when not set.
    std::shared_ptr<const Str> owner;
    std::shared_ptr<const StrVector> imports;
    /// True when the value stands in a `local` directory.
    std::optional<bool> removable;
    std::optional<Timeval> modtime;
    std::shared_ptr<const Str> version;

    /// The empty text leaves the owner unset.
    void setOwner(const Str &name);
    void setImports(StrVector apps);

    /// Whether no field is set.
    bool empty() const;
    /// Whether all fields are equal by content.
    bool operator==(const ConfPathMetadata &other) const;
    /// The same without the modification time, which every write to a file changes.
    bool equalsButTime(const ConfPathMetadata &other) const;

    /// Takes over what a deeper node sets: access, export, owner and imports only where set there, the rest
    /// as it is there.
    void overlay(const ConfPathMetadata &deeper);
    /// Takes over what is not set here yet.
    void fillFrom(const ConfPathMetadata &other);

    /// For logs.
    Str toStr() const;
};

/// Metadata that several nodes have in common.
using ConfPathMetadataPtr = std::shared_ptr<const ConfPathMetadata>;

inline ConfPathMetadataPtr shared(const ConfPathMetadata &metadata)
{
    return std::make_shared<const ConfPathMetadata>(metadata);
}

} // namespace velmox
