// What is mended is judged by another program, and every file of before is compared. Each mend is
// tried on a disk that fails, and after power cuts.
#include "fat/fat_repair.h"

#include <map>

#include "damaged_volume.h"
#include "fat/fat_clusters.h"
#include "support/disk_file.h"
#include "support/fault_loops.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

using Kind = Mend::Kind;

void readTree(FileSystem& files, const std::string& directory,
              std::map<std::string, std::vector<u8>>& tree) {
  std::vector<FileInfo> entries;
  EXPECT_EQ(Error::none, files.list(directory, entries)) << directory;
  for (const FileInfo& entry : entries) {
    const std::string path = directory + entry.name;
    std::vector<u8>& content = tree[path];
    if (entry.isDirectory()) {
      readTree(files, path + "/", tree);
      continue;
    }
    File file;
    u64 done = 0;
    content.resize(entry.sizeBytes);
    EXPECT_TRUE(!files.open(path, {}, file) && !file.read(content, done)) << path;
    EXPECT_EQ(content.size(), done) << path;
  }
}

std::map<std::string, std::vector<u8>> treeOf(const SectorRange& range, u16 type) {
  std::unique_ptr<FileSystem> files;
  std::map<std::string, std::vector<u8>> tree;
  EXPECT_EQ(Error::none, openFatFiles(range, type, {}, files));
  if (files) readTree(*files, "/", tree);
  return tree;
}

// Without what was found.
std::map<std::string, std::vector<u8>> oldFiles(const SectorRange& range, u16 type) {
  auto tree = treeOf(range, type);
  std::erase_if(tree, [](const auto& entry) { return entry.first.starts_with("/FOUND."); });
  return tree;
}

CheckReport checked(const SectorRange& range, u16 type) {
  SilentJob job;
  CheckReport report;
  EXPECT_EQ(Error::none, checkFatVolume(range, type, job, report));
  return report;
}

std::vector<Kind> kindsOf(const std::vector<Mend>& mends) {
  std::vector<Kind> kinds;
  for (const Mend& mend : mends) kinds.push_back(mend.kind);
  return kinds;
}

RepairWish allOf(const CheckReport& report, Kind withoutLost) {
  RepairWish wish{report.mends, 1700000000};
  std::erase_if(wish.mends, [&](const Mend& mend) { return mend.kind == withoutLost; });
  return wish;
}

std::string fsckSays(MemoryDisk& disk) {
  const TempFolder folder;
  storeDisk(disk, folder.file("image"));
  const ProgramResult result = runProgram({"fsck.fat", "-n", folder.file("image")});
  const bool isSilent = result.output.find("differ") == std::string::npos &&
                        result.output.find("irty") == std::string::npos;
  return result.status == 0 && isSilent ? "" : result.output;
}

struct RepairCase {
  const char* name;
  bool onlyFat32;
  std::vector<Kind> mends;
  void (*damage)(DamagedVolume& volume);
};
std::ostream& operator<<(std::ostream& out, const RepairCase& damage) { return out << damage.name; }

void setCopy(DamagedVolume& v, u32 copy, u32 byte, u8 value) {
  const FatLayout layout = v.volume().layout;
  const u64 lba = layout.reservedSectors + u64{copy} * layout.sectorsPerFat + byte / 512;
  std::vector<u8> sector = v.disk().sector(lba);
  sector[byte % 512] = value;
  v.disk().setSector(lba, sector);
}

u32 byteOf(DamagedVolume& v, u32 cluster) {
  const FatKind kind = v.volume().layout.kind;
  return kind == FatKind::fat12 ? cluster * 3 / 2 : cluster * (kind == FatKind::fat16 ? 2 : 4);
}

template <typename Change>
void changeFsInfo(DamagedVolume& v, Change change) {
  std::vector<u8> sector = v.disk().sector(1);
  change(*recordAt<FatFsInfoRecord>(std::span(sector)));
  v.disk().setSector(1, sector);
}

void markInUse(DamagedVolume& v) {
  const FatVolume volume = v.volume();
  FatClusters clusters(volume);
  ASSERT_EQ(Error::none, clusters.setUp());
  ASSERT_EQ(Error::none, clusters.markSound(false));
  std::vector<u8> sector = v.disk().sector(0);
  sector[volume.layout.isFat32() ? 65 : 37] |= 1;
  v.disk().setSector(0, sector);
}

