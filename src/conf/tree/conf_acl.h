#pragma once

#include "util/text/str.h"

#include <map>
#include <memory>
#include <set>

namespace velmox {

class ConfAcl;
using ConfAclPtr = std::shared_ptr<const ConfAcl>;

/// Who may do what with a piece of configuration: the roles that have each capability.
///
/// Immutable and interned, so that equal permissions are one object and comparing pointers compares them.
class ConfAcl
{
public:
    /// By name of the capability; roles in lower case. The role "*" is everyone.
    using Capabilities = std::map<Str, std::set<Str>>;

    static constexpr char kRead[] = "read";
    static constexpr char kWrite[] = "write";
    static constexpr char kList[] = "list";
    static constexpr char kWriteMetadata[] = "write_metadata";

    static constexpr char kEveryoneReadsAndWrites[] = "read : [ * ], write : [ * ]";
    static constexpr char kEveryoneReads[] = "read : [ * ]";

    /// The object for a permission text such as "read : [ * ], write : [ admin, power ]"; null, with a
    /// warning in the log, when the text is none. Any thread.
    static ConfAclPtr parse(const Str &text);

    /// Made by `parse` alone.
    explicit ConfAcl(Capabilities capabilities) : capabilities_(std::move(capabilities)) {}

    /// Whether one of the roles has the capability.
    bool allows(const Str &capability, const std::set<Str> &roles) const;
    const Capabilities &capabilities() const { return capabilities_; }
    /// The permissions as `parse` reads them.
    Str toStr() const;

private:
    Capabilities capabilities_;
};

} // namespace velmox
