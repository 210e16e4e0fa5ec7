// The generic nodes of SCSI devices.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/host.h"

namespace tallowin {

struct ScsiGenericDevice {
  u8 type = 0;       // SCSI peripheral type; 5 = optical
  std::string path;  // "/dev/sg0"
};

// The devices whose peripheral type is among `types`, in the kernel's order; at most 13 of the
// first 256. Empty when the kernel offers no generic nodes.
std::vector<ScsiGenericDevice> scsiGenericDevices(Host& host, std::span<const u8> types);

}  // namespace tallowin