// A chain of four, one that runs into it, one that runs into a file, and a ring.
void addLost(DamagedVolume& v) {
  const u32 end = v.volume().layout.endMark();
  for (u32 at = 600; at < 603; ++at) v.setFat(at, at + 1);
  v.setFat(603, end);
  v.setFat(610, 602);
  v.setFat(620, 621);
  v.setFat(621, v.firstCluster(kOne));
  v.setFat(631, 630);
  v.setFat(630, 631);
  v.setFat(640, 641);  // which is free
  // As a program that counted them left it.
  if (v.volume().layout.isFat32())
    changeFsInfo(v, [](auto& info) { info.freeClusters = info.freeClusters - 10; });
}

const RepairCase kRepairs[] = {
    {"FirstCopyIsDamaged",
     false,
     {Kind::tableCopies},
     [](DamagedVolume& v) { setCopy(v, 0, byteOf(v, v.firstCluster(kOne)), 0xEE); }},
    {"SecondCopyIsDamaged",
     false,
     {Kind::tableCopies},
     [](DamagedVolume& v) {
       for (u32 i = 10; i < 700; i += 3) setCopy(v, 1, i, 0xEE);
     }},
    {"LostClusters", false, {Kind::keepLostClusters, Kind::freeLostClusters}, addLost},
    {"InUseMark", false, {Kind::inUseMark}, markInUse},
    {"FreeCount",
     true,
     {Kind::freeCount},
     [](DamagedVolume& v) { changeFsInfo(v, [](auto& info) { info.freeClusters = 7; }); }},
    {"NextFree",
     true,
     {Kind::freeCount},
     [](DamagedVolume& v) { changeFsInfo(v, [](auto& info) { info.nextFreeCluster = 1 << 30; }); }},
    {"FsInfoIsGone",
     true,
     {Kind::freeCount},
     [](DamagedVolume& v) { v.disk().setSector(1, std::vector<u8>(512)); }},
    {"BootSectorIsGone",
     true,
     {Kind::bootSector},
     [](DamagedVolume& v) { v.disk().setSector(0, std::vector<u8>(512)); }},
    {"BackupIsGone",
     true,
     {Kind::backupBootSector},
     [](DamagedVolume& v) { v.disk().setSector(6, std::vector<u8>(512, 'x')); }},
    {"AllAtOnce",
     true,
     {Kind::bootSector, Kind::tableCopies, Kind::keepLostClusters, Kind::freeLostClusters,
      Kind::freeCount, Kind::inUseMark},
     [](DamagedVolume& v) {
       markInUse(v);
       addLost(v);
       setCopy(v, 0, byteOf(v, v.firstCluster(kTwo)), 0xEE);
       changeFsInfo(v, [](auto& info) { info.freeClusters = 7; });
       v.disk().setSector(0, std::vector<u8>(512, 0xFF));
     }},
};

class FatRepairTest : public testing::TestWithParam<std::tuple<u16, RepairCase>> {
 protected:
  void SetUp() override {
    const auto& [type, repair] = GetParam();
    if (!hasProgram("fsck.fat")) GTEST_SKIP() << "needs dosfstools";
    volume_.emplace(type, type == 0x0B ? 70000 : type == 0x06 ? 40000 : 4000);
    volume_->fill();
    files_ = treeOf(volume_->range(), type);
    repair.damage(*volume_);
  }
  u16 type() const { return std::get<0>(GetParam()); }

  std::optional<DamagedVolume> volume_;
  std::map<std::string, std::vector<u8>> files_;
};
using RepairSample = FatRepairTest::ParamType;

std::vector<RepairSample> samples(bool withAllAtOnce) {
  std::vector<RepairSample> found;
  for (const u16 type : {u16{0x01}, u16{0x06}, u16{0x0B}})
    for (const RepairCase& repair : kRepairs)
      if ((type == 0x0B || !repair.onlyFat32) && (withAllAtOnce || repair.mends.size() < 6))
        found.emplace_back(type, repair);
  return found;
}
const auto nameOf = [](const testing::TestParamInfo<RepairSample>& sample) {
  return "Type" + std::to_string(std::get<0>(sample.param)) + std::get<1>(sample.param).name;
};
INSTANTIATE_TEST_SUITE_P(Kinds, FatRepairTest, testing::ValuesIn(samples(true)), nameOf);

// All at once takes as long here as the rest together, and fails at no other place.
class FatRepairFaultTest : public FatRepairTest {};
INSTANTIATE_TEST_SUITE_P(Kinds, FatRepairFaultTest, testing::ValuesIn(samples(false)), nameOf);

