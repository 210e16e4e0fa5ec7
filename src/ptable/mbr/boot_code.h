// Boot code for the first 440 bytes of a disk: starts the boot sector of the active partition.
#pragma once

#include <span>

#include "disk/mbr_record.h"

namespace tallowin {

enum class BootCode {
  standard,
  measuring,  // also measures what it starts into a TPM, when the firmware has one
};

std::span<const u8, kBootCodeBytes> bootCodeBytes(BootCode code);

// Puts the code and the signature 0x55 0xAA; disk signature and slots stay.
void installBootCode(BootCode code, MbrRecord& mbr);

}  // namespace tallowin
