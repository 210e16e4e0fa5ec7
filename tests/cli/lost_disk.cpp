#include "cli/lost_disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "base/text.h"
#include "support/loop_device.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr u64 kDiskBytes = 192 * kMiB;

struct Kind {
  const char* mbrType;
  const char* gptType;
  unsigned mebibytes;
  const char* command;  // %llu: the sectors before the volume
};
// Works on devices alone, of which it is to see no other one.
constexpr const char* kMakeLvm = "pvcreate";
// "env" lets mkfs.xfs make small volumes.
constexpr Kind kKinds[] = {
    {"1", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", 8, "mkfs.fat -F 12 -n TWELVE -h %llu"},
    {"6", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", 20, "mkfs.fat -F 16 -h %llu"},
    {"c", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", 40, "mkfs.fat -F 32 -n BIG -h %llu"},
    {"7", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", 16, "mkntfs -q -F -Q -p %llu"},
    {"7", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", 16, "mkfs.exfat"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 12, "mkfs.ext2 -q -F -b 1024"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 20, "mkfs.ext3 -q -F"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 40,
     "mkfs.ext4 -q -F -L LINUX -O ^sparse_super,^resize_inode"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 24,
     "env TEST_DIR=1 TEST_DEV=1 QA_CHECK_FS=1 mkfs.xfs -q -f"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 20, "mkfs.btrfs -q -f -M"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 52, "mkfs.f2fs -q -f"},
    {"82", "0657FD6D-A4AB-43C4-84E5-0933C84B4F4F", 8, "mkswap -q -L PAGES"},
    {"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4", 20, "mkreiserfs -q -f -f --journal-size 513"},
    {"8e", "E6D6D379-F507-44C2-A23C-238F2A3DF928", 16, kMakeLvm},
};

class LostDisk {
 public:
  LostDisk(TempFolder& folder, LostTable table, unsigned seed)
      : folder_(folder),
        table_(table),
        random_(seed),
        path_(folder.sparse("lost" + std::to_string(seed) + ".img", kDiskBytes)),
        unit_(table == LostTable::mbr && seed % 2 != 0 ? 63 : 2048),
        descriptor_(::open(path_.c_str(), O_RDWR | O_CLOEXEC)),
        nextKind_(seed * 5) {}
  ~LostDisk() { ::close(descriptor_); }
  LostDisk(const LostDisk&) = delete;
  LostDisk& operator=(const LostDisk&) = delete;

  std::string make() {
    static const std::vector<std::string> remains = makeRemains();
    fillWithNoise();
    scatter(remains);
    layOut();
    const char* label = table_ == LostTable::mbr ? "label: dos\n" : "label: gpt\n";
    EXPECT_EQ(runProgram({"sfdisk", "-q", path_}, label + script_).output, "");
    for (const Volume& volume : volumes_) fill(volume);
    return path_;
  }

 private:
  struct Volume {
    const Kind& kind;
    u64 start;
    u64 mebibytes;
  };

  u64 below(u64 limit) { return random_() % limit; }
  u64 roundedUp(u64 sector) const { return (sector + unit_ - 1) / unit_ * unit_; }

  void addLine(u64 start, u64 sectors, const std::string& type) {
    script_ += format("start=%llu, size=%llu, type=%s\n", static_cast<unsigned long long>(start),
                      static_cast<unsigned long long>(sectors), type.c_str());
  }
  u64 addVolume(u64 start) {
    const Kind& kind = kKinds[nextKind_++ % std::size(kKinds)];
    const u64 mebibytes = kind.mebibytes + below(4);
    const u64 sectors = mebibytes * kMiB / 512;
    volumes_.push_back({kind, start, mebibytes});
    addLine(start, sectors, table_ == LostTable::mbr ? kind.mbrType : kind.gptType);
    return start + sectors;
  }

  // Two primaries, an extended partition with two volumes, and a third primary; of a GPT five.
  void layOut() {
    u64 next = unit_;
    const auto gap = [&] { return below(3) * 4096; };
    if (table_ == LostTable::gpt) {
      for (int i = 0; i < 5; ++i) next = roundedUp(addVolume(next)) + gap() / unit_ * unit_;
      return;
    }
    for (int i = 0; i < 2; ++i) next = roundedUp(addVolume(next) + gap());
    const std::string before = std::exchange(script_, {});
    const u64 container = next;
    for (int i = 0; i < 2; ++i) next = addVolume(roundedUp(next + 1) + unit_) + gap();
    const u64 end = volumesEnd();
    const std::string volumes = std::exchange(script_, before);
    addLine(container, end - container, "5");
    addVolume(roundedUp(end + gap()));
    script_ += volumes;
  }
  // Of the volume that was added last.
  u64 volumesEnd() const {
    const std::size_t line = script_.rfind("start=");
    unsigned long long start = 0;
    unsigned long long sectors = 0;
    std::istringstream fields(script_.substr(line));
    fields.ignore(6) >> start;
    fields.ignore(7) >> sectors;
    return start + sectors;
  }

  void fillWithNoise() {
    std::vector<u64> words(4 * kMiB / sizeof(u64));
    for (u64 at = 0; at < kDiskBytes; at += 4 * kMiB) {
      for (u64& word : words) word = random_();
      EXPECT_EQ(::pwrite(descriptor_, words.data(), 4 * kMiB, static_cast<off_t>(at)),
                static_cast<ssize_t>(4 * kMiB));
    }
  }
  void write(const std::string& bytes, u64 sector) const {
    EXPECT_EQ(::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(sector * 512)),
              static_cast<ssize_t>(bytes.size()));
  }
  std::string makeVolume(const Kind& kind, u64 start, u64 mebibytes) {
    const std::string volume = folder_.sparse("volume.img", mebibytes * kMiB);
    makeOn(kind, start, volume);
    return volume;
  }
  void makeOn(const Kind& kind, u64 start, const std::string& volume) const {
    if (kind.command == kMakeLvm) return makeLvm(volume);
    std::vector<std::string> command =
        words(format(kind.command, static_cast<unsigned long long>(start)));
    command.push_back(volume);
    const ProgramResult result = runProgram(command);
    EXPECT_EQ(result.status, 0) << kind.command << result.output;
  }

  void makeLvm(const std::string& volume) const {
    const LoopDevice loop(volume);
    const std::string devices = folder_.file("devices");
    const std::string node = devices + "/pv";
    struct stat facts {};
    EXPECT_EQ(::stat(loop.path().c_str(), &facts), 0);
    ::mkdir(devices.c_str(), 0700);
    EXPECT_EQ(::mknod(node.c_str(), S_IFBLK | 0600, facts.st_rdev), 0);
    const ProgramResult result = runProgram(
        {"pvcreate", "-q", "-y", "-ff", "--nolocking", "--config",
         "devices { dir=\"" + devices + "\" scan=[\"" + devices +
             "\"] use_devicesfile=0 obtain_device_list_from_udev=0 } backup { backup=0 archive=0 }",
         node});
    EXPECT_EQ(result.status, 0) << result.output;
    ::unlink(node.c_str());
  }

  // Pieces of volumes that lay elsewhere: boot sectors and their copies, superblocks of other
  // groups, a boot sector of a whole disk.
  std::vector<std::string> makeRemains() {
    std::vector<std::string> remains;
    for (const Kind& kind : kKinds) {
      makeVolume(kind, 4096, kind.mebibytes);
      const std::string bytes = folder_.read("volume.img");
      for (const std::string_view magic : {"NTFS    ", "XFSB", "FAT32   ", "\x10\x20\xF5\xF2"})
        for (std::size_t at = bytes.find(magic, 512); at != std::string::npos;
             at = bytes.find(magic, at + 512))
          remains.push_back(bytes.substr(at / 512 * 512, 2048));
      // The magic of ext in copies of later groups.
      for (std::size_t at = 8 * kMiB; at + 2048 < bytes.size(); at += 512)
        if (bytes.compare(at + 56, 2, "\x53\xEF") == 0) remains.push_back(bytes.substr(at, 2048));
      if (kind.mbrType == std::string_view("6")) remains.push_back(bytes.substr(0, 512));
    }
    const std::string disk = folder_.sparse("volume.img", 16 * kMiB);
    EXPECT_EQ(runProgram({"sfdisk", "-q", disk}, "label: dos\nsize=8M\n,\n").status, 0);
    remains.push_back("\xFA\x33\xC0" + folder_.read("volume.img").substr(3, 509));
    return remains;
  }

  void scatter(const std::vector<std::string>& remains) {
    for (int i = 0; i < 200; ++i)
      write(remains[below(remains.size())], 1 + below(kDiskBytes / 512 - 64));
  }

  // Some were another volume before, and large ones hold the image of one.
  void fill(const Volume& wanted) {
    const Kind& former = kKinds[below(std::size(kKinds))];
    const bool hadOther = below(2) == 0 && former.mebibytes <= wanted.mebibytes;
    const std::string volume =
        makeVolume(hadOther ? former : wanted.kind, wanted.start, wanted.mebibytes);
    if (hadOther) makeOn(wanted.kind, wanted.start, volume);
    if (wanted.kind.mbrType == std::string_view("c")) {
      const std::string outer = folder_.file("outer.img");
      EXPECT_EQ(::rename(volume.c_str(), outer.c_str()), 0);
      const std::string inner = makeVolume(kKinds[1], 64, kKinds[1].mebibytes);
      const ProgramResult copied = runProgram({"mcopy", "-i", outer, inner, "::INNER.IMG"});
      EXPECT_EQ(copied.status, 0) << copied.output;
      EXPECT_EQ(::rename(outer.c_str(), volume.c_str()), 0);
    }
    copyData(volume, wanted.start * 512);
  }
  // Holes are what nobody has written.
  void copyData(const std::string& from, u64 offset) const {
    const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<char> bytes;
    for (off_t at = 0; (at = ::lseek(source, at, SEEK_DATA)) >= 0;) {
      const off_t end = ::lseek(source, at, SEEK_HOLE);
      bytes.resize(static_cast<std::size_t>(end - at));
      EXPECT_EQ(::pread(source, bytes.data(), bytes.size(), at), end - at);
      EXPECT_EQ(::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset) + at),
                end - at);
      at = end;
    }
    ::close(source);
  }

  TempFolder& folder_;
  LostTable table_;
  std::mt19937_64 random_;
  std::string path_;
  u64 unit_;
  int descriptor_;
  std::size_t nextKind_;  // so that a few disks have all of them
  std::string script_;
  std::vector<Volume> volumes_;
};

}  // namespace

std::string makeLostDisk(TempFolder& folder, LostTable table, unsigned seed) {
  return LostDisk(folder, table, seed).make();
}

void loseTable(const std::string& path, LostTable table) {
  if (table == LostTable::gpt) {
    EXPECT_EQ(runProgram({"sgdisk", "-o", path}).status, 0);
    return;
  }
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  const std::string zeros(512, '\0');
  EXPECT_EQ(::pwrite(descriptor, zeros.data(), zeros.size(), 0), 512);
  ::close(descriptor);
}

}  // namespace tallowin
