#include "ops/disk_error_prompt.h"

namespace tallowin {

bool askDiskError(FrontEnd& ui, Direction direction) {
  const char* doing = direction == Direction::read ? "reading from" : "writing to";
  const std::string text =
      format("%s\n%s\n\n%s", format("An error has occurred %s the hard drive.  ", doing).c_str(),
             "You can ignore all errors and continue or cancel\nthis process.",
             "*Warning* Continuing may result in the loss of data.");
  return ui.confirm(Consent::diskError, "Error", text, MessageKind::warning,
                    ButtonSet::continueCancel);
}

namespace {

constexpr const char* kIgnoreFurther = "\n\nDo you want to continue and ignore further problems?";

}  // namespace

bool askToIgnoreWipeErrors(FrontEnd& ui, Direction direction) {
  const std::string what = direction == Direction::read
                               ? "An error has occurred during a read from the drive."
                               : "An error has occurred during a write to the drive.";
  return ui.confirm(Consent::diskError, "Warning", what + kIgnoreFurther);
}

bool askToIgnoreMismatch(FrontEnd& ui) {
  return ui.confirm(Consent::diskError, "Warning",
                    std::string("Wipe read validation has found a problem of mismatched sector "
                                "data.") +
                        kIgnoreFurther);
}

}  // namespace tallowin
