// An ISO 9660 volume as its descriptors state it.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "disk/sector_range.h"
#include "iso/iso_record.h"

namespace tallowin {

// A run of sectors of 2048 bytes.
struct IsoExtent {
  u32 sector = 0;
  u32 bytes = 0;
};

struct IsoVolume {
  SectorRange range;
  u64 sectors = 0;  // that can be read, counted from the start of the range
  IsoExtent root = {};
  bool isJoliet = false;
  std::string label = {};  // UTF-8
  u32 serial = 0;          // a sum over the primary descriptor
  u32 usedSectors = 0;

  // Whole sectors of 2048 bytes. read; corrupt: they do not lie in the volume.
  Failure readSectors(u64 sector, std::span<u8> bytes) const;
  bool isInside(const IsoExtent& extent) const {
    return extent.sector <= sectors &&
           (u64{extent.bytes} + kIsoSectorBytes - 1) / kIsoSectorBytes <= sectors - extent.sector;
  }
};

// The volume of the last session that begins in the range. A Joliet root is taken where there is
// one. invalidVolume: none is there; read. `volume` is set only on success.
Failure openIso(const SectorRange& range, std::optional<IsoVolume>& volume);

// Names on the disc: UCS-2 of Joliet, else bytes, without the version and without a dot before it.
std::u16string isoNameOf(std::span<const u8> bytes, bool isJoliet);

}  // namespace tallowin
