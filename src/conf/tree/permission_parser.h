#pragma once

#include "conf/tree/conf_acl.h"

namespace velmox {

/// Reads a permission text such as "read : [ * ], write : [ admin, power ]". Names and roles lose the blanks
/// around them; roles are decoded from their URL form and lowered. False, with the reason in the log as a
/// warning, when the text is malformed. A role that decodes to no valid text is left out, with an error in
/// the log.
bool parsePermissions(const Str &text, ConfAcl::Capabilities &out);

/// The text that reads back as `capabilities`.
Str permissionText(const ConfAcl::Capabilities &capabilities);

} // namespace velmox
