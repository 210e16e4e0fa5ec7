#include "disk/linux_disk.h"

#include <fcntl.h>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>

#include "base/io_ring.h"
#include "base/text.h"
#include "base/waiting.h"
#include "disk/device_mapper.h"
#include "disk/kernel_table.h"
#include "disk/sys_block.h"
#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

constexpr u8 kUnaskedKind = 32;  // sector size is not asked from the kernel
constexpr u32 kOpticalSectorBytes = 2048;
constexpr u32 kOpticalMaxTransfer = 64 * kKiB;
constexpr u64 kMaxZeroPiece = 64 * kMiB;

using Direction = DiskTransfer::Direction;

Failure failureOf(Direction direction, int errorNumber, u64 lba) {
  if (direction == Direction::read) return {Error::read, errorNumber, lba};
  const Failure failed(Error::write, errorNumber, lba);
  if (failed.isOutOfSpace()) return failed.as(Error::noSpaceLeft);
  return errorNumber == EROFS || errorNumber == EPERM ? failed.as(Error::readOnlyDisk) : failed;
}

// Of a call that was to move `bytes`; errno is the call's when `moved` is negative.
Failure outcomeOf(Direction direction, i64 moved, std::size_t bytes, u64 lba) {
  if (moved == static_cast<i64>(bytes)) return {};
  return failureOf(direction, moved < 0 ? errno : 0, lba);
}

}  // namespace

std::unique_ptr<LinuxDisk> LinuxDisk::open(Host& host, const DriveListEntry& entry, int openFlags) {
  const int descriptor = host.open(entry.path, openFlags | O_NONBLOCK);
  if (descriptor < 0) {
    if (errno == ENOENT) errno = ENODEV;
    return nullptr;
  }
  // Without it an empty drive would not open at all; with it reads would not wait.
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  std::unique_ptr<LinuxDisk> disk(new LinuxDisk(host, entry, descriptor));
  int isProtected = 0;
  disk->traits_.readOnly =
      (openFlags & O_ACCMODE) == O_RDONLY ||
      (host.control(descriptor, BLKROGET, &isProtected) == 0 && isProtected != 0);
  disk->askSectorSize();
  if (disk->traits_.maxTransferBytes >= kBulkBytes) disk->openDirect(openFlags);
  return disk;
}

LinuxDisk::LinuxDisk(Host& host, const DriveListEntry& entry, int descriptor)
    : host_(host), descriptor_(descriptor), openedBytes_(sizeBytes()) {
  traits_.deviceKind = entry.deviceKind;
  traits_.media = entry.mediaFlag;
  traits_.path = entry.path;
  traits_.startOffset = entry.startOffset;
  if (const auto node = host.nodeInfo(descriptor); node && node->isBlockDevice)
    traits_.deviceNumber = makedev(node->major, node->minor);
}

LinuxDisk::~LinuxDisk() {
  if (direct_ >= 0) host_.close(direct_);
  host_.close(descriptor_);
}

void LinuxDisk::askSectorSize() {
  if (traits_.deviceKind == kOpticalKind) {
    traits_.sectorSizeBytes = kOpticalSectorBytes;
    traits_.maxTransferBytes = kOpticalMaxTransfer;
    return;
  }
  int bytes = 0;
  if (traits_.deviceKind == kUnaskedKind || host_.control(descriptor_, BLKSSZGET, &bytes) != 0)
    return;
  const bool isUsable = bytes >= 512 && bytes <= 65536 && std::has_single_bit(u32(bytes));
  if (isUsable) traits_.sectorSizeBytes = static_cast<u32>(bytes);
}

void LinuxDisk::openDirect(int openFlags) {
  direct_ = host_.open(traits_.path, (openFlags & O_ACCMODE) | O_DIRECT);
  if (direct_ < 0) return;
  // The path may name another device by now.
  if (isOpenedNode(host_.nodeInfo(direct_))) return;
  host_.close(direct_);
  direct_ = -1;
}