TEST_P(FatRepairTest, LeavesASoundVolumeWithTheSameFiles) {
  const CheckReport found = checked(volume_->range(), type());
  EXPECT_EQ(std::get<1>(GetParam()).mends, kindsOf(found.mends));
  for (const Kind other : {Kind::freeLostClusters, Kind::keepLostClusters}) {
    MemoryDisk disk = volume_->disk().copy();
    const SectorRange range{disk, 0, volume_->range().sectorCount};
    SilentJob job;
    RepairReport report;
    EXPECT_EQ(Error::none, repairFatVolume(range, type(), allOf(found, other), job, report));
    EXPECT_TRUE(report.touched);
    EXPECT_EQ(0U, report.after.fault) << report.after.faultText;
    EXPECT_TRUE(report.after.mends.empty());
    EXPECT_EQ("", fsckSays(disk));
    EXPECT_EQ(files_, oldFiles(range, type()));
    const bool keeps = other == Kind::freeLostClusters;
    const bool hadLost = std::ranges::count(kindsOf(found.mends), Kind::keepLostClusters) != 0;
    EXPECT_EQ(keeps && hadLost ? 6U : 0U, treeOf(range, type()).size() - files_.size());
    if (!hadLost) return;
  }
}

TEST_P(FatRepairTest, SurvivesPowerCuts) {
  const CheckReport found = checked(volume_->range(), type());
  const u64 sectors = volume_->range().sectorCount;
  const RepairWish wish = allOf(found, Kind::freeLostClusters);
  SilentJob quiet;
  forEachPowerCut(
      volume_->disk(),
      [&](FaultRound& round) {
        RepairReport report;
        EXPECT_EQ(Error::none,
                  repairFatVolume({round.disk(), 0, sectors}, type(), wish, quiet, report));
      },
      [&](MemoryDisk& after) {
        const SectorRange range{after, 0, sectors};
        RepairReport report;
        const CheckReport left = checked(range, type());
        EXPECT_EQ(Error::none, repairFatVolume(range, type(), allOf(left, Kind::keepLostClusters),
                                               quiet, report));
        EXPECT_EQ(0U, report.after.fault) << report.after.faultText;
        EXPECT_EQ(files_, oldFiles(range, type()));
      });
}

TEST_P(FatRepairFaultTest, TellsWhatFails) {
  const CheckReport found = checked(volume_->range(), type());
  const u64 sectors = volume_->range().sectorCount;
  const RepairWish wish = allOf(found, Kind::freeLostClusters);
  forEachFault(volume_->disk(), kFailedRequests, [&](FaultRound& round) {
    round.begin();
    RepairReport report;
    SilentJob quiet;
    const SectorRange range{round.disk(), 0, sectors};
    const Failure failed = repairFatVolume(range, type(), wish, quiet, report);
    // A backup that cannot be read is one that is left alone.
    if (!failed && round.fault().kind == Fault::Kind::read) return;
    EXPECT_EQ(round.wasHit(), bool(failed)) << round.fault();
    EXPECT_TRUE(report.touched || volume_->disk().sameContent(round.medium()));
    round.heal();
    const CheckReport left = checked(range, type());
    ASSERT_EQ(Error::none,
              repairFatVolume(range, type(), allOf(left, Kind::keepLostClusters), quiet, report));
    EXPECT_EQ(0U, report.after.fault) << round.fault() << report.after.faultText;
    EXPECT_EQ(files_, oldFiles(range, type()));
  });
}

// A fault that only a choice between files could end leaves everything as it is.
TEST(FatRepairRefusalTest, OffersNothingWhereFilesAreDamaged) {
  DamagedVolume volume(0x0B, 70000);
  volume.fill();
  addLost(volume);
  markInUse(volume);
  changeFsInfo(volume, [](auto& info) { info.freeClusters = 7; });
  const u32 first = volume.firstCluster(kOne);
  volume.entry(kTwo, [&](auto& e) { setFirstCluster(e, first); });
  EXPECT_TRUE(checked(volume.range(), 0x0B).mends.empty());
}

