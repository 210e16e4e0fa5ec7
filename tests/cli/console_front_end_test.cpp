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
  // In the order of Consent, and the prompt of disk errors.
  static std::string answers(std::optional<Consent> given) {
    ConsoleFrontEnd ui;
    if (given) ui.agreeTo(*given);
    std::string text;
    const auto note = [&text](bool yes) { text += yes ? 'y' : 'n'; };
    for (const Consent consent :
         {Consent::general, Consent::insist, Consent::diskError, Consent::withoutCopy})
      note(ui.confirm(consent, "", "?"));
    note(askDiskError(ui, Direction::write));
    return text;
  }
};

TEST_F(ConsoleFrontEndTest, EachConsentAnswersItsOwnQuestionsOnly) {
  EXPECT_EQ(answers(std::nullopt), "nnnnn");
  EXPECT_EQ(answers(Consent::general), "ynnnn");
  EXPECT_EQ(answers(Consent::insist), "nynnn");
  EXPECT_EQ(answers(Consent::diskError), "nnyny");
}

}  // namespace
}  // namespace tallowin
