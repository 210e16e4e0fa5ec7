// How the two copies of a GPT stand to each other and to the disk.
#pragma once

#include <string>

#include "base/types.h"

namespace tallowin {

enum class GptCopy : u8 { primary, backup };

// What the second copy of a table looks like, seen from the first.
enum class GptBackupState : u8 {
  sound,
  missing,    // no valid copy where the header says, nor on the last sector
  misplaced,  // sound, but not on the last sector: the disk grew
  differs,    // valid by itself, with other entries
  beyondEnd,  // its place lies behind the end of the disk, which was shortened
};

struct GptHealth {
  GptCopy source = GptCopy::primary;  // the copy that was read
  GptBackupState backup = GptBackupState::sound;

  bool isSound() const { return source == GptCopy::primary && backup == GptBackupState::sound; }
};

// "damaged-primary", "missing-backup", ... for scripts; "sound".
const char* gptHealthWord(const GptHealth& health);
// One sentence for people; empty when the table is sound.
std::string gptHealthText(const GptHealth& health);

}  // namespace tallowin
