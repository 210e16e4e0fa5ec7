// `FileSystemKind`: what the program can do with one kind of file system, as a row that the folder
// of its engine registers.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/geometry.h"
#include "base/guid.h"
#include "base/job.h"
#include "disk/sector_range.h"
#include "probe/identify.h"

namespace tallowin {

// Everything that is asked before a format begins.
struct FormatWish {
  u16 type = 0;          // of the partition: decides what the kind leaves open
  u32 clusterBytes = 0;  // 0 automatic
  std::string label;     // empty: none
  u32 codePage = 437;    // as OpenWish::codePage
  bool surfaceScan = false;
  bool alignForNtfs = false;  // the data area begins on a multiple of 4 KiB of the range

  // What a boot sector says of its place.
  Geometry geometry;
  u64 hiddenSectors = 0;
  std::optional<u8> driveNumber;  // of the firmware; without one the usual for the size
  u64 secondsSinceEpoch = 0;      // serial numbers come from it
};

struct FormatReport {
  bool touched = false;  // something of the range was written, or may have been
  bool scanStopped = false;
  u64 badClusters = 0;   // marked by the scan
  u64 usedClusters = 0;  // of the empty file system, for its own needs
  // What could not be made as it was wished for, a sentence each.
  std::vector<std::string> notes;
};

// What `info` tells.
struct FileSystemFacts {
  struct Number {
    const char* key;  // for scripts
    u64 value;
  };
  std::string name;            // "FAT32"
  std::string storedTypeText;  // as the boot sector spells it; may be empty
  std::string label;           // may be empty
  std::optional<u32> serial;
  u32 clusterBytes = 0;
  u64 clusters = 0;
  u64 freeClusters = 0;  // both 0 unless the clusters were counted
  u64 badClusters = 0;
  std::string layout;  // one line of what is particular to the kind
  std::vector<Number> layoutNumbers;

  u64 freeBytes() const { return freeClusters * clusterBytes; }
  u64 usedBytes() const { return (clusters - freeClusters - badClusters) * clusterBytes; }
};

enum class CountClusters { no, yes };

// Something about a volume that can be put right without a choice between its files.
struct Mend {
  // In the order in which they are done: each rests on those before it.
  enum class Kind : u8 {
    bootSector,        // from its backup
    tableCopies,       // the sound copy over the others
    keepLostClusters,  // as files
    freeLostClusters,  // in place of that
    freeCount,
    backupBootSector,  // from the boot sector
    inUseMark,
  };
  Kind kind = Kind::bootSector;
  std::string fault;     // what is wrong: a sentence
  std::string remedy;    // what would be done about it: a sentence
  bool givesUp = false;  // it may cost something that could still be had
  // volumeFull, directoryFull: it is not possible, and `remedy` says what is lacking.
  Error whyNot = Error::none;

