#include "cli/command.h"

#include "base/stop_request.h"
#include "ops/error_text.h"

namespace tallowin {
namespace {

std::string joined(const std::vector<std::string>& lines, const std::string& otherwise) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : " ") + line;
  return text.empty() ? otherwise : text;
}

std::string withExplanation(const std::string& what, Failure code) {
  const std::string why = errorText(code);
  return why.empty() ? what : what + " " + why;
}

std::string whatWasLacking(Consent consent, const char* insistence) {
  switch (consent) {
    case Consent::general:
      return " It needs a confirmation and there is no terminal to ask on; nothing was changed. "
             "Repeat it with --yes.";
    case Consent::withoutCopy:
      return " --yes does not answer that, and nothing was changed. Name another folder with "
             "--keep-table, or go on without a copy with --no-keep-table.";
    case Consent::insist:
    case Consent::diskError:
    case Consent::none:
      break;
  }
  return " --yes does not answer that, and nothing was changed. Repeat it on a terminal and answer "
         "y" +
         std::string(*insistence != '\0' ? ", " : "") + insistence + ".";
}

}  // namespace

CommandResult failedBecause(const std::string& what, Failure code) {
  return {ExitStatus::failed, code, withExplanation(what, code)};
}

CommandResult resultOfFlow(const FlowResult& flow, const ConsoleFrontEnd& ui,
                           const std::string& what) {
  if (flow.succeeded()) {
    if (stopRequested())
      return {ExitStatus::stopped, Error::cancelled,
              "Stopped; what was begun had been completed by then."};
    return {
        flow.end == FlowEnd::done ? ExitStatus::done : ExitStatus::doneWithLosses, flow.code, {}};
  }
  if (stopRequested())
    return {ExitStatus::stopped, Error::cancelled,
            joined(ui.told(), "Stopped by the user; nothing more was changed.")};
  if (const auto lacked = ui.lackedConsent())
    return refused((*lacked == Consent::general ? what : joined(ui.told(), what)) +
                   whatWasLacking(*lacked, ui.insistence()));
  if (flow.end == FlowEnd::cancelled)
    return {ExitStatus::failed, Error::cancelled,
            joined(ui.told(), what + " The question was not answered with yes; nothing more was "
                                     "changed. Repeat it and answer y, or use --yes.")};
  return {ExitStatus::failed, flow.code, joined(ui.told(), withExplanation(what, flow.code))};
}

}  // namespace tallowin
