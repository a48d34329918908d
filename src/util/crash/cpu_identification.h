#pragma once

namespace velmox {

class CrashSink;

/// Writes one line: maker, brand, family, model, stepping and the number of processors.
void writeCpuIdentification(CrashSink &sink);

} // namespace velmox
