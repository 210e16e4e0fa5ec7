#include "ops/edit_file_flow.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "base/text.h"
#include "fs/new_file.h"
#include "fs/whole_file.h"
#include "ops/edit_model.h"
#include "ops/error_text.h"
#include "ops/file_source.h"
#include "ops/target_check.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

constexpr const char* kNotWritten = "The data could not be written to disk.";

// What tells one state of a file from another.
struct FileState {
  u64 sizeBytes = 0;
  FileTime modified = 0;
  u64 place = 0;
  u32 attributes = 0;

  friend bool operator==(const FileState&, const FileState&) = default;
};
using MaybeFile = std::optional<FileState>;  // nothing: there is none

// A name that nothing can have is found as nothing; writing to it says why.
Failure lookAt(FileSystem& files, const std::string& path, MaybeFile& found) {
  FileInfo info;
  found.reset();
  const Failure failed = files.info(path, info);
  if (failed == Error::noSuchFile || failed == Error::invalidName || failed == Error::nameTooLong)
    return {};
  if (!failed) found = {info.sizeBytes, info.times.modified, info.place, info.attributes};
  return failed;
}

// What was cut within a character of UTF-8, without that one.
std::string_view withoutHalfCharacter(std::string_view text) {
  constexpr std::size_t kLongest = 4;
  for (std::size_t cut = 0; cut < std::min(kLongest, text.size()); ++cut)
    if (const auto whole = text.substr(0, text.size() - cut); utf16Of(whole)) return whole;
  return text;
}

class EditFile {
 public:
  EditFile(const OperationContext& context, Drive& drive, const PartitionEntry& entry)
      : context_(context), drive_(drive), entry_(entry) {}

  FlowResult run(const std::function<void(int topic)>& showHelp);

 private:
  std::optional<std::string> choose(const std::string& start, u32 flags);
  std::optional<FlowResult> findOutWhetherReadOnly();
  std::optional<FlowResult> load(const std::string& path);
  void take(std::string_view bytes, u64 sizeBytes, const Failure& failed);

  bool save();
  bool saveAs();
  bool writeTo(const std::string& path, MaybeFile expected);
  enum class End : u8 { written, isAnother, told };
  End write(const std::string& path, const MaybeFile& expected, MaybeFile& found);
  Failure fill(NewFile& file, const std::string& path);
  bool mayReplace(const std::string& path, const MaybeFile& expected, const MaybeFile& found);
  bool isWritable(const EditText& text);

  const OperationContext& context_;
  Drive& drive_;
  const PartitionEntry& entry_;
  VolumeFileSource source_{context_, drive_, entry_};
  EditModel model_{context_.ui, [this] { return save(); }, [this] { return saveAs(); }};
  std::string path_;
  MaybeFile state_;       // of the file as it was read or written
  std::string agreedTo_;  // a file that is marked read-only, and may be replaced all the same
  bool wasSaved_ = false;
};

std::optional<std::string> EditFile::choose(const std::string& start, u32 flags) {
  return context_.ui.chooseFile(
      {.startPath = start, .flags = flags | FileChoice::joinRelative, .source = &source_});
}

FlowResult EditFile::run(const std::function<void(int topic)>& showHelp) {
  if (auto stopped = refuseWhenInUse(context_, drive_, {entry_.startSector, entry_.endSector}))
    return *stopped;
  if (auto stopped = findOutWhetherReadOnly()) return *stopped;
  const auto path = choose("/", FileChoice::mustExist);
  if (!path) return {FlowEnd::cancelled, Error::cancelled};
  if (auto stopped = load(*path)) return *stopped;
  if (showHelp) model_.help = [&showHelp] { showHelp(EditModel::kHelpTopic); };
  context_.ui.run(model_);
  return wasSaved_ ? FlowResult() : FlowResult{FlowEnd::cancelled, Error::cancelled};
}

// The user is told before typing.
std::optional<FlowResult> EditFile::findOutWhetherReadOnly() {
  {
    VolumeFiles volume(context_, drive_);
    if (auto stopped = volume.open(entry_, FilesUse::look)) return stopped;
  }
  if (drive_.disk().traits().readOnly) {
    model_.setReadOnly("This disk can only be read.");
    return std::nullopt;
  }
  Mount mount;
  const Failure failed = context_.mounts.mount(rangeOf(drive_, entry_), entry_.type,
                                               openWishOf(context_, FilesUse::change), mount);
  if (failed == Error::accessDenied || (!failed && !mount.files().isWritable()))
    model_.setReadOnly("A file system of this kind can only be read.");
  return std::nullopt;
}

// --- Reading

std::optional<FlowResult> EditFile::load(const std::string& path) {
  VolumeFiles volume(context_, drive_);
  if (auto stopped = volume.open(entry_, FilesUse::look)) return stopped;
  std::vector<u8> buffer(kMostEditedBytes);
  u64 done = 0;
  path_ = path;
  // As it is spelled there.
  FileInfo info;
  if (!volume.files().info(path, info)) path_.replace(path.rfind('/') + 1, path.npos, info.name);
  Failure failed = lookAt(volume.files(), path_, state_);
  if (!failed) failed = readFileRange(volume.files(), path_, buffer, 0, done);
  take({reinterpret_cast<const char*>(buffer.data()), done}, state_ ? state_->sizeBytes : 0,
       failed);
  return std::nullopt;
}

