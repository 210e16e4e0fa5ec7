// Files of a volume as `files` prints them.
#pragma once

#include <string>

#include "cli/json_writer.h"
#include "fs/content_proof.h"

namespace tallowin {

struct ListedFile {
  std::string path;
  FileInfo info;
};

// "d-rhs", of what it has; time in local time; size; name.
std::string fileLine(const ListedFile& file, const std::string& name);
std::string fileText(const ListedFile& file);

// The members of an object that is begun and ended by the caller.
void writeFile(JsonWriter& json, const ListedFile& file);
// The member "files".
void writeProof(JsonWriter& json, const ContentProof& proof);
// The member "comparison".
void writeComparison(JsonWriter& json, const ProofComparison& comparison);

}  // namespace tallowin
