// The processor's model from /proc/cpuinfo and a file system's type from
// statfs.
#include "bench/support/MachineInfo.h"

#include <linux/magic.h>
#include <sys/statfs.h>

#include <cstdio>
#include <fstream>

namespace korvane::bench {

std::string cpuModel() {
  std::ifstream info("/proc/cpuinfo");
  std::string line;
  while (std::getline(info, line)) {
    if (line.rfind("model name", 0) != 0) continue;
    const auto colon = line.find(':');
    if (colon == std::string::npos) break;
    const auto start = line.find_first_not_of(" \t", colon + 1);
    return start == std::string::npos ? std::string() : line.substr(start);
  }
  return "unknown";
}

std::string fileSystemType(const std::filesystem::path& path) {
  struct statfs info {};
  if (::statfs(path.c_str(), &info) != 0) return "unknown";
  switch (static_cast<unsigned long>(info.f_type)) {
    case TMPFS_MAGIC:
      return "tmpfs (memory)";
    case RAMFS_MAGIC:
      return "ramfs (memory)";
    case EXT4_SUPER_MAGIC:
      return "ext2/3/4 (disk)";
    case XFS_SUPER_MAGIC:
      return "xfs (disk)";
    case BTRFS_SUPER_MAGIC:
      return "btrfs (disk)";
    case OVERLAYFS_SUPER_MAGIC:
      return "overlayfs";
    default:
      break;
  }
  char hex[32];
  std::snprintf(hex, sizeof hex, "type 0x%lx", static_cast<unsigned long>(info.f_type));
  return hex;
}

}  // namespace korvane::bench