bool LinuxDisk::isOpenedNode(const std::optional<NodeInfo>& node) const {
  return node && node->isBlockDevice && makedev(node->major, node->minor) == traits_.deviceNumber;
}

std::optional<u64> LinuxDisk::offsetOf(u64 lba, u64 count) const {
  const u64 sectors = u64{std::numeric_limits<i64>::max()} / sectorSize();
  if (lba > sectors || count > sectors - lba) return std::nullopt;
  return lba * sectorSize();
}

bool LinuxDisk::isBulk(const void* buffer, u64 bytes) const {
  return direct_ >= 0 && bytes >= kBulkBytes &&
         reinterpret_cast<std::uintptr_t>(buffer) % kBulkAlignment == 0;
}

i64 LinuxDisk::moveOnce(Direction direction, int descriptor, u8* buffer, std::size_t bytes,
                        u64 offset) {
  return direction == Direction::read ? host_.readAt(descriptor, buffer, bytes, offset)
                                      : host_.writeAt(descriptor, buffer, bytes, offset);
}

Failure LinuxDisk::move(Direction direction, u64 lba, u8* buffer, u32 count) {
  const auto offset = offsetOf(lba, count);
  if (!offset) return failureOf(direction, EOVERFLOW, lba);
  const std::size_t bytes = std::size_t{count} * sectorSize();
  if (isBulk(buffer, bytes)) {
    const i64 moved = moveOnce(direction, direct_, buffer, bytes, *offset);
    // A device may want more alignment than its sector size; all else is the medium's answer.
    if (moved >= 0 || errno != EINVAL) return outcomeOf(direction, moved, bytes, lba);
  }
  const i64 moved = moveOnce(direction, descriptor_, buffer, bytes, *offset);
  if (moved < 0 && errno == EIO) return moveBySectors(direction, buffer, bytes, lba);
  return outcomeOf(direction, moved, bytes, lba);
}

// The page cache works in pages: one bad sector fails its neighbours, and a write to a page that
// cannot be read first. Asked past the cache, the device answers for just these sectors.
Failure LinuxDisk::moveBySectors(Direction direction, u8* buffer, std::size_t bytes, u64 lba) {
  if (direct_ < 0) return failureOf(direction, EIO, lba);
  const TransferBuffer aligned(bytes);
  if (!aligned) return Error::outOfMemory;
  if (direction == Direction::write) std::memcpy(aligned.data(), buffer, bytes);
  const i64 moved = moveOnce(direction, direct_, aligned.data(), bytes, lba * sectorSize());
  const Failure failed = outcomeOf(direction, moved, bytes, lba);
  if (failed.code == Error::none && direction == Direction::read)
    std::memcpy(buffer, aligned.data(), bytes);
  return failed;
}

Failure LinuxDisk::transferIn(u64 lba, void* buffer, u32 count) {
  return move(Direction::read, lba, static_cast<u8*>(buffer), count);
}

Failure LinuxDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  return move(Direction::write, lba, static_cast<u8*>(const_cast<void*>(buffer)), count);
}

std::optional<u32> LinuxDisk::submit(const DiskTransfer& transfer, u32 bytes, u64 offset) const {
  IoRing* const ring = IoRing::shared();
  if (ring == nullptr) return std::nullopt;
  if (transfer.direction == Direction::read)
    return ring->read(direct_, transfer.buffer, bytes, offset);
  const iovec part = {transfer.buffer, bytes};
  return ring->write(direct_, {&part, 1}, offset);
}

void LinuxDisk::begin(DiskTransfer& transfer) {
  const u64 bytes = u64{transfer.count} * sectorSize();
  const auto offset = offsetOf(transfer.lba, transfer.count);
  transfer.ticket = 0;
  if (offset && bytes <= traits_.maxTransferBytes && isBulk(transfer.buffer, bytes)) {
    if (const auto ticket = submit(transfer, static_cast<u32>(bytes), *offset)) {
      transfer.ticket = u64{*ticket} + 1;
      return;
    }
  }
  DiskDevice::begin(transfer);
}

