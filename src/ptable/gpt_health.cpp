#include "ptable/gpt_health.h"

namespace tallowin {

const char* gptHealthWord(const GptHealth& health) {
  if (health.source == GptCopy::backup) return "damaged-primary";
  switch (health.backup) {
    case GptBackupState::missing:
      return "missing-backup";
    case GptBackupState::misplaced:
      return "misplaced-backup";
    case GptBackupState::differs:
      return "different-backup";
    case GptBackupState::sound:
      break;
  }
  return "sound";
}

std::string gptHealthText(const GptHealth& health) {
  if (health.source == GptCopy::backup)
    return "The primary GPT is damaged; its backup was read instead.";
  switch (health.backup) {
    case GptBackupState::missing:
      return "The backup of the GPT is missing or damaged.";
    case GptBackupState::misplaced:
      return "The backup of the GPT does not lie at the end of the disk.";
    case GptBackupState::differs:
      return "The backup of the GPT differs from the primary table.";
    case GptBackupState::sound:
      break;
  }
  return {};
}

}  // namespace tallowin
