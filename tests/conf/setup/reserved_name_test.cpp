#include "conf/setup/reserved_name.h"

namespace velmox {
namespace {

TEST(ReservedName, NamesAreKnownInAnyCaseAndWithAnExtension)
{
    for (const char *device :
         {"con",  "PRN",  "Aux",     "nul",      "CONIN$", "conout$", "com1", "COM9", "lpt1",  "Lpt9",
          "COM¹", "lpt³", "con.txt", "nul .a.b", "com1  ", "aux.",    ".",    "..",   "anna.", "anna "}) {
        EXPECT_TRUE(isReservedName(device)) << device;
    }
    for (const char *name : {"", "co", "con1", "com", "com0", "com10", "lpt", "lpt⁴", "xcon", "con_", " con",
                             ".con", "console.txt", "comx", "clock$"}) {
        EXPECT_FALSE(isReservedName(name)) << name;
    }
}

} // namespace
} // namespace velmox
