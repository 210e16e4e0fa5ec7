// The progress dialog of a long operation, fed from an engine's callback.
#pragma once

#include <memory>
#include <string>

#include "base/host.h"
#include "ops/front_end.h"

namespace tallowin {

// Shows percent, and where the amount of work is known the bytes done, the speed and the time
// left. It may be called as often as an engine likes: the bar is drawn, and events are served, a
// few times a second.
class OperationProgress {
 public:
  // Without a button label the operation cannot be stopped by a button.
  OperationProgress(FrontEnd& ui, Host& clock, const std::string& title, const std::string& text,
                    const std::string& buttonLabel);

  // The next phase: another text and button, the bar back at 0. `totalBytes` 0: not known.
  void begin(const std::string& text, const std::string& buttonLabel, u64 totalBytes = 0);
  void setTotalBytes(u64 totalBytes) { totalBytes_ = totalBytes; }
  void setText(const std::string& text) { dialog_->setText(text); }

  void setPercent(u32 percent);
  void setBytesDone(u64 bytes);
  // The end: the bar at 100, and what is shown stays until the user closes it.
  void finish(const std::string& text);
  // Serves events. True from the press of the button, Escape or the closing of the window on,
  // until the next phase begins.
  [[nodiscard]] bool isCancelled();

 private:
  void show(u32 percent, u64 bytesDone);
  std::string details(u32 percent, u64 bytesDone, u64 now) const;

  Host& clock_;
  std::unique_ptr<ProgressDialog> dialog_;
  u64 totalBytes_ = 0;
  u64 startedAt_ = 0;  // all times: nanoseconds of the monotonic clock
  u64 shownAt_ = 0;
  u64 servedAt_ = 0;
  u32 shownPercent_ = kAllOnes32;
  bool cancelled_ = false;
};

// "1:02:03", "4:05"; for the time that is left.
std::string timeText(u64 seconds);
// "512 B", "12.3 MiB", "1.0 GiB".
std::string bytesText(u64 bytes);

}  // namespace tallowin
