#include "ops/mbr_edit_flow.h"

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/table_change.h"
#include "ops/target_check.h"

namespace tallowin {

bool mayGiveUpSlot(FrontEnd& ui, const MbrEditor& editor, std::size_t slot, Consent consent) {
  if (!editor.holdsGptPlaceHolder(slot)) return true;
  const std::string text =
      kPlaceHolderWarning + std::string("\n\nAre you sure you want to continue?");
  return ui.confirm(consent, "Warning", text);
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
