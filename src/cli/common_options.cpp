#include "cli/common_options.h"

#include "cli/values.h"

namespace tallowin {
namespace {

std::optional<std::string> parseFolder(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional(std::string(text));
}

}  // namespace

void declareTarget(OptionSet& options, CommonOptions& common) {
  options.text("TARGET", "TEXT", common.target, "Block device or image file (raw, VHD, VMDK)")
      .required();
  options.value("--sector-size", "B", common.sectorSizeBytes, parseSectorSize,
                "a sector size: 512, 1024, 2048, 4096",
                "Sector size of an image; by default 512, unless the image proves another");
}

DeclaredOption declareOptionalPart(OptionSet& options, CommonOptions& common) {
  return options.value(
      "--part", "N", common.part, parseCount, "a partition's number",
      "Partition: its number in the list (the kernel's, or the id on an EMBR disk)");
}

void declarePart(OptionSet& options, CommonOptions& common) {
  declareOptionalPart(options, common).required();
}

void declareConsent(OptionSet& options, CommonOptions& common) {
  options.flag("--yes", common.yes, "Answer the confirmations");
}

void declareWriting(OptionSet& options, CommonOptions& common) {
  declareConsent(options, common);
  options.flag("--rehearse", common.rehearse,
               "Do it on a copy-on-write overlay, say what would be written, change nothing");
  const DeclaredOption keep =
      options.value("--keep-table", "DIR", common.keepTableIn, parseFolder, "a folder",
                    "The folder that keeps a copy of the old partition table");
  options.flag("--no-keep-table", common.keepNoTable, "Keep no copy of the old partition table")
      .excludes(keep);
}

void declareOutput(OptionSet& options, CommonOptions& common) {
  options.flag("--json", common.json, "One JSON object on standard output");
  options.flag("--quiet", common.quiet, "No progress");
  options.flag("--nd,--no-devices", common.hideDevices, "Keep off this machine's own devices");
}

}  // namespace tallowin
