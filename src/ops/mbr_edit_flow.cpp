#include "ops/mbr_edit_flow.h"

#include <vector>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "ops/error_text.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "probe/disk_content.h"

namespace tallowin {

namespace {

// Without a boot signature the first sector may belong to something that fills the disk.
bool mayMakeBootSector(const OperationContext& context, Drive& drive) {
  std::vector<u8> sector(drive.sectorSize());
  if (drive.disk().readSectors(0, sector.data(), 1)) return true;  // told when it is written
  if (recordAt<MbrRecord>(std::span<const u8>(sector))->signature.isValid()) return true;
  const auto content = namedDiskContent(drive.disk());
  return !content ||
         context.ui.confirm(Consent::insist, "View MBR",
                            format("This disk (%s)\nhas no boot sector, but it holds %s.\n"
                                   "A boot sector would overwrite a part of it.\n\n"
                                   "Are you sure you want to continue?",
                                   describeDisk(drive.disk()).c_str(), content->c_str()));
}

}  // namespace

bool mayGiveUpSlot(FrontEnd& ui, const MbrEditor& editor, std::size_t slot) {
  if (!editor.holdsGptPlaceHolder(slot)) return true;
  const std::string text =
      kPlaceHolderWarning + std::string("\n\nAre you sure you want to continue?");
  return ui.confirm(Consent::insist, "Warning", text);
}

std::optional<u32> parseSignature(std::string_view text) {
  u64 value = 0;
  const std::string_view number = trim(text);
  if (!number.empty() && (!parseNumber(number, value) || value > kAllOnes32)) return std::nullopt;
  return static_cast<u32>(value);
}

FlowResult applyMbrEdit(const OperationContext& context, Drive& drive, MbrEditor& editor,
                        std::string& keptTable) {
  if (const auto stopped = refuseWhenReadOnlyDisk(context, drive)) return *stopped;
  if (!mayMakeBootSector(context, drive)) return {FlowEnd::cancelled, Error::cancelled};
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return *stopped;
  for (const SectorRegion& region : editor.givenUp())
    if (const auto stopped = refuseWhenInUse(context, drive, {region.first, region.last}))
      return *stopped;
  const Failure error = change.end(editor.apply());
  keptTable = change.keptTable();
  if (error == Error::none) return {};
  context.ui.errorBox(mbrErrorText(error));
  return {FlowEnd::failed, error};
}

}  // namespace tallowin
