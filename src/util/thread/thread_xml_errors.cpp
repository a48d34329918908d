#include "util/thread/thread_xml_errors.h"

#include <libxml/xmlerror.h>

namespace velmox {

namespace {

// An exception must not cross the C library: a message that finds no memory is lost.

void collectStructured(void *errors, xmlErrorPtr error)
{
    try {
        if (error->message != nullptr) {
            static_cast<Str *>(errors)->append(error->message);
        }
    } catch (...) {
    }
}

void collectGeneric(void *errors, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    try {
        static_cast<Str *>(errors)->vappendFormat(fmt, args);
    } catch (...) {
    }
    va_end(args);
}

} // namespace

void collectXmlErrors(Str &errors)
{
    xmlSetStructuredErrorFunc(&errors, collectStructured);
    xmlSetGenericErrorFunc(&errors, collectGeneric);
}

} // namespace velmox