Failure LinuxDisk::finish(DiskTransfer& transfer) {
  if (transfer.ticket == 0) return transfer.failure;
  const i32 moved = waitFor(*IoRing::shared(), static_cast<u32>(transfer.ticket - 1));
  transfer.ticket = 0;
  if (moved == -EINVAL || moved == -EAGAIN || moved == -EOPNOTSUPP) {
    DiskDevice::begin(transfer);
  } else {
    const std::size_t bytes = std::size_t{transfer.count} * sectorSize();
    transfer.failure = moved == static_cast<i64>(bytes)
                           ? Failure()
                           : failureOf(transfer.direction, moved < 0 ? -moved : 0, transfer.lba);
  }
  return transfer.failure;
}

std::optional<Failure> LinuxDisk::zeroFast(u64 lba, u64 count) {
  const auto offset = offsetOf(lba, count);
  if (!offset) return failureOf(Direction::write, EOVERFLOW, lba);
  u64 done = 0;
  const u64 bytes = count * sectorSize();
  while (done != bytes) {
    const u64 piece = std::min(bytes - done, kMaxZeroPiece);
    std::array<u64, 2> range = {*offset + done, piece};
    if (host_.control(descriptor_, BLKZEROOUT, range.data()) != 0) {
      const bool isUnknown = errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL;
      if (done == 0 && isUnknown) return std::nullopt;
      return failureOf(Direction::write, errno, lba + done / sectorSize());
    }
    done += piece;
  }
  return Failure();
}

Failure LinuxDisk::flush() {
  return host_.sync(descriptor_) == 0 ? Failure() : Failure(Error::flush, errno);
}

void LinuxDisk::dropCaches() { static_cast<void>(host_.control(descriptor_, BLKFLSBUF, nullptr)); }

void LinuxDisk::dropCachesOf(u64 lba, u64 count) {
  dropCaches();
  dropPartitionBuffers(host_, sysFolderOf(host_, traits_.path, traits_.deviceNumber), sectorSize(),
                       lba, count);
}

u64 LinuxDisk::sizeBytes() const {
  const off_t bytes = ::lseek(descriptor_, 0, SEEK_END);
  return bytes > 0 ? static_cast<u64>(bytes) : 0;
}

Failure LinuxDisk::checkSameDisk() {
  const bool isBlockDevice = traits_.deviceNumber != 0;
  const bool isThere = !isBlockDevice || isOpenedNode(host_.nodeInfo(traits_.path));
  return isThere && sizeBytes() >= openedBytes_ ? Error::none : Error::deviceChanged;
}

std::optional<u64> LinuxDisk::sectorCount() {
  const u64 bytes = sizeBytes();
  return bytes != 0 ? std::optional(bytes / sectorSize()) : std::nullopt;
}

std::optional<DataTrack> LinuxDisk::lastDataTrack() {
  if (traits_.deviceKind != kOpticalKind) return std::nullopt;
  cdrom_tochdr tracks = {};
  cdrom_tocentry track = {}, following = {};
  const auto ask = [&](u32 number, cdrom_tocentry& entry) {
    entry.cdte_track = static_cast<u8>(number);
    entry.cdte_format = CDROM_LBA;
    return host_.control(descriptor_, CDROMREADTOCENTRY, &entry) == 0 && entry.cdte_addr.lba >= 0;
  };
  if (host_.control(descriptor_, CDROMREADTOCHDR, &tracks) != 0 || !ask(CDROM_LEADOUT, following))
    return std::nullopt;
  for (u32 number = tracks.cdth_trk1; number >= std::max<u32>(tracks.cdth_trk0, 1); --number) {
    if (!ask(number, track)) return std::nullopt;
    const int first = track.cdte_addr.lba, end = following.cdte_addr.lba - 1;
    if ((track.cdte_ctrl & CDROM_DATA_TRACK) != 0 && first <= end)
      return DataTrack{static_cast<u64>(first), static_cast<u64>(end)};
    following = track;
  }
  return std::nullopt;
}

