#include "disk/scsi_generic.h"

#include <algorithm>

#include "base/text.h"

namespace tallowin {

std::vector<ScsiGenericDevice> scsiGenericDevices(Host& host, std::span<const u8> types) {
  constexpr std::size_t kMaxDevices = 13;
  constexpr std::size_t kMaxLines = 256;
  std::vector<ScsiGenericDevice> devices;
  const std::vector<std::string> header = host.lines("/proc/scsi/sg/device_hdr");
  if (header.empty()) return devices;
  const std::vector<std::string> columns = split(header.front(), '\t');
  const auto column = static_cast<std::size_t>(
      std::find_if(columns.begin(), columns.end(),
                   [](const std::string& name) { return trim(name) == "type"; }) -
      columns.begin());
  const std::vector<std::string> lines = host.lines("/proc/scsi/sg/devices");
  for (std::size_t n = 0; n < std::min(lines.size(), kMaxLines); ++n) {
    const std::vector<std::string> values = split(lines[n], '\t');
    u64 type = 0;
    if (column >= values.size() || !parseNumber(trim(values[column]), type)) continue;
    if (std::find(types.begin(), types.end(), type) == types.end()) continue;
    devices.push_back({static_cast<u8>(type), format("/dev/sg%zu", n)});
    if (devices.size() == kMaxDevices) break;
  }
  return devices;
}

}  // namespace tallowin
