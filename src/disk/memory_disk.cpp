#include "disk/memory_disk.h"

#include <algorithm>
#include <cstring>

#include "base/bytes.h"

namespace tallowin {
namespace {

// Calls piece(page number, offset in the page, offset in the run, length) over a byte run.
template <typename Piece>
void forEachPage(u64 pageBytes, u64 offset, u64 length, Piece piece) {
  for (u64 done = 0; done < length;) {
    const u64 inPage = (offset + done) % pageBytes;
    const u64 take = std::min(pageBytes - inPage, length - done);
    piece((offset + done) / pageBytes, inPage, done, take);
    done += take;
  }
}

}  // namespace

MemoryDisk::MemoryDisk(u64 sectors, u32 sectorSizeBytes) : sectors_(sectors) {
  traits_.sectorSizeBytes = sectorSizeBytes;
  traits_.path = "memory";
}

MemoryDisk::MemoryDisk(MemoryDisk&& other) noexcept
    : DiskDevice(other.traits_),
      sectors_(other.sectors_),
      geometry_(other.geometry_),
      biosNumber_(other.biosNumber_),
      pages_(std::move(other.pages_)) {}

u8* MemoryDisk::own(Page& page) {
  if (page.use_count() > 1) page = std::make_shared<std::vector<u8>>(*page);
  return page->data();
}

Failure MemoryDisk::transferIn(u64 lba, void* buffer, u32 count) {
  if (!inside(lba, count)) return {Error::read, 0, lba};
  auto* out = static_cast<u8*>(buffer);
  forEachPage(kPageBytes, lba * sectorSize(), u64{count} * sectorSize(),
              [&](u64 page, u64 inPage, u64 done, u64 take) {
                const auto found = pages_.find(page);
                if (found == pages_.end()) {
                  std::memset(out + done, 0, take);
                } else {
                  std::memcpy(out + done, found->second->data() + inPage, take);
                }
              });
  return {};
}

Failure MemoryDisk::transferOut(u64 lba, const void* buffer, u32 count) {
  if (!inside(lba, count)) return {Error::write, 0, lba};
  const auto* in = static_cast<const u8*>(buffer);
  forEachPage(kPageBytes, lba * sectorSize(), u64{count} * sectorSize(),
              [&](u64 page, u64 inPage, u64 done, u64 take) {
                auto found = pages_.find(page);
                if (found == pages_.end()) {
                  if (isAllZero({in + done, take})) return;
                  found = pages_.emplace(page, std::make_shared<std::vector<u8>>(kPageBytes)).first;
                }
                std::memcpy(own(found->second) + inPage, in + done, take);
              });
  return {};
}

std::optional<Failure> MemoryDisk::zeroFast(u64 lba, u64 count) {
  if (!inside(lba, count)) return Failure(Error::write, 0, lba);
  const u64 first = lba * sectorSize();
  const u64 end = first + count * sectorSize();
  auto page = pages_.lower_bound(first / kPageBytes);
  while (page != pages_.end() && page->first * kPageBytes < end) {
    const u64 pageStart = page->first * kPageBytes;
    const u64 from = std::max(first, pageStart) - pageStart;
    const u64 to = std::min(end, pageStart + kPageBytes) - pageStart;
    if (to - from == kPageBytes) {
      page = pages_.erase(page);
    } else {
      std::memset(own(page->second) + from, 0, to - from);
      ++page;
    }
  }
  return Failure();
}

std::vector<u8> MemoryDisk::sector(u64 lba) {
  std::vector<u8> bytes(sectorSize());
  static_cast<void>(transferIn(lba, bytes.data(), 1));
  return bytes;
}

void MemoryDisk::setSector(u64 lba, std::span<const u8> bytes) {
  std::vector<u8> whole(sectorSize());
  std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), whole.size()), whole.begin());
  static_cast<void>(transferOut(lba, whole.data(), 1));
}

bool MemoryDisk::sameContent(const MemoryDisk& other) const {
  if (sectors_ != other.sectors_ || sectorSize() != other.sectorSize()) return false;
  const auto coveredBy = [](const MemoryDisk& a, const MemoryDisk& b) {
    return std::all_of(a.pages_.begin(), a.pages_.end(), [&](const auto& page) {
      const auto found = b.pages_.find(page.first);
      if (found == b.pages_.end()) return isAllZero(*page.second);
      return page.second == found->second || *page.second == *found->second;
    });
  };
  return coveredBy(*this, other) && coveredBy(other, *this);
}

MemoryDisk MemoryDisk::copy() const {
  MemoryDisk result(sectors_, traits_.sectorSizeBytes);
  result.traits_ = traits_;
  result.geometry_ = geometry_;
  result.biosNumber_ = biosNumber_;
  result.pages_ = pages_;
  return result;
}

}  // namespace tallowin
