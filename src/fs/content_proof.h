// What the files of a volume hold, so that it can be said later that they still do.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/job.h"
#include "fs/tree_walk.h"

namespace tallowin {

using ContentHash = std::array<u8, 16>;  // XXH3 of 128 bits, in the order in which it is printed

struct ProvenFile {
  std::string path;  // from the root on; of a directory it ends in '/'
  u64 sizeBytes = 0;
  FileTimes times;
  ContentHash hash = {};  // zeros of a directory

  bool isDirectory() const { return path.ends_with('/'); }
};

struct ContentProof {
  std::vector<ProvenFile> files;  // by path, in the order of bytes
};

// Reads everything below `top`, a directory, or the file that it is; in the order of the disk, in
// large pieces. Phase proving. cancelled; else those of FileSystem.
FileFailure proveContent(FileSystem& files, const std::string& top, Job& job, ContentProof& proof);

enum class FileChange : u8 { missing, added, content, time };

struct ProofDifference {
  std::string path;
  FileChange change = FileChange::content;
};

struct ProofComparison {
  u64 files = 0;                             // of the earlier proof, directories not among them
  u64 identical = 0;                         // of them, in content; a time may differ
  std::vector<ProofDifference> differences;  // in the order of their paths

  bool isSame() const { return differences.empty(); }
};

// Times are compared by when a file was last written.
ProofComparison compareProofs(const ContentProof& before, const ContentProof& after);
// "12,431 files, 12,431 identical".
std::string comparisonText(const ProofComparison& comparison);
// "missing", "added", "changed", "time".
const char* changeWord(FileChange change);

// One line a file: hash, size, time of the last write in UTC, path. Line breaks and backslashes of
// a path are written as \n and \\.
std::string proofText(const ContentProof& proof);
std::string hashText(const ContentHash& hash);
// What proofText made; nothing for any other text.
std::optional<ContentProof> parseProof(std::string_view text);

}  // namespace tallowin
