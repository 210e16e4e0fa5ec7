#include "ops/operation_progress.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tallowin {
namespace {

constexpr u64 kNanosecondsPerSecond = 1'000'000'000;
constexpr u64 kDrawEvery = kNanosecondsPerSecond / 10;
constexpr u64 kServeEvery = kNanosecondsPerSecond / 50;
// A speed from less time than this says nothing.
constexpr u64 kSpeedAfter = kNanosecondsPerSecond / 2;

}  // namespace

std::string timeText(u64 seconds) {
  const unsigned long long hours = seconds / 3600;
  const auto minutes = static_cast<unsigned>(seconds / 60 % 60);
  const auto rest = static_cast<unsigned>(seconds % 60);
  return hours > 0 ? format("%llu:%02u:%02u", hours, minutes, rest)
                   : format("%u:%02u", minutes, rest);
}

std::string bytesText(u64 bytes) {
  constexpr auto kUnits = std::to_array<const char*>({"KiB", "MiB", "GiB", "TiB"});
  if (bytes < kKiB) return format("%llu B", static_cast<unsigned long long>(bytes));
  double amount = static_cast<double>(bytes) / kKiB;
  std::size_t unit = 0;
  while (amount >= 999.95 && unit + 1 < kUnits.size()) {
    amount /= kKiB;
    ++unit;
  }
  return format("%.1f %s", amount, kUnits[unit]);
}

OperationProgress::OperationProgress(FrontEnd& ui, Host& clock, const std::string& title,
                                     const std::string& text, const std::string& buttonLabel)
    : clock_(clock),
      dialog_(ui.progressDialog(title, text, buttonLabel)),
      startedAt_(clock.monotonicNanoseconds()) {}

void OperationProgress::begin(const std::string& text, const std::string& buttonLabel,
                              u64 totalBytes) {
  dialog_->setText(text);
  dialog_->setButton(buttonLabel);
  totalBytes_ = totalBytes;
  startedAt_ = clock_.monotonicNanoseconds();
  shownPercent_ = kAllOnes32;
  cancelled_ = false;
  show(0, 0);
}

void OperationProgress::setPercent(u32 percent) {
  percent = std::min<u32>(percent, 100);
  show(percent, totalBytes_ / 100 * percent + totalBytes_ % 100 * percent / 100);
}

void OperationProgress::setBytesDone(u64 bytes) {
  bytes = std::min(bytes, totalBytes_);
  const double share =
      totalBytes_ == 0 ? 0 : static_cast<double>(bytes) / static_cast<double>(totalBytes_);
  show(static_cast<u32>(share * 100), bytes);
}

void OperationProgress::show(u32 percent, u64 bytesDone) {
  const u64 now = clock_.monotonicNanoseconds();
  const bool isLast = percent == 100 && shownPercent_ != 100;
  if (!isLast && shownPercent_ != kAllOnes32 && now - shownAt_ < kDrawEvery) return;
  dialog_->setProgress(percent, details(percent, bytesDone, now));
  shownAt_ = now;
  shownPercent_ = percent;
}

std::string OperationProgress::details(u32 percent, u64 bytesDone, u64 now) const {
  std::string text;
  if (totalBytes_ != 0) text = bytesText(bytesDone) + " of " + bytesText(totalBytes_);
  const u64 elapsed = now - startedAt_;
  if (elapsed < kSpeedAfter || percent >= 100) return text;

  const double seconds = static_cast<double>(elapsed) / kNanosecondsPerSecond;
  double left = 0;
  if (bytesDone != 0) {
    const double speed = static_cast<double>(bytesDone) / seconds;
    text += ", " + bytesText(static_cast<u64>(speed)) + "/s, ";
    left = static_cast<double>(totalBytes_ - bytesDone) / speed;
  } else if (percent != 0) {
    left = seconds * (100.0 - percent) / percent;
  } else {
    return text;
  }
  return text + timeText(static_cast<u64>(std::llround(left))) + " left";
}

void OperationProgress::finish(const std::string& text) {
  dialog_->setText(text);
  dialog_->setProgress(100, {});
  dialog_->waitForClose();
}

bool OperationProgress::isCancelled() {
  if (cancelled_) return true;
  const u64 now = clock_.monotonicNanoseconds();
  if (servedAt_ != 0 && now - servedAt_ < kServeEvery) return false;
  servedAt_ = now;
  cancelled_ = dialog_->isCancelled();
  return cancelled_;
}

}  // namespace tallowin
