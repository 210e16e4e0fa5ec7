// The three streams that every program begins with.
#pragma once

namespace tallowin {

// A stream that the program was started without would be the number of the next file that is
// opened, and what is said would go into a disk. Each missing one becomes a place that can be
// neither read nor written. Call it before anything is opened.
void occupyStandardStreams();

}  // namespace tallowin
