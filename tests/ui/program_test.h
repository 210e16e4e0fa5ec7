// The program on images of the test's own, a person in front of it, and programs that watch.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "support/oracle.h"
#include "support/sfdisk.h"
#include "support/temp_folder.h"
#include "ui/screen.h"

namespace tallowin {

inline constexpr const char* kMainTitle = "Tallowin 1.32";

class ProgramTest : public testing::Test {
 protected:
  struct Place {
    int x;
    int y;
  };

  void SetUp() override {
    if (const std::string missing = Screen::whyMissing(); !missing.empty()) GTEST_SKIP() << missing;
    for (const char* judge : {"sfdisk", "mkfs.fat", "mlabel"})
      if (!hasProgram(judge)) GTEST_SKIP() << judge << " is not installed";
    // Settings and table backups of the program go here.
    setenv("TALLOWIN_HOME", folder_.path().c_str(), 1);
    screen_ = std::make_unique<Screen>();
    prepare();
  }
  virtual void prepare() {}

  void start(const std::vector<std::string>& images) {
    std::vector<std::string> command = {UI_PROGRAM, "-nd"};
    for (const std::string& image : images) command.push_back("-img:" + image);
    program_ = std::make_unique<ChildProcess>(command);
    expectWindow(kMainTitle);
  }
  void expectWindow(const std::string& title) {
    window_ = screen_->waitFor(title);
    ASSERT_FALSE(window_.empty()) << title;
  }
  // Keys, or a click, and the window that they lead to.
  void press(const std::string& keys, const std::string& title) {
    SCOPED_TRACE(keys);
    screen_->press(keys);
    expectWindow(title);
  }
  void click(Place place, const std::string& title = {}, const std::string& held = {}) {
    SCOPED_TRACE(testing::Message() << place.x << ", " << place.y);
    screen_->click(window_, place.x, place.y, held);
    if (!title.empty()) expectWindow(title);
  }

  TempFolder folder_;
  std::string image_;
  std::string window_;  // the one in front
  std::unique_ptr<Screen> screen_;
  std::unique_ptr<ChildProcess> program_;
};

}  // namespace tallowin
