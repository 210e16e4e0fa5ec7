// A drive on a disk of 200 MiB in memory, with its table as readable text.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "ops/create_model.h"
#include "ptable/drive.h"
#include "support/fault_loops.h"
#include "support/ops_bench.h"

namespace tallowin {

class FlowTest : public OpsTest {
 protected:
  static constexpr u64 kSectors = 409600;
  static constexpr i64 kOneMiB = 2048;

  FlowTest();

  // Aligned to 1 MiB.
  std::unique_ptr<Drive> open(std::shared_ptr<DiskDevice> disk);
  std::unique_ptr<Drive> open(MemoryDisk& disk);
  // Writes an entry into the K-th free block, from its start.
  void add(Drive& drive, std::size_t freeIndex, u64 sectors, u16 type, const std::string& name);
  // Makes sda1 of a disk that is called /dev/sda a mounted partition.
  void mount(u64 startSector, u64 sectors);

  // The context with another user.
  OperationContext with(ScriptedFrontEnd& ui) {
    return {ui, host_, options_, folders_, fileSystems_, mounts_};
  }
  using Flow = std::function<FlowResult(Drive&, ScriptedFrontEnd&)>;
  // What a flow with a failed transfer left behind.
  struct FaultRun {
    FlowResult result;
    FaultRound& round;
    ScriptedFrontEnd& ui;
    std::string table;

    bool failedTransfer() const {
      return result.code == Error::read || result.code == Error::write ||
             result.code == Error::flush;
    }
  };
  // Runs the flow with each of its requests failing in turn (see forEachFault). The old table or
  // the new one is left, and each failure is told.
  void forEachFailedRequest(const Flow& flow,
                            const std::function<void(const FaultRun&)>& check = {});
  // Cuts the power in every way (see forEachPowerCut): the old table or the new one is left.
  void expectCutsLeaveOldOrNew(const Flow& flow,
                               const std::function<void(MemoryDisk&)>& check = {});

  // The tables kept in the backup folder.
  std::size_t keptTables();

  MemoryDisk disk_{kSectors};
};

// Used rows, one a line: "1 0Bh 2048..206847", volumes with their number too.
std::string tableOf(Drive& drive);
// Free blocks, those in extended partitions behind the others.
std::vector<PartitionEntry*> freeBlocks(Drive& drive);

// What a user does in the Create dialog.
std::function<void(CreateModel&)> enter(const std::string& type, u32 sizeMiB,
                                        const std::string& name = "DATA");

// A disk that passes everything on to one that outlives it.
std::shared_ptr<DiskDevice> borrowed(DiskDevice& disk);

}  // namespace tallowin
