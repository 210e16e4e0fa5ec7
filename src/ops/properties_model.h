// The Properties dialog of one partition or volume.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "ops/dialog_model.h"

namespace tallowin {

// What the dialog shows of the partition and its disk.
struct PropertiesFacts {
  u16 id = 0;
  u16 type = 0;
  u16 tableType = 0;  // 0xED for a volume whose real type stands in its EBR
  bool isVolume = false;
  bool isGpt = false;
  Guid typeGuid;    // GPT
  Guid uniqueGuid;  // GPT
  std::string name;
  std::size_t nameMaxLength = 32;
  std::string whyNameIsFixed;  // empty: it may change
  u64 startSector = 0;
  u64 endSector = 0;  // inclusive
  u32 sectorSizeBytes = 512;
  bool hasEndField = false;
  u64 attributes = 0;
  struct Flag {
    std::string label;
    u64 mask = 0;
  };
  std::vector<Flag> flags;         // empty: entries of this table have none
  std::vector<std::string> lines;  // property_lines.h
  bool hasDetails = false;
  bool isExtended = false;
};

class PropertiesModel : public DialogModel {
 public:
  explicit PropertiesModel(const PropertiesFacts& facts);

  std::string title;       // "Properties (1) "
  std::string groupLabel;  // "Partition Information", "Volume Information"

  std::string name;
  Control nameControl;
  std::size_t nameMaxLength = 32;

  std::string typeLabel;  // "File &System", on a GPT "&Type"
  // A number as Create takes it, or on a GPT the name of a type or a GUID.
  std::string typeText;
  std::vector<std::string> typeChoices;

  std::string sizeLine;
  std::string startLine;
  std::string endLine;
  std::string endText;  // when endControl is shown, in place of the line
  Control endControl;

  struct Flag {
    std::string label;
    bool isSet = false;
  };
  std::vector<Flag> flags;
  Control flagsControl;

  std::vector<std::string> lines;

  Control detailsControl;  // "&Details"
  Control hideControl;
  std::string hideLabel;  // "&Hide", "Un&hide"
  Control recalcControl;  // "&Recalc V-CHS"

  // The number in `typeText`; 0 when there is none.
  u32 typeValue() const;
  // The GUID that `typeText` names; nothing when it is none.
  std::optional<Guid> typeGuidValue() const;
  // All flags that are ticked, and bits that no row shows.
  u64 attributes() const;
  void toggleFlag(std::size_t row);
  // The button puts the hidden form of the type, or the shown one, into the field.
  void pressHide();

  void pass() override;
  // Runs `apply`; the dialog closes when that answers true.
  void ok() override;

  // The flow's steps behind the buttons.
  std::function<bool()> apply;
  std::function<void()> details;
  std::function<void()> recalc;

 private:
  void hideChanged();

  PropertiesFacts facts_;
};

}  // namespace tallowin
