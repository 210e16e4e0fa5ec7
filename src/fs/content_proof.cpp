#include "fs/content_proof.h"

// The functions of the library as part of this file: no program needs it at its start.
#define XXH_INLINE_ALL
#ifdef __SANITIZE_ADDRESS__
#define XXH_NO_INLINE_HINTS 1  // which -Og cannot follow
#endif
#include <xxhash.h>

#include <algorithm>
#include <charconv>

#include "base/text.h"
#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = 4 * kMiB;
constexpr std::string_view kNoHash = "--------------------------------";

class Prover {
 public:
  Prover(FileSystem& files, Job& job, ContentProof& proof)
      : files_(files), job_(job), proof_(proof) {}

  FileFailure run(const std::string& top) {
    proof_.files.clear();
    if (!buffer_) return {Error::outOfMemory, top};
    if (FileFailure failed = find(top)) return failed;
    job_.phase(Phase::proving, totalBytes_);
    std::ranges::sort(found_, {}, &Found::place);
    for (const Found& file : found_)
      if (const Failure failed = hash(proof_.files[file.index]))
        return {failed, proof_.files[file.index].path};
    std::ranges::sort(proof_.files, {}, &ProvenFile::path);
    return {};
  }

 private:
  struct Found {
    std::size_t index;  // in the proof
    u64 place;          // FileInfo::place
  };

  FileFailure find(const std::string& top) {
    FileInfo info;
    if (const Failure failed = files_.info(top, info)) return {failed, top};
    const auto add = [&](const std::string& path, const FileInfo& entry) {
      if (!entry.isDirectory()) found_.push_back({proof_.files.size(), entry.place});
      totalBytes_ += entry.sizeBytes;
      proof_.files.push_back(
          {entry.isDirectory() ? path + "/" : path, entry.sizeBytes, entry.times, {}});
      return job_.shouldStop() ? Failure(Error::cancelled) : Failure();
    };
    std::string path;
    for (const std::string_view component : componentsOf(top)) path += "/" + std::string(component);
    if (!info.isDirectory()) return {add(path, info), path};
    return walkTree(files_, path.empty() ? "/" : path, add);
  }

  Failure hash(ProvenFile& proven) {
    File file;
    if (const Failure failed = files_.open(proven.path, {}, file)) return failed;
    XXH3_state_t* state = state_.get();
    XXH3_128bits_reset(state);
    for (u64 left = proven.sizeBytes; left != 0;) {
      u64 done = 0;
      if (const Failure failed = file.read(buffer_.span(), done)) return failed;
      if (done == 0) return Error::corrupt;
      XXH3_128bits_update(state, buffer_.data(), done);
      job_.advance(done);
      left -= std::min(left, done);
      if (job_.shouldStop()) return Error::cancelled;
    }
    XXH128_canonical_t canonical = {};
    XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state));
    std::ranges::copy(canonical.digest, proven.hash.begin());
    return job_.shouldStop() ? Failure(Error::cancelled) : file.close();
  }

  struct FreeState {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
  };

  FileSystem& files_;
  Job& job_;
  ContentProof& proof_;
  TransferBuffer buffer_{kPieceBytes};
  std::unique_ptr<XXH3_state_t, FreeState> state_{XXH3_createState()};
  std::vector<Found> found_;
  u64 totalBytes_ = 0;
};

std::string withSeparators(u64 number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return text;
}

std::string escaped(const std::string& path) {
  std::string text;
  for (const char c : path) {
    if (c == '\\' || c == '\n') text += '\\';
    text += c == '\n' ? 'n' : c;
  }
  return text;
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      path += text[i];
      continue;
    }
    if (++i == text.size() || (text[i] != 'n' && text[i] != '\\')) return std::nullopt;
    path += text[i] == 'n' ? '\n' : '\\';
  }
  return path;
}

bool parseHash(std::string_view text, ContentHash& hash) {
  if (text.size() != 2 * hash.size()) return false;
  for (std::size_t i = 0; i < hash.size(); ++i) {
    const char* first = text.data() + 2 * i;
    const auto [end, failure] = std::from_chars(first, first + 2, hash[i], 16);
    if (failure != std::errc() || end != first + 2) return false;
  }
  return true;
}

// What stands before the next blank, which goes with it.
std::string_view takeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(word.size() + 1, line.size()));
  return word;
}

std::optional<ProvenFile> parseLine(std::string_view line) {
  ProvenFile file;
  const std::string_view hash = takeWord(line);
  const bool isSize = parseDecimal(takeWord(line), file.sizeBytes);
  const std::optional<FileTime> modified = parseFileTime(takeWord(line));
  const std::optional<std::string> path = unescaped(line);
  if (!isSize || !modified || !path || !path->starts_with('/')) return std::nullopt;
  file.times.modified = *modified;
  file.path = *path;
  const bool isHash = file.isDirectory() ? hash == kNoHash : parseHash(hash, file.hash);
  return isHash ? std::optional(file) : std::nullopt;
}

}  // namespace

FileFailure proveContent(FileSystem& files, const std::string& top, Job& job, ContentProof& proof) {
  return Prover(files, job, proof).run(top);
}

ProofComparison compareProofs(const ContentProof& before, const ContentProof& after) {
  ProofComparison comparison;
  const auto note = [&](const ProvenFile& file, FileChange change) {
    comparison.differences.push_back({file.path, change});
  };
  auto now = after.files.begin();
  for (const ProvenFile& old : before.files) {
    if (!old.isDirectory()) ++comparison.files;
    for (; now != after.files.end() && now->path < old.path; ++now) note(*now, FileChange::added);
    if (now == after.files.end() || now->path != old.path) {
      note(old, FileChange::missing);
      continue;
    }
    const bool isIdentical = now->sizeBytes == old.sizeBytes && now->hash == old.hash;
    if (isIdentical && !old.isDirectory()) ++comparison.identical;
    if (!isIdentical)
      note(old, FileChange::content);
    else if (now->times.modified != old.times.modified)
      note(old, FileChange::time);
    ++now;
  }
  for (; now != after.files.end(); ++now) note(*now, FileChange::added);
  return comparison;
}

std::string comparisonText(const ProofComparison& comparison) {
  return withSeparators(comparison.files) + " files, " + withSeparators(comparison.identical) +
         " identical";
}

const char* changeWord(FileChange change) {
  switch (change) {
    case FileChange::missing:
      return "missing";
    case FileChange::added:
      return "added";
    case FileChange::content:
      return "changed";
    case FileChange::time:
      return "time";
  }
  return "";
}

std::string hashText(const ContentHash& hash) {
  std::string text;
  for (const u8 byte : hash) text += format("%02x", byte);
  return text;
}

std::string proofText(const ContentProof& proof) {
  std::string text;
  for (const ProvenFile& file : proof.files)
    text += format("%s %12llu %s ",
                   file.isDirectory() ? std::string(kNoHash).c_str() : hashText(file.hash).c_str(),
                   static_cast<unsigned long long>(file.sizeBytes),
                   fileTimeText(file.times.modified).c_str()) +
            escaped(file.path) + "\n";
  return text;
}

std::optional<ContentProof> parseProof(std::string_view text) {
  ContentProof proof;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::optional<ProvenFile> file = parseLine(text.substr(0, end));
    if (!file) return std::nullopt;
    proof.files.push_back(std::move(*file));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  // Of a damaged volume, two may be called the same.
  std::stable_sort(proof.files.begin(), proof.files.end(),
                   [](const ProvenFile& a, const ProvenFile& b) { return a.path < b.path; });
  return proof;
}

}  // namespace tallowin
