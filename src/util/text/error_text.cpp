#include "util/text/platform.h"
#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <iterator>

namespace velmox {

namespace {

constexpr unsigned kFirstDirectoryError = 0x80005000;
constexpr unsigned kFirstManagementError = 0x80041001;

/// Active Directory Service Interfaces, the codes of adserr.h in their order.
constexpr std::string_view kDirectoryErrors[] = {
    "An invalid ADSI path name was passed.",
    "An unknown ADSI domain object was requested.",
    "An unknown ADSI user object was requested.",
    "An unknown ADSI computer object was requested.",
    "An unknown ADSI object was requested.",
    "The specified ADSI property was not set.",
    "The specified ADSI property is not supported.",
    "The specified ADSI property is invalid.",
    "One or more input parameters are invalid.",
    "The specified ADSI object is not bound to a remote resource.",
    "The specified ADSI object has not been modified.",
    "The specified ADSI object has been modified.",
    "The data type cannot be converted to/from a native DS data type.",
    "The ADSI property cannot be found in the cache.",
    "The ADSI object exists.",
    "The attempted action violates the directory service schema rules.",
    "The specified column in the ADSI was not set.",
    "One or more errors occurred.",
    "The search operation has reached the last row.",
    "The search operation has reached the last column for the current row.",
    "The specified search filter is invalid.",
};
static_assert(std::size(kDirectoryErrors) == 0x80005014 - kFirstDirectoryError + 1);

/// Windows Management Instrumentation, the codes of wbemcli.h in their order; a code not given out has no
/// text.
constexpr std::string_view kManagementErrors[] = {
    // 0x80041001
    "Call failed.",
    "Object cannot be found.",
    "Current user does not have permission to perform the action.",
    "Provider has failed at some time other than during initialization.",
    "Type mismatch occurred.",
    "Not enough memory for the operation.",
    "The IWbemContext object is not valid.",
    "One of the parameters to the call is not correct.",
    "Resource, typically a remote server, is not currently available.",
    "Internal, critical, and unexpected error occurred. Report the error to Microsoft Technical Support.",
    "One or more network packets were corrupted during a remote session.",
    "Feature or operation is not supported.",
    "Parent class specified is not valid.",
    "Namespace specified cannot be found.",
    "Specified instance is not valid.",
    // 0x80041010
    "Specified class is not valid.",
    "Provider referenced in the schema does not have a corresponding registration.",
    "Provider referenced in the schema has an incorrect or incomplete registration.",
    "COM cannot locate a provider referenced in the schema.",
    "Component, such as a provider, failed to initialize for internal reasons.",
    "Networking error that prevents normal operation has occurred.",
    "Requested operation is not valid. This error usually applies to invalid attempts to delete classes or "
    "properties.",
    "Query was not syntactically valid.",
    "Requested query language is not supported.",
    "In a put operation, the wbemChangeFlagCreateOnly flag was specified, but the instance already exists.",
    "Not possible to perform the add operation on this qualifier because the owning object does not permit "
    "overrides.",
    "User attempted to delete a qualifier that was not owned. The qualifier was inherited from a parent "
    "class.",
    "User attempted to delete a property that was not owned. The property was inherited from a parent class.",
    "Client made an unexpected and illegal sequence of calls, such as calling EndEnumeration before calling "
    "BeginEnumeration.",
    "User requested an illegal operation, such as spawning a class from an instance.",
    "Illegal attempt to specify a key qualifier on a property that cannot be a key. The keys are specified "
    "in the class definition for an object and cannot be altered on a per-instance basis.",
    // 0x80041020
    "Current object is not a valid class definition. Either it is incomplete or it has not been registered "
    "with WMI using SWbemObject.Put_.",
    "Query is syntactically not valid.",
    "Reserved for future use.",
    "An attempt was made to modify a read-only property.",
    "Provider cannot perform the requested operation. This can include a query that is too complex, "
    "retrieving an instance, creating or updating a class, deleting a class, or enumerating a class.",
    "Attempt was made to make a change that invalidates a subclass.",
    "Attempt was made to delete or modify a class that has instances.",
    "Reserved for future use.",
    "Value of Nothing/NULL was specified for a property that must have a value, such as one that is marked "
    "by a Key, Indexed, or Not_Null qualifier.",
    "Variant value for a qualifier was provided that is not a legal qualifier type.",
    "CIM type specified for a property is not valid.",
    "Request was made with an out-of-range value or it is incompatible with the type.",
    "Illegal attempt was made to make a class singleton, such as when the class is derived from a "
    "non-singleton class.",
    "CIM type specified is not valid.",
    "Requested method is not available.",
    "Parameters provided for the method are not valid.",
    // 0x80041030
    "There was an attempt to get qualifiers on a system property.",
    "Property type is not recognized.",
    "Asynchronous process has been canceled internally or by the user. Note that due to the timing and "
    "nature of the asynchronous operation, the operation may not have been truly canceled.",
    "User has requested an operation while WMI is in the process of shutting down.",
    "Attempt was made to reuse an existing method name from a parent class and the signatures do not match.",
    "One or more parameter values, such as a query text, is too complex or unsupported. WMI is therefore "
    "requested to retry the operation with simpler parameters.",
    "Parameter was missing from the method call.",
    "Method parameter has an ID qualifier that is not valid.",
    "One or more of the method parameters have ID qualifiers that are out of sequence.",
    "Return value for a method has an ID qualifier.",
    "Specified object path was not valid.",
    "Disk is out of space or the 4 GB limit on WMI repository (CIM repository) size is reached.",
    "Supplied buffer was too small to hold all of the objects in the enumerator or to read a string "
    "property.",
    "Provider does not support the requested put operation.",
    "Object with an incorrect type or version was encountered during marshaling.",
    "Packet with an incorrect type or version was encountered during marshaling.",
    // 0x80041040
    "Packet has an unsupported version.",
    "Packet appears to be corrupt.",
    "Attempt was made to mismatch qualifiers, such as putting [key] on an object instead of a property.",
    "Duplicate parameter was declared in a CIM method.",
    "Reserved for future use.",
    "Call to IWbemObjectSink::Indicate has failed. The provider can refire the event.",
    "Specified qualifier flavor was not valid.",
    "Attempt was made to create a reference that is circular (for example, deriving a class from itself).",
    "Specified class is not supported.",
    "Attempt was made to change a key when instances or subclasses are already using the key.",
    "",
    "",
    "",
    "",
    "",
    "",
    // 0x80041050
    "An attempt was made to change an index when instances or subclasses are already using the index.",
    "Attempt was made to create more properties than the current version of the class supports.",
    "Property was redefined with a conflicting type in a derived class.",
    "Attempt was made in a derived class to override a qualifier that cannot be overridden.",
    "Method was re-declared with a conflicting signature in a derived class.",
    "Attempt was made to execute a method not marked with [implemented] in any relevant class.",
    "Attempt was made to execute a method marked with [disabled].",
    "Refresher is busy with another operation.",
    "Filtering query is syntactically not valid.",
    "The FROM clause of a filtering query references a class that is not an event class (not derived from "
    "__Event).",
    "A GROUP BY clause was used without the corresponding GROUP WITHIN clause.",
    "A GROUP BY clause was used. Aggregation on all properties is not supported.",
    "Dot notation was used on a property that is not an embedded object.",
    "A GROUP BY clause references a property that is an embedded object without using dot notation.",
    "",
    "Event provider registration query (__EventProviderRegistration) did not specify the classes for which "
    "events were provided.",
    // 0x80041060
    "Request was made to back up or restore the repository while it was in use by WinMgmt.exe, or by the "
    "SVCHOST process that contains the WMI service.",
    "Asynchronous delivery queue overflowed from the event consumer being too slow.",
    "Operation failed because the client did not have the necessary security privilege.",
    "Operator is not valid for this property type.",
    "User specified a username/password/authority on a local connection. The user must use a blank "
    "username/password and rely on default security.",
    "Class was made abstract when its parent class is not abstract.",
    "Amended object was written without the WBEM_FLAG_USE_AMENDED_QUALIFIERS flag being specified.",
    "Client did not retrieve objects quickly enough from an enumeration. This constant is returned when a "
    "client creates an enumeration object, but does not retrieve objects from the enumerator in a timely "
    "fashion, causing the enumerator's object caches to back up.",
    "Null security descriptor was used.",
    "Operation timed out.",
    "Association is not valid.",
    "Operation was ambiguous.",
    "WMI is taking up too much memory. This can be caused by low memory availability or excessive memory "
    "consumption by WMI.",
    "Operation resulted in a transaction conflict.",
    "Transaction forced a rollback.",
    "Locale used in the call is not supported.",
    // 0x80041070
    "Object handle is out-of-date.",
    "Connection to the SQL database failed.",
    "Handle request was not valid.",
    "Property name contains more than 255 characters.",
    "Class name contains more than 255 characters.",
    "Method name contains more than 255 characters.",
    "Qualifier name contains more than 255 characters.",
    "The SQL command must be rerun because there is a deadlock in SQL. This can be returned only when data "
    "is being stored in an SQL database.",
    "The database version does not match the version that the repository driver processes.",
    "WMI cannot execute the delete operation because the provider does not allow it.",
    "WMI cannot execute the put operation because the provider does not allow it.",
    "",
    "",
    "",
    "",
    "",
    // 0x80041080
    "Specified locale identifier was not valid for the operation.",
    "Provider is suspended.",
    "Object must be written to the WMI repository and retrieved again before the requested operation can "
    "succeed. This constant is returned when an object must be committed and retrieved to see the property "
    "value.",
    "Operation cannot be completed; no schema is available.",
    "Provider cannot be registered because it is already registered.",
    "Provider was not registered.",
    "A fatal transport error occurred.",
    "User attempted to set a computer name or domain without an encrypted connection.",
    "A provider failed to report results within the specified timeout.",
    "User attempted to put an instance with no defined key.",
    "User attempted to register a provider instance but the COM server for the provider instance was "
    "unloaded.",
};
static_assert(std::size(kManagementErrors) == 0x8004108A - kFirstManagementError + 1);

/// The platform's published English description of a directory service error (0x80005000 to 0x80005014) or a
/// management instrumentation error (0x80041001 to 0x8004108A), which the system's own message table lacks;
/// empty for any other code.
std::string_view componentErrorText(unsigned error)
{
    if (error >= kFirstDirectoryError && error - kFirstDirectoryError < std::size(kDirectoryErrors)) {
        return kDirectoryErrors[error - kFirstDirectoryError];
    }
    if (error >= kFirstManagementError && error - kFirstManagementError < std::size(kManagementErrors)) {
        return kManagementErrors[error - kFirstManagementError];
    }
    return {};
}

/// The longest message that is taken over, in 16-bit units.
constexpr std::size_t kLongestMessage = 2048;

void cutLineEnds(WideStr &text)
{
    while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n')) {
        text.pop_back();
    }
}

/// What is said of a code that the system's message table lacks.
void appendUnknown(unsigned error, Str &out)
{
    const std::string_view known = componentErrorText(error);
    // People search their logs for these words, the name of the call included.
    if (known.empty()) {
        out.appendFormat("FormatMessage was unable to decode error (%lu), (0x%x)",
                         static_cast<unsigned long>(error), error);
    } else {
        out.append(known);
    }
}

} // namespace

void Str::appendErrorText(unsigned error)
{
    WideStr message;
    // The system is asked first also for codes that the tables know: a machine that has a text of its own for
    // them, in its own language, is believed.
    if (!platform::systemMessage(error, message)) {
        appendUnknown(error, *this);
        return;
    }
    cutLineEnds(message);
    if (message.size() > kLongestMessage) {
        appendFormat("FormatMessage returned a %u character result!", static_cast<unsigned>(message.size()));
    } else {
        appendUtf16(message.data(), message.size());
    }
}

} // namespace velmox