  friend bool operator==(const Mend&, const Mend&) = default;
};

struct CheckReport {
  u32 fault = 0;          // the number that the kind publishes for the first one; 0: none
  bool isSound = false;   // nothing is wrong with files and directories
  std::string faultText;  // what is wrong, or what could not be looked at: a sentence
  u64 files = 0;
  u64 directories = 0;
  u64 usedClusters = 0;
  u64 freeClusters = 0;
  u64 badClusters = 0;
  std::vector<Mend> mends;  // also of a sound volume
};

struct RepairWish {
  std::vector<Mend> mends;    // as the check gave them
  u64 secondsSinceEpoch = 0;  // for files that are made
};

struct RepairReport {
  bool touched = false;  // something was written, or may have been
  std::vector<Mend> done;
  CheckReport after;  // what a check says then
};

class ExtentList;

// Which sectors of a volume are asked for.
struct UsedExtentsWish {
  // What lies behind the last whole cluster, up to the end of the range.
  bool includeTail = false;
  // The last sector of the range, where a file system that is shorter than its partition keeps the
  // backup of its boot sector there.
  bool includeLastSector = false;
  // Files whose contents are not moved.
  bool skipPageFile = false;
  bool skipHibernationFile = false;
  bool skipSwapFile = false;
  bool skipLog = false;
  std::vector<std::string> exclusions;  // paths of further ones
};

// In what sizes a volume can go on living where it begins.
struct ResizeLimits {
  u64 minimumSectors = 0;
  u64 maximumSectors = 0;
  u64 usedSectors = 0;   // in use by its files
  u32 clusterBytes = 0;  // as it is
};

// A form that a volume may be resized to, where its kind has several. Sizes are those of the
// volume.
struct ResizeForm {
  std::string_view word;  // for scripts: "fat32"
  const char* label;      // with its mnemonic: "FAT&32"
  u16 type;               // as ResizeWish::forcedType
  u32 fromMiB;            // for smaller ones it is not offered
  u32 toMiB;              // nor for larger ones
  u32 widelyReadToMiB;    // larger ones are read by few other systems
};

struct ResizeWish {
  u64 sectors = 0;       // from the first sector of the range on
  u32 clusterBytes = 0;  // 0 automatic
  bool keepClusterSize = false;
  u16 forcedType = 0;  // 0x0B FAT32, 0x06 FAT16, 0 automatic
  bool checkAfter = true;
  // The clusters behind the wished end are moved below it, and nothing else changes.
  bool relocateOnly = false;
  Geometry geometry;
  u64 hiddenSectors = 0;
};

// What is settled before the first write.
struct ResizePlan {
  u32 clusterBytes = 0;  // that it will have
  u16 type = 0;          // that the partition is to have
  u64 minimumSectors = 0;
};

struct ResizeReport {
  bool touched = false;  // something was written, or may have been
  bool resized = false;  // all of it was done, whatever the check after it found
  // The number that the kind publishes for what a check found, before or after.
  u32 fault = 0;
  std::string faultText;  // what it is: a sentence
  u16 type = 0;           // that the partition is to have
  u32 clusterBytes = 0;
  std::vector<std::string> notes;
};

class FileSystem;

// How the files of a volume are to be reached.
struct OpenWish {
  bool writable = false;
  u32 codePage = 437;  // of short names and labels, where a file system has them: 437 or 850
  std::function<u64()> clock = {};  // seconds since the epoch; without one the machine's own
};

// Functions may be absent: then the program does not offer what they do. They know neither drive
// nor table. Rows live as long as the program.
struct FileSystemKind {
  std::string_view word;  // for scripts: "fat32"
  std::string_view name;  // for lists: "FAT32"

  // The types of partitions that are formatted as this kind, hidden forms not among them, and
  // those of a GPT that say the kind alone.
  std::span<const u16> types;
  std::span<const Guid> typeGuids;
  // For a partition of so many sectors that is to become one.
  u16 (*wantedType)(u64 sectors) = nullptr;
  Guid wantedTypeGuid;

  // What identify() answers for it. Where kinds share a content, `holds` tells which it is.
  std::span<const ContentCode> contents;
  bool (*holds)(const SectorRange& range, u16 type) = nullptr;

  // So many sectors from the first on have to go for it not to be recognised any more.
  u32 bootSectors = 1;

  // In bytes, ascending, without the automatic choice.
  std::span<const u32> clusterChoices;
  u32 widelyReadClusterBytes = kAllOnes32;  // larger ones are read by few other systems
  bool alignsForNtfs = false;               // FormatWish::alignForNtfs can be had
  // Types that take neither a cluster size nor an alignment.
  bool (*takesAutomaticClusters)(u16 type) = nullptr;

  // Why a volume of so many sectors is not possible, with the sizes that are; empty when it is.
  // `format` asks it too.
  std::string (*whyNotOfSize)(u16 type, u64 sectors, u32 sectorSizeBytes) = nullptr;
  // Makes a new, empty file system, on the medium when it returns. Asked by the job: phases
  // formatting and, when the scan is wished for, surfaceScan; a stop there ends the scan alone.
  // invalidSizeForType, outOfMemory: nothing was written. cancelled, read, write, noSpaceLeft,
  // flush: what was in the range is overwritten when the report says touched; nobody recognises
  // a volume in it then.
  Failure (*format)(const SectorRange& range, const FormatWish& wish, Job& job,
                    FormatReport& report) = nullptr;

