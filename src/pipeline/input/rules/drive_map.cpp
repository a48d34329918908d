#include "pipeline/input/rules/drive_map.h"

namespace velmox {

namespace {

/// Looks at the prefix alone; to fold whole paths would cost more than the comparison.
bool startsWithCaseless(const Str &text, const Str &prefix)
{
    return text.size() >= prefix.size() &&
           Str::compareCaseless(text.data(), prefix.size(), prefix.data(), prefix.size()) == 0;
}

} // namespace

const DriveMappings &DriveMap::mappings()
{
    if (mappings_.empty() && fill_ != nullptr) {
        fill_(mappings_);
    }
    return mappings_;
}

/// All but the drive stays as it was written: letters are folded where the pattern is compiled.
Str DriveMap::translateProcessDrive(const Str &proc)
{
    for (const DriveMapping &mapping : mappings()) {
        if (startsWithCaseless(proc, mapping.drive)) {
            Str device = mapping.device;
            device.replaceAll("\\", "\\\\");
            return Str::concat(device, proc.substr(mapping.drive.size()));
        }
    }
    return proc;
}

Str DriveMap::deviceToDrive(const Str &path)
{
    for (const DriveMapping &mapping : mappings()) {
        if (startsWithCaseless(path, mapping.device)) {
            return Str::concat(mapping.drive, path.substr(mapping.device.size()));
        }
    }
    return path;
}

} // namespace velmox
