#include "app/enabled_actions.h"

#include "probe/gpt_type_guids.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kMoveBits = kCopyBit | kSlideBit;

u32 actionsOfType(u16 type, const FileSystemKind* kind, u32 trimBit) {
  const u32 always = kDeleteBit | kPropertiesBit;
  if (types::isExtended(type)) return always | kMoveBits | kResizeBit;
  const u32 dataBits = always | kMoveBits | kResizeBit | kEditFileBit | trimBit;
  if (kind)
    return dataBits | (kind->format ? kFormatBit : 0) | (kind->alignsForNtfs ? kAlignBit : 0);
  if (types::isNtfs(type)) return dataBits | kFormatBit | kBcdEditBit;
  if (type == types::kLinux) return dataBits;
  if (type == types::kLinuxSwap || type == 0xAF || type == 0xEB) return always | kMoveBits;
  return always;
}

u32 actionsOfFreeBlock(const PartitionEntry& block, const ActionFacts& facts, u32 trimBit) {
  const bool fits = facts.pendingCopySectors <= block.sectorCount();
  return kCreateBit | kDeleteBit | trimBit | (fits ? kPasteBit : 0) |
         (facts.holdsNothing ? kFormatBit : 0);
}

bool hasBrokenChain(const PartitionEntry& entry) {
  const auto* table = dynamic_cast<const TableEntry*>(&entry);
  return table && table->volumes && table->volumes->isInError();
}

bool isEfiSystem(const PartitionEntry& entry) { return entry.typeGuid == kGptEfiSystem; }

}  // namespace

u32 enabledActions(const FileSystemKinds& kinds, const PartitionEntry& entry,
                   const ActionFacts& facts) {
  const u32 trimBit = facts.canTrim ? kTrimBit : 0;
  if (entry.isFree()) return actionsOfFreeBlock(entry, facts, trimBit);
  u32 bits = actionsOfType(types::unhide(entry.type), kindOf(kinds, entry), trimBit);
  if (mayHoldAnyKind(kinds, entry)) bits |= kFormatBit;
  if (facts.holdsFiles) bits |= kEditFileBit;
  if (facts.isGpt && isEfiSystem(entry)) bits |= kBcdEditBit;
  if (entry.isInError() || hasBrokenChain(entry)) bits &= kDeleteBit | kPropertiesBit;
  return bits;
}

}  // namespace tallowin
