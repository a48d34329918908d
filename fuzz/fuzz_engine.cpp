#include "fuzz/fuzz_target.h"
#include "util/log/log_system.h"

/// What libFuzzer calls; the program links one target alone.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size);

int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    velmox::LogSystem::instance().silenceFallback();
    velmox::fuzz::Target::first->run({reinterpret_cast<const char *>(data), size});
    return 0;
}
