#include "ptable/gpt/gpt_health.h"

namespace tallowin {
namespace {

struct HealthText {
  const char* word;
  const char* sentence;
};

HealthText textsOf(const GptHealth& health) {
  if (health.source == GptCopy::backup)
    return {"damaged-primary", "The primary GPT is damaged; its backup was read instead."};
  switch (health.backup) {
    case GptBackupState::missing:
      return {"missing-backup", "The backup of the GPT is missing or damaged."};
    case GptBackupState::misplaced:
      return {"misplaced-backup", "The backup of the GPT does not lie at the end of the disk."};
    case GptBackupState::differs:
      return {"different-backup", "The backup of the GPT differs from the primary table."};
    case GptBackupState::beyondEnd:
      return {"shortened-disk", "The disk is shorter than its GPT says, so the backup is missing."};
    case GptBackupState::sound:
      break;
  }
  return {"sound", ""};
}

}  // namespace

const char* gptHealthWord(const GptHealth& health) { return textsOf(health).word; }
std::string gptHealthText(const GptHealth& health) { return textsOf(health).sentence; }

}  // namespace tallowin
