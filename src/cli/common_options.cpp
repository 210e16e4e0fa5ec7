#include "cli/common_options.h"

#include "cli/values.h"

namespace tallowin {

void declareTarget(OptionSet& options, CommonOptions& common) {
  options.text("TARGET", "TEXT", common.target, "Block device or image file (raw, VHD, VMDK)")
      .required();
}

DeclaredOption declareOptionalPart(OptionSet& options, CommonOptions& common) {
  return options.value(
      "--part", "N", common.part, parseCount, "a partition's number",
      "Partition: its number in the list (the kernel's, or the id on an EMBR disk)");
}

void declarePart(OptionSet& options, CommonOptions& common) {
  declareOptionalPart(options, common).required();
}

void declareWriting(OptionSet& options, CommonOptions& common) {
  options.flag("--yes", common.yes, "Answer the confirmations");
  options.flag("--rehearse", common.rehearse,
               "Do it on a copy-on-write overlay, say what would be written, change nothing");
}

void declareOutput(OptionSet& options, CommonOptions& common) {
  options.flag("--json", common.json, "One JSON object on standard output");
  options.flag("--quiet", common.quiet, "No progress");
  options.flag("--nd,--no-devices", common.hideDevices, "Keep off this machine's own devices");
}

}  // namespace tallowin
