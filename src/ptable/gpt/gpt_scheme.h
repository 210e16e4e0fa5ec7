// The GUID Partition Table as a scheme of the partition model.
#pragma once

#include "ptable/gpt/gpt_image.h"
#include "ptable/scheme.h"

namespace tallowin {

// A disk with a protective slot and a GPT that can be read, from either copy.
class GptScheme : public TableScheme {
 public:
  Scheme kind() const override { return Scheme::gpt; }
  bool read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  Failure checkUnchanged(const TableContext& context, const PartitionTable& table) const override;
  Failure add(const TableContext& context, const NewEntry& entry,
              TrackContent content) const override;
  Failure remove(const TableContext& context, const TableEntry& entry) const override;
  Failure changeProperties(const TableContext& context, const TableEntry& entry,
                           const EntryProperties& wanted) const override;
  Failure move(const TableContext& context, const TableEntry& entry,
               const EntryMove& move) const override;
};

// A new unique GUID, different from those of all used entries of `image`.
Guid newUniqueGuid(Host& host, const GptImage& image);
// Random with the time in it; byte 0 is never 0.
Guid randomGuid(Host& host);

// Writes the image and finds out, when that failed, which table is on the disk: see
// Drive::add. `old` is what was read before the change.
Failure storeGpt(DiskDevice& disk, const GptImage& old, GptImage& image);

// See Drive::repairGpt.
Failure repairGptOn(const TableContext& context);

// Whether a slot of the boot sector says that the disk has a GPT.
bool hasProtectiveSlot(std::span<const u8> track);

}  // namespace tallowin
