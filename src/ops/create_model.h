// The Create dialog: name, type, size and place of a new partition in a free block.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// Of the partition that is copied into the free block.
struct CopySourceFacts {
  u16 type = 0;
  std::string name;  // empty: it has none
  u64 sectors = 0;
  u32 sectorSizeBytes = 512;
  bool isMultiOs = false;
  std::string whyNotDeleted;   // after the copy; empty: it can be
  std::string whyNotDataOnly;  // empty: its sectors in use are enough
};

// What the dialog needs to know of the free block and its drive.
struct CreateFacts {
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive
  u32 sectorSizeBytes = 512;
  u64 alignmentUnitSectors = 1;
  bool insideExtended = false;
  bool isGpt = false;
  bool isEmbr = false;
  bool volumeLabels = true;  // the settings VolumeLabels and FullPartitionList
  bool fullPartitionList = false;
  const FileSystemKinds* fileSystems = nullptr;  // which types can be formatted; null: none
  std::optional<CopySourceFacts> copy = {};      // nothing: a new partition is made
};

// The name that a primary of an MBR disk is shown with when it has no label.
inline constexpr const char* kNewMbrEntryName = "New MBR Entry";

class CreateModel : public DialogModel {
 public:
  struct TypeChoice {
    u16 type = 0;
    std::string label;  // "decimal/hexh: name"; goes into `fileSystem` when it is chosen
  };

  explicit CreateModel(const CreateFacts& facts);

  std::string title;       // "Create - 1023 MiB Block", "Copy - 1023 MiB Block"
  std::string groupLabel;  // "Partition Information", "Volume Information"

  std::string name;
  bool nameIsOptional = false;
  // Of the file system that Format makes; without it the name is the label too.
  std::optional<std::string> label;
  Control nameControl;  // not enabled: read-only
  std::size_t nameMaxLength = 32;

  std::string fileSystem;  // as typed (131, 0x83, 0203), or the label of a choice
  Control fileSystemControl;
  std::vector<TypeChoice> fileSystemChoices;

  NumberField sizeMiB;
  // What a script asks for to the sector; the field then holds it in whole MiB.
  std::optional<u64> exactSectors;
  Control sizeControl;
  Control winNtOnlyLabel;  // "Win NT+ Only!"

  NumberField freeBeforeMiB;
  Control freeBeforeControl;
  NumberField freeAfterMiB;
  Control freeAfterControl;

  bool format = false;
  Control formatControl;
  bool multiOs = false;
  Control multiOsControl;

  // Of a copy.
  bool isCopy() const { return facts_.copy.has_value(); }
  bool deleteSource = false;
  Control deleteSourceControl;
  bool dataOnly = false;
  Control dataOnlyControl;

  // The number in `fileSystem`; 0 when there is none.
  u32 fileSystemValue() const;
  // What is to be created. All of the block when the field says so, whatever its rest of a MiB.
  u64 sizeSectors() const;
  // Free space before, or at the end of the region: see placement.h.
  u32 placement() const;

  void pass() override;
  // Runs `create`; the dialog closes when that answers true, and stays open otherwise.
  void ok() override;

  // The flow's step behind the OK button; it tells the user what is missing.
  std::function<bool()> create;

 private:
  void showSource();
  void fileSystemChanged();
  void sizeChanged();

  CreateFacts facts_;
  u32 blockMiB_ = 0;
  u32 roomMiB_ = 0;           // what free space before and after share
  u32 requestedSizeMiB_ = 0;  // what the user typed while a type limits the size; 0: none
  // The fields as the last pass left them.
  u32 seenFileSystem_ = 0;
  u32 seenSizeMiB_ = 0;
  u32 seenBeforeMiB_ = 0;
  u32 seenAfterMiB_ = 0;
};

}  // namespace tallowin
