#include "ptable/mbr/mbr_edit.h"

#include <algorithm>

#include "probe/type_catalogue.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/mbr/slot.h"
#include "ptable/scheme.h"

namespace tallowin {

void makeSlotsUsable(MbrRecord& mbr) {
  if (mbr.signature.isValid()) return;
  for (MbrSlotRecord& slot : mbr.slots) slot.clear();
  installBootCode(BootCode::standard, mbr);
}

u32 randomDiskSignature(Host& host) {
  std::array<u8, 4> bytes{};
  host.randomBytes(bytes);
  if (bytes[0] == 0) bytes[0] = 1;
  return *recordAt<Le32>(std::span<const u8>(bytes));
}

}  // namespace tallowin