  // invalidVolume: it is none of this kind, or damaged; read, outOfMemory.
  Failure (*facts)(const SectorRange& range, u16 type, CountClusters count,
                   FileSystemFacts& facts) = nullptr;
  // Whether its structures are sound. Writes nothing. read, cancelled, outOfMemory: it could not be
  // looked at; the report has the number that the kind publishes for that.
  Failure (*check)(const SectorRange& range, u16 type, Job& job, CheckReport& report) = nullptr;
  // Does what was wished for, as far as a check finds it still necessary, and nothing else; all of
  // it is on the medium then. A power cut leaves what is not done yet to be found again. read,
  // write, flush, noSpaceLeft, outOfMemory, cancelled: the report has what was done before; also
  // what is the whyNot of a mend, of which nothing was written then.
  Failure (*repair)(const SectorRange& range, u16 type, const RepairWish& wish, Job& job,
                    RepairReport& report) = nullptr;
  // The sectors that hold something, in ascending order, by numbers of the disk.
  // fileSystemUnreadable, read, outOfMemory.
  Failure (*usedExtents)(const SectorRange& range, u16 type, const UsedExtentsWish& wish,
                         ExtentList& extents) = nullptr;
  // `roomSectors`: what the range could have at most. invalidVolume, read.
  Failure (*resizeLimits)(const SectorRange& range, u16 type, u64 roomSectors,
                          ResizeLimits& limits) = nullptr;
  // What it can become; empty: it stays what it is, and its clusters stay as they are.
  std::span<const ResizeForm> resizeForms;
  u64 resizeMostSectors = kAllOnes64;
  // Whether a wish can be fulfilled, and what would come of it; `resize` asks it too. Writes
  // nothing. sizeNotPossible: it cannot hold the data; invalidSizeForType: not for this kind;
  // invalidVolume, read, outOfMemory.
  Failure (*planResize)(const SectorRange& range, u16 type, const ResizeWish& wish,
                        ResizePlan& plan) = nullptr;
  // Phases resizing with a step from 1 on. The range is the volume as it is; what it grows by lies
  // behind it and is free. All is on the medium when it returns; the table is the caller's.
  // Answers of planResize, and corrupt with the fault of the check before it: nothing was written.
  // read, write, flush, noSpaceLeft, cancelled: what the report says was touched may be half done.
  // corrupt of a volume that was resized: the check after it found the fault.
  Failure (*resize)(const SectorRange& range, u16 type, const ResizeWish& wish, Job& job,
                    ResizeReport& report) = nullptr;
  // The files in it, see fs/file_system.h. invalidVolume, unsupportedFileSystem (a version or a
  // feature that is not known), read, outOfMemory. Nothing is written before the first change.
  Failure (*open)(const SectorRange& range, u16 type, const OpenWish& wish,
                  std::unique_ptr<FileSystem>& files) = nullptr;
};

// The kinds that the program knows, in the order of their registration.
class FileSystemKinds {
 public:
  // `kind` is borrowed.
  void add(const FileSystemKind& kind) { kinds_.push_back(&kind); }
  std::span<const FileSystemKind* const> all() const { return kinds_; }

  // Null when there is none. Words in any case; types look through their hidden form.
  const FileSystemKind* byWord(std::string_view word) const;
  const FileSystemKind* byType(u16 type) const;
  // By the type, else by the type of a GPT.
  const FileSystemKind* byType(u16 type, const Guid& typeGuid) const;
  // By what lies in the range; `type` helps where that does not say.
  const FileSystemKind* byContent(const SectorRange& range, u16 type) const;
  const FileSystemKind* byContent(ContentCode code, const SectorRange& range, u16 type) const;

 private:
  std::vector<const FileSystemKind*> kinds_;
};

// Why `kind`, null for a type without one, cannot be made in so many sectors; empty when it can.
// Format and Create both ask it before anything is written.
std::string whyNotFormattable(const FileSystemKind* kind, u16 type, u64 sectors,
                              u32 sectorSizeBytes);
// The same for a type as such.
std::string whyNotFormattable(const FileSystemKind* kind, u16 type);

bool takesAutomaticClusters(const FileSystemKind& kind, u16 type);

}  // namespace tallowin
