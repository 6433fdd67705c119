// What a benchmark prints about the machine it ran on: the processor's model
// and the kind of file system that held its files (memory or a disk, which
// decides what a flush to the device costs).
#pragma once

#include <filesystem>
#include <string>

namespace korvane::bench {

// The "model name" line of /proc/cpuinfo, or "unknown".
std::string cpuModel();

// The file system type of the folder that holds `path`, with "(memory)" or
// "(disk)" where that is known.
std::string fileSystemType(const std::filesystem::path& path);

}  // namespace korvane::bench