// What the directory will be called is what is told before; without room for it nothing is written.
TEST(FatRepairRefusalTest, LooksForRoomBeforeTheFirstWrite) {
  for (const u16 type : {u16{0x01}, u16{0x0B}}) {
    DamagedVolume volume(type, type == 0x0B ? 70000 : 4000);
    volume.fill();
    std::unique_ptr<FileSystem> files = volume.open();
    ASSERT_EQ(Error::none, files->makeDirectory("/found.000"));
    ASSERT_EQ(Error::none, files->sync());
    const auto keeping = [&] {
      const std::vector<Mend> mends = checked(volume.range(), type).mends;
      return *std::ranges::find(mends, Kind::keepLostClusters, &Mend::kind);
    };
    addLost(volume);
    setCopy(volume, 1, byteOf(volume, 900), 0xEE);
    EXPECT_EQ("They are kept as files in a new directory '/FOUND.001'.", keeping().remedy);
    setCopy(volume, 1, byteOf(volume, 900), 0);

    files = volume.open();
    if (type == 0x0B) {
      SpaceInfo space;
      ASSERT_EQ(Error::none, files->space(space));
      volume.put(*files, "/all", space.freeUnits * space.unitBytes);
    }
    for (int i = 0; type == 0x01 && !files->makeDirectory("/" + std::to_string(i));) ++i;
    ASSERT_EQ(Error::none, files->sync());
    EXPECT_EQ(type == 0x0B ? Error::volumeFull : Error::directoryFull, keeping().whyNot);
    const MemoryDisk before = volume.disk().copy();
    SilentJob job;
    RepairReport report;
    const RepairWish wish = allOf(checked(volume.range(), type), Kind::freeLostClusters);
    EXPECT_EQ(keeping().whyNot, repairFatVolume(volume.range(), type, wish, job, report).code);
    EXPECT_FALSE(report.touched);
    EXPECT_TRUE(before.sameContent(volume.disk()));
  }
}

// By a wrong number of the boot sector all files seem to be lost, and what is written would land in
// them: it is only read.
TEST(FatRepairRefusalTest, DoesNotBelieveNumbersThatLeadBesideTheFats) {
  using Lie = void (*)(FatBpbRecord & bpb, Fat32BpbRecord & bpb32);
  const std::pair<u16, Lie> kLies[] = {
      {0x06, [](FatBpbRecord& bpb, auto&) { bpb.sectorsPerFat16 = bpb.sectorsPerFat16 + 2; }},
      {0x06, [](FatBpbRecord& bpb, auto&) { bpb.sectorsPerFat16 = bpb.sectorsPerFat16 / 4; }},
      {0x01, [](FatBpbRecord& bpb, auto&) { bpb.numberOfFats = 3; }},
      {0x01, [](FatBpbRecord& bpb, auto&) { bpb.numberOfFats = 1; }},
      {0x0B, [](auto&, Fat32BpbRecord& bpb) { bpb.sectorsPerFat = bpb.sectorsPerFat + 1; }},
      {0x0B, [](auto&, Fat32BpbRecord& bpb) { bpb.rootCluster = 600; }},
      {0x0B, [](auto&, Fat32BpbRecord& bpb) { bpb.flags = 0x8F; }}};
  for (const auto& [type, lie] : kLies) {
    SCOPED_TRACE(&lie - &kLies[0].second);
    DamagedVolume volume(type, type == 0x0B ? 70000 : type == 0x06 ? 40000 : 4000);
    volume.fill();
    addLost(volume);
    volume.bootSector(lie);
    EXPECT_NE(0U, checked(volume.range(), type).fault);
    for (const Mend& mend : checked(volume.range(), type).mends)
      EXPECT_LT(Kind::freeLostClusters, mend.kind) << mend.fault;
    const bool isInFats = volume.volume().boot.bpb32().rootCluster == 600;
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(isInFats ? Error::none : Error::invalidVolume,
              openFatFiles(volume.range(), type, {.writable = true}, files));
    EXPECT_EQ(Error::none, openFatFiles(volume.range(), type, {}, files));
  }
}

// One that has a number of its own may be the right one: it is what is left of the old numbers.
TEST(FatRepairRefusalTest, KeepsABackupOfOtherNumbers) {
  DamagedVolume volume(0x0B, 70000);
  volume.fill();
  volume.bootSector([](FatBpbRecord& bpb, auto&) { bpb.rootEntries = 512; });
  EXPECT_EQ(std::vector<Kind>(), kindsOf(checked(volume.range(), 0x0B).mends));
  volume.bootSector([](FatBpbRecord& bpb, auto&) {
    bpb.rootEntries = 0;
    bpb.oemName[0] = '?';
  });
  EXPECT_EQ(std::vector<Kind>{Kind::backupBootSector},
            kindsOf(checked(volume.range(), 0x0B).mends));
}

// Where the boot sector is another file system's by now, the backup is an old remain.
TEST(FatRepairRefusalTest, LeavesAnotherFileSystemsBootSectorAlone) {
  DamagedVolume volume(0x0B, 70000);
  volume.fill();
  std::vector<u8> sector(512);
  sector[0] = 0xEB;
  std::ranges::copy(std::string_view("NTFS    "), sector.begin() + 3);
  sector[510] = 0x55;
  sector[511] = 0xAA;
  volume.disk().setSector(0, sector);
  const CheckReport report = checked(volume.range(), 0x0B);
  EXPECT_EQ(19U, report.fault);
  EXPECT_TRUE(report.mends.empty());
}

}  // namespace
}  // namespace tallowin
