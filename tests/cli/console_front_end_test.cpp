// Which questions the options of a command line answer where there is no terminal.
#include "cli/console_front_end.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "ops/disk_error_prompt.h"

namespace tallowin {
namespace {

class ConsoleFrontEndTest : public testing::Test {
 protected:
  ConsoleFrontEndTest() {
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(::dup2(nothing, STDIN_FILENO), STDIN_FILENO);
    ::close(nothing);
  }
  // Confirmation, insistence, disk error, what is always asked.
  static std::string answers(const ConsoleFrontEnd::Answers& given) {
    ConsoleFrontEnd ui(given);
    std::string text;
    const auto note = [&text](bool yes) { text += yes ? 'y' : 'n'; };
    const auto asks = [&ui](u32 flags) {
      return ui.questionBox("", ButtonSet::yesNo, MessageKind::warning, "?", flags) ==
             MessageResult::yes;
    };
    note(asks(0));
    note(asks(kInsist));
    note(asks(kDiskError));
    note(askDiskError(ui, DiskErrorKind::write));
    note(ui.questionBox("", ButtonSet::continueCancel, MessageKind::warning, "?") ==
         MessageResult::goOn);
    return text;
  }
};

TEST_F(ConsoleFrontEndTest, EachConsentAnswersItsOwnQuestionsOnly) {
  EXPECT_EQ(answers({}), "nnnnn");
  EXPECT_EQ(answers({.yes = true}), "ynnnn");
  EXPECT_EQ(answers({.overwrite = true}), "nynnn");
  EXPECT_EQ(answers({.ignoreErrors = true}), "nnyyn");
}

}  // namespace
}  // namespace tallowin
