// What the commands share that move or resize what a partition holds.
#pragma once

#include "cli/target.h"
#include "ops/slide_flow.h"

namespace tallowin {

struct MovingOptions {
  std::optional<std::string> journal;  // a file, in place of one in the state folder
  bool noJournal = false;
  bool proof = false;
  bool ignoreErrors = false;
};

void declareMoving(OptionSet& options, MovingOptions& moving);
// Puts them into the options of the session; a rehearsal always compares the files.
void applyMoving(CommandContext& context, const MovingOptions& moving);

// The partition that starts there now, after `did` ("Resized"); of a rehearsal also what a check
// says, and what it would take.
CommandResult reportMoved(CommandContext& context, Target& target, u64 startSector,
                          const char* did);

// The same for what was moved to another place, with what was lost on the way.
CommandResult endMove(CommandContext& context, Target& target, const MoveTold& told,
                      const char* did, CommandResult& result);

}  // namespace tallowin
