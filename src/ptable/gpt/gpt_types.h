// The partition types of a GUID Partition Table, and their names.
#pragma once

#include <vector>

#include "base/guid.h"
#include "probe/gpt_type_guids.h"

namespace tallowin {

struct GptType {
  Guid guid;
  const char* name;
};

// In the order in which a chooser offers them; the first is "Unused".
const std::vector<GptType>& gptTypes();
// Null for a type that is not in the list.
const char* gptTypeName(const Guid& guid);

// What of the types of an MBR says the same as a type of a GPT, and the other way round.
// Basic data for a type byte that has no GUID of its own.
Guid gptTypeFor(u16 type);
// `content` is the type by what the partition holds, kGptEntry when that is not known: it decides
// where the GUID says no more than "data".
u8 mbrTypeFor(const Guid& guid, u16 content);

enum GptAttribute : u8 {
  kGptRequired = 0,
  kGptNoBlockIo = 1,
  kGptLegacyBootable = 2,
  kGptReadOnly = 60,
  kGptShadowCopy = 61,
  kGptHidden = 62,
  kGptNoMount = 63,
};

}  // namespace tallowin
