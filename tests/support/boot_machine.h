// A PC that boots an image file: what its text screen shows, and keys for it.
#pragma once

#include <sys/types.h>

#include <string>

#include "support/temp_folder.h"

namespace tallowin {

// An emulator without a window. It boots the first hard disk and may write to the image; it ends
// with the object, and by itself after ten minutes.
class BootMachine {
 public:
  explicit BootMachine(const std::string& imagePath);
  ~BootMachine();
  BootMachine(const BootMachine&) = delete;
  BootMachine& operator=(const BootMachine&) = delete;

  static bool isInstalled();

  // The lines of the screen, each with its line end and without the blanks before that.
  std::string screen();
  // Waits until the screen holds `text` so many times; false when that takes three minutes.
  bool shows(const std::string& text, int times = 1);
  // By the emulator's name for it: "ret", "a".
  bool press(const std::string& key);

 private:
  // One command of the machine protocol; false when it was refused or the machine has ended.
  bool execute(const std::string& command);

  TempFolder folder_;
  pid_t process_ = -1;
  int toMachine_ = -1;
  int fromMachine_ = -1;
  std::string received_;
};

}  // namespace tallowin

#define TALLOWIN_NEEDS_BOOT_MACHINE() \
  if (!tallowin::BootMachine::isInstalled()) GTEST_SKIP() << "needs qemu-system-i386"