// A file that cannot be read is shown empty; what it holds is not to be lost to that.
void EditFile::take(std::string_view bytes, u64 sizeBytes, const Failure& failed) {
  const std::string_view shown = bytes.substr(0, bytes.find('\0'));
  const bool endsEarly = shown.size() < bytes.size();
  const bool hasMore =
      sizeBytes > bytes.size() || bytes.find_first_not_of('\0', shown.size()) != bytes.npos;
  model_.text.load(hasMore && !endsEarly ? withoutHalfCharacter(shown) : shown,
                   context_.options.codePage());
  model_.needsOtherName = failed || hasMore;
  std::string limits;
  if (failed) limits = "The file could not be read. " + errorText(failed);
  if (!failed && (endsEarly || bytes.size() == kMostEditedBytes)) {
    limits = "File Truncated!";
    std::string text = limits + "\n\n";
    text += endsEarly ? "The text up to the first NUL is shown."
                      : format("The first %u bytes are shown.", kMostEditedBytes);
    text += hasMore     ? "\nSave asks for another name, so that the rest is not lost."
            : endsEarly ? "\nThe NULs behind it are not saved with it."
                        : "\nThat is the whole file, and as much as can be edited.";
    context_.ui.messageBox({MessageKind::warning, "Warning", text});
  }
  model_.setFile(path_, limits);
}

// --- Writing

bool EditFile::save() {
  if (!model_.text.isChanged() && state_) {
    MaybeFile now;
    const FlowResult looked =
        lookAtFiles(context_, drive_, entry_, [&](FileSystem& files, Job&) -> FileFailure {
          return {lookAt(files, path_, now), path_};
        });
    if (!looked.succeeded()) return false;
    if (now == state_) return true;
  }
  return writeTo(path_, state_);
}

bool EditFile::saveAs() {
  // What is cut short is not offered its own name.
  const std::string start = model_.needsOtherName ? path_.substr(0, path_.rfind('/') + 1) : path_;
  const auto path = choose(start, FileChoice::save | FileChoice::askOverwrite);
  if (!path) return false;
  MaybeFile there;
  const FlowResult looked =
      lookAtFiles(context_, drive_, entry_, [&](FileSystem& files, Job&) -> FileFailure {
        return {lookAt(files, *path, there), *path};
      });
  return looked.succeeded() && writeTo(*path, there);
}

bool EditFile::isWritable(const EditText& text) {
  const auto misfit = text.misfit();
  if (!misfit) return true;
  context_.ui.errorBox(
      format("%s\nThe file is text of code page %u, which does not have the character '%s' (%s). "
             "Please write it otherwise.",
             kNotWritten, context_.options.codePage(), misfit->character.c_str(),
             placeIn(text.text(), misfit->position).c_str()));
  return false;
}

bool EditFile::writeTo(const std::string& path, MaybeFile expected) {
  if (!isWritable(model_.text)) return false;
  // What changes while a question stands is asked about again.
  for (;;) {
    MaybeFile found;
    switch (write(path, expected, found)) {
      case End::written:
        model_.text.setSaved();
        model_.needsOtherName = false;
        model_.setFile(path_, {});
        wasSaved_ = true;
        return true;
      case End::told:
        return false;
      case End::isAnother:
        if (!mayReplace(path, expected, found)) return false;
        expected = found;
    }
  }
}

bool EditFile::mayReplace(const std::string& path, const MaybeFile& expected,
                          const MaybeFile& found) {
  std::string text;
  if (found == expected) {
    agreedTo_ = path;
    text = format("\"%s\" is marked as read-only.\n\nOverwrite it?", path.c_str());
  } else if (!found) {
    text = format("\"%s\" is not there any more.\n\nSave it again?", path.c_str());
  } else if (!expected) {
    text = format("Overwrite \"%s\"?", path.c_str());
  } else {
    text =
        format("\"%s\" has changed on the disk since it was read.\n\nOverwrite it?", path.c_str());
  }
  const bool may = context_.ui.confirm(Consent::insist, "Warning", text);
  if (!may) agreedTo_.clear();
  return may;
}

// Under the lock nobody is asked.
EditFile::End EditFile::write(const std::string& path, const MaybeFile& expected,
                              MaybeFile& found) {
  VolumeFiles volume(context_, drive_);
  if (auto stopped = volume.open(entry_, FilesUse::change)) return End::told;
  FileFailure failed = {lookAt(volume.files(), path, found), path};
  const bool isMarked = found && (found->attributes & kFileReadOnly) != 0 && agreedTo_ != path;
  if (!failed && (found != expected || isMarked)) return End::isAnother;
  MaybeFile written;
  std::string writtenPath;
  if (!failed) {
    NewFile file(volume.files());
    failed = {fill(file, path), path};
    writtenPath = file.path();
  }
  if (!failed) failed = {lookAt(volume.files(), writtenPath, written), writtenPath};
  const Failure unfinished = volume.end();
  if (!failed) failed = {unfinished, path};
  if (failed) {
    context_.ui.errorBox(format("%s\n\"%s\": %s", kNotWritten, failed.path.c_str(),
                                errorText(failed.failure).c_str()));
    return End::told;
  }
  path_ = writtenPath;
  state_ = written;
  return End::written;
}

Failure EditFile::fill(NewFile& file, const std::string& path) {
  if (const Failure failed = file.create(path, NewFileName::other)) return failed;
  const std::string bytes = model_.text.bytes();
  u64 done = 0;
  if (const Failure failed =
          file.write({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, done))
    return failed;
  return file.finish();
}

}  // namespace

FlowResult editFileFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                        const std::function<void(int topic)>& showHelp) {
  return EditFile(context, drive, entry).run(showHelp);
}

}  // namespace tallowin