std::string LinuxDisk::displayName() { return diskDisplayName(host_, traits_.path); }

std::string LinuxDisk::model() {
  const std::string device = sysFolderOf(host_, traits_.path, traits_.deviceNumber) + "/device/";
  const std::string vendor(trim(host_.firstLine(device + "vendor").value_or("")));
  const std::string model(trim(host_.firstLine(device + "model").value_or("")));
  // Virtual disks have a vendor's number there and no model.
  if (model.empty()) return std::string(trim(host_.firstLine(device + "name").value_or("")));
  return vendor.empty() || vendor.starts_with("0x") ? model : vendor + " " + model;
}

std::string LinuxDisk::serial() {
  const std::string folder = sysFolderOf(host_, traits_.path, traits_.deviceNumber);
  for (const char* attribute : {"/device/serial", "/serial"}) {
    std::string text(trim(host_.firstLine(folder + attribute).value_or("")));
    if (!text.empty()) return text;
  }
  // SCSI: the Unit Serial Number page, with its 4 byte header.
  constexpr std::size_t kPageHeader = 4;
  const std::string page = host_.content(folder + "/device/vpd_pg80", 256).value_or("");
  if (page.size() <= kPageHeader) return {};
  return std::string(trim(printable(page.substr(kPageHeader, static_cast<u8>(page[3])))));
}

const FirmwareDisk& LinuxDisk::firmwareDisk() {
  if (firmware_) return *firmware_;
  if (traits_.startOffset != 0) {
    if (const auto underlying = openUnderlyingDisk()) {
      FirmwareDisk found;
      found.determined = underlying->firmwareGeometry(found.geometry);
      found.biosNumber = underlying->biosNumber();
      return firmware_.emplace(found);
    }
  }
  return firmware_.emplace(
      findFirmwareDisk(host_, *this, [this]() -> std::optional<KernelGeometry> {
        hd_geometry answer{};
        if (host_.control(descriptor_, HDIO_GETGEO, &answer) != 0) return std::nullopt;
        return KernelGeometry{answer.heads, answer.sectors, answer.cylinders};
      }));
}

std::unique_ptr<DiskDevice> LinuxDisk::openUnderlyingDisk() const {
  const auto node = host_.nodeInfo(traits_.path);
  if (!node) return nullptr;
  const auto member = physicalMember(host_, node->major, *node, Descend::yes);
  if (!member) return nullptr;
  const auto path = diskOfMember(host_, *member);
  if (!path) return nullptr;
  return open(host_, {.startOffset = 0, .deviceKind = kHardDiskKind, .path = *path}, O_RDONLY);
}

bool LinuxDisk::firmwareGeometry(Geometry& geometry) {
  geometry = firmwareDisk().geometry;
  return firmwareDisk().determined;
}

u32 LinuxDisk::biosNumber() { return firmwareDisk().biosNumber; }

bool LinuxDisk::acquireLock() {
  constexpr int kTries = 10;
  constexpr u32 kPauseMilliseconds = 50;
  for (int attempt = 1;; ++attempt) {
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK || attempt == kTries) return false;
    host_.pause(kPauseMilliseconds);
  }
}

void LinuxDisk::releaseLock() { ::flock(descriptor_, LOCK_UN); }

KernelTable LinuxDisk::tellKernel(std::span<const KernelPartition> wanted) {
  return tellKernelTable(host_, descriptor_, sysFolderOf(host_, traits_.path, traits_.deviceNumber),
                         sectorSize(), wanted);
}

}  // namespace tallowin
