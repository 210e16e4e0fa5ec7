// How a journal lies in its file. The form is this program's own.
#pragma once

#include "base/bytes.h"

namespace tallowin {

inline constexpr u64 kJournalBlockBytes = 4096;
inline constexpr u64 kJournalHeaderBlock = 0;
inline constexpr u64 kJournalStateBlocks = 2;  // in turn, so that the older one stays whole
inline constexpr u64 kJournalTextBlock = 3;    // the description, then the attachment

struct JournalHeaderRecord {
  char magic[8] = {'T', 'L', 'W', 'J', 'R', 'N', 'L', '1'};
  Le32 descriptionBytes;
  Le32 attachmentBytes;
  Le32 textChecksum;  // CRC-32 of description and attachment
  Le32 checksum;      // CRC-32 of all before
};
static_assert(sizeof(JournalHeaderRecord) == 24);

struct JournalStateRecord {
  char magic[4] = {'S', 'T', 'A', 'T'};
  Le32 stateBytes;
  Le64 sequence;
  Le32 textChecksum;  // of the journal that it belongs to
  Le32 checksum;      // CRC-32 of all before, and of the state that follows
};
static_assert(sizeof(JournalStateRecord) == 24);

// Before the old contents of sectors, in the body of a journal.
struct UndoRecord {
  char magic[4] = {'O', 'L', 'D', 'S'};
  Le32 sectors;
  Le64 firstSector;
  Le32 dataChecksum;  // CRC-32 of the contents
  Le32 checksum;      // CRC-32 of all before
};
static_assert(sizeof(UndoRecord) == 24);

}  // namespace tallowin
