#include "companion/report/report_page.h"

namespace velmox {

namespace {

// kPageHead and kPageTail.
#include "report_page.inc"

} // namespace

std::string reportPage(std::string_view data)
{
    std::string page;
    page.reserve(kPageHead.size() + data.size() + kPageTail.size());
    page += kPageHead;
    page += data;
    page += kPageTail;
    return page;
}

} // namespace velmox
