// The start of a program that asks for the boot mode, as the monitor has to.
#include "util/system/windows_api.h"

int main()
{
    return GetSystemMetrics(SM_CLEANBOOT);
}
