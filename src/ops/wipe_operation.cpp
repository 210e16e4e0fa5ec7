#include "ops/wipe_operation.h"

#include <ctime>

#include "base/text.h"
#include "ops/disk_error_prompt.h"
#include "ops/error_text.h"
#include "ops/job_of_front_end.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "wipe/entropy.h"

namespace tallowin {
namespace {

constexpr std::size_t kSampleBytes = 16;  // of a sector that is read back

unsigned long long wide(u64 number) { return number; }

std::string timeNow(Host& host) {
  const auto now = static_cast<std::time_t>(host.secondsSinceEpoch());
  std::tm parts = {};
  char text[32] = "";
  if (::localtime_r(&now, &parts)) std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

// One pool of the process, so that no wipe repeats another.
RandomPool& sharedPool() {
  static RandomPool pool;
  return pool;
}

const char* kindText(WipePass::Kind kind) {
  switch (kind) {
    case WipePass::Kind::fixed:
      return "fixed bytes";
    case WipePass::Kind::random:
      return "random bytes, repeated";
    case WipePass::Kind::fresh:
      return "random bytes, new ones all the way";
    case WipePass::Kind::stirred:
      return "random bytes, stirred on the way";
    case WipePass::Kind::validate:
      return "read back and compared";
  }
  return "";
}

std::string passText(std::size_t number, const WipePassReport& pass, u64 sectors) {
  const bool reads = pass.kind == WipePass::Kind::validate;
  std::string text = format("Pass %zu: %s: %llu of %llu sectors %s", number, kindText(pass.kind),
                            wide(pass.done - std::min(pass.done, pass.failed)), wide(sectors),
                            reads ? "compared" : "written");
  if (pass.failed != 0)
    text += format(", %llu could not be %s", wide(pass.failed), reads ? "read" : "written");
  if (pass.mismatched != 0) text += ", and other bytes than were written were found";
  return text + (pass.isWhole ? "" : ", NOT whole") + "\n";
}

// The first, the middle and the last sector, as the medium gives them now.
std::string sampleText(Drive& drive, const SectorExtent& extent) {
  std::string text = "Read back afterwards:\n";
  std::vector<u8> sector(drive.sectorSize());
  drive.disk().dropCachesOf(extent.startSector, extent.endSector + 1 - extent.startSector);
  for (const u64 lba :
       {extent.startSector, extent.startSector + (extent.endSector - extent.startSector) / 2,
        extent.endSector}) {
    text += format("  sector %llu:", wide(lba));
    if (const Failure failed = drive.disk().readSectors(lba, sector.data(), 1)) {
      text += " " + errorText(failed) + "\n";
      continue;
    }
    for (std::size_t i = 0; i < kSampleBytes; ++i) text += format(" %02X", sector[i]);
    text += " ...\n";
  }
  return text;
}

std::string resultText(const WipeRecord& record) {
  const bool isWhole = record.report.isWhole() && !record.ended;
  if (isWhole && record.report.failedSectors() == 0)
    return "Result: done; all passes were whole.\n";
  if (isWhole)
    return format("Result: done but for %llu sectors, which could not be overwritten or read.\n",
                  wide(record.report.failedSectors()));
  return "Result: NOT done. " +
         (record.ended == Error::cancelled ? std::string("It was stopped.")
          : record.ended                   ? errorText(record.ended)
                                           : std::string("Not all passes were whole.")) +
         "\n";
}

bool isImage(Drive& drive) {
  const DiskType type = drive.disk().traits().type;
  return type == DiskType::rawImage || type == DiskType::vhdImage || type == DiskType::vmdkImage;
}

}  // namespace

Failure passesFor(const WipeMethodChoice& choice, u32 sectorSizeBytes,
                  std::vector<WipePass>& passes) {
  if (choice.type == WipeType::userDefined) {
    const auto parsed = parsePasses(choice.passesText, sectorSizeBytes);
    if (!parsed) return Error::invalidWipePattern;
    passes = *parsed;
  } else {
    passes = passesOf(choice.type);
  }
  if (choice.verifies) passes.push_back({WipePass::Kind::validate, {}, false});
  return {};
}

std::string methodText(const WipeMethodChoice& choice) {
  std::string text = choice.passesText;
  if (choice.type == WipeType::zeros) text = "Zeros - 1 Pass";
  for (const WipeMethod& method : wipeMethods())
    if (method.type == choice.type && method.label[0] != '\0') text = method.label;
  std::erase(text, '&');
  return choice.verifies ? text + ", verified" : text;
}

Failure wipeExtent(const OperationContext& context, Drive& drive, const SectorExtent& extent,
                   const WipeMethodChoice& method, WipeRecord& record) {
  record = {};
  record.method = method;
  record.extent = extent;
  WipeWish wish;
  if (const Failure failed = passesFor(method, drive.sectorSize(), wish.passes)) return failed;
  wish.goesOnAfterMismatch = [&](u64) { return askToIgnoreMismatch(context.ui); };
  record.startedAt = timeNow(context.host);
  if (needsEntropy(wish.passes))
    gatherEntropy(context.host, drive.disk(), kWipeEntropyBits, sharedPool());
  traceLine(context.folders, "Wipe: %s, sectors %llu to %llu, %s",
            describeDisk(drive.disk()).c_str(), wide(extent.startSector), wide(extent.endSector),
            methodText(method).c_str());
  JobOfFrontEnd job(context);
  const SectorRange range{drive.disk(), extent.startSector,
                          extent.endSector + 1 - extent.startSector};
  record.ended = wipeRange(range, wish, sharedPool(), context.host, job, record.report);
  record.endedAt = timeNow(context.host);
  traceLine(context.folders, "Wipe: ended with %u, %llu sectors failed", codeOf(record.ended),
            wide(record.report.failedSectors()));
  return record.ended;
}

std::string wipeCertificate(Drive& drive, const WipeRecord& record) {
  const u64 sectors = record.extent.endSector + 1 - record.extent.startSector;
  std::string text = "Certificate of a wipe\n\n";
  text += "Disk: " + describeDisk(drive.disk()) + "\n";
  text += format("Sectors: %llu to %llu, %llu of %u bytes\n", wide(record.extent.startSector),
                 wide(record.extent.endSector), wide(sectors), drive.sectorSize());
  text += "Method: " + methodText(record.method) + "\n";
  text += "Begun: " + record.startedAt + "\nEnded: " + record.endedAt + "\n";
  text += resultText(record) + "\n";
  for (std::size_t i = 0; i < record.report.passes.size(); ++i)
    text += passText(i + 1, record.report.passes[i], sectors);
  if (record.report.passes.empty()) text += "No pass was begun.\n";
  text += "\n" + sampleText(drive, record.extent);
  if (isImage(drive))
    text +=
        "\nThis disk is a file. Its sectors were written, but the file system that holds the file\n"
        "may keep older blocks of it elsewhere; to be sure, wipe the disk that it lies on.\n";
  else
    text +=
        "\nSectors that the drive itself has put out of use, or keeps in reserve, cannot be "
        "reached\n"
        "by writing.\n";
  return text;
}

}  // namespace tallowin
