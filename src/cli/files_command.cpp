// files: what lies in a partition, without mounting it.
#include <algorithm>
#include <cstdio>

#include "base/stop_request.h"
#include "cli/commands.h"
#include "cli/file_listing.h"
#include "cli/target.h"
#include "disk/transfer_buffer.h"
#include "files/host_file.h"
#include "ops/copy_files.h"
#include "ops/error_text.h"
#include "ops/operation_progress.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = 1 * kMiB;
constexpr std::size_t kShownDifferences = 100;
constexpr std::size_t kToldDamages = 100;

class FilesCommand;

struct Verb {
  std::string_view word;
  TargetUse use;
  enum class Other : u8 { none, optional, required } other;  // LOCAL or NEWNAME
  CommandResult (FilesCommand::*run)(CommandContext& context, Target& target,
                                     const PartitionEntry& entry);
};

class FilesCommand : public Command {
 public:
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  // Each of them a verb.
  CommandResult list(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult cat(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult get(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult put(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult remove(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult makeDirectory(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult removeDirectory(CommandContext& context, Target& target,
                                const PartitionEntry& entry);
  CommandResult move(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult stat(CommandContext& context, Target& target, const PartitionEntry& entry);
  CommandResult manifest(CommandContext& context, Target& target, const PartitionEntry& entry);

 private:
  std::string faultOf(const CommonOptions& common) const;
  CommandResult change(CommandContext& context, Target& target, const PartitionEntry& entry,
                       const FilesWork& work) const;
  CommandResult toldCopy(CommandContext& context, const FlowResult& flow,
                         const CopyReport& report) const;
  std::string newPath(FileSystem& files) const;

  const Verb* verb_ = nullptr;
  std::string path_;
  std::optional<std::string> other_;
  bool recursive_ = false;
  bool overwrite_ = false;
  bool skipSpecial_ = false;
  bool ignoreErrors_ = false;
};

constexpr Verb kVerbs[] = {
    {"ls", TargetUse::look, Verb::Other::none, &FilesCommand::list},
    {"cat", TargetUse::look, Verb::Other::none, &FilesCommand::cat},
    {"get", TargetUse::look, Verb::Other::required, &FilesCommand::get},
    {"put", TargetUse::change, Verb::Other::required, &FilesCommand::put},
    {"rm", TargetUse::change, Verb::Other::none, &FilesCommand::remove},
    {"mkdir", TargetUse::change, Verb::Other::none, &FilesCommand::makeDirectory},
    {"rmdir", TargetUse::change, Verb::Other::none, &FilesCommand::removeDirectory},
    {"mv", TargetUse::change, Verb::Other::required, &FilesCommand::move},
    {"stat", TargetUse::look, Verb::Other::none, &FilesCommand::stat},
    {"manifest", TargetUse::look, Verb::Other::optional, &FilesCommand::manifest},
};

std::optional<const Verb*> parseVerb(std::string_view text) {
  const Verb* found = std::ranges::find(kVerbs, text, &Verb::word);
  return found != std::end(kVerbs) ? std::optional(found) : std::nullopt;
}

void FilesCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  options
      .value("VERB", "WORD", verb_, parseVerb,
             "one of ls, cat, get, put, rm, mkdir, rmdir, mv, stat, manifest",
             "ls PATH, cat PATH, stat PATH; get PATH LOCAL copies out of the partition, put PATH "
             "LOCAL into it, files and whole trees; rm PATH, mkdir PATH, rmdir PATH, mv PATH "
             "NEWNAME; manifest PATH [LOCAL]: sizes, times and hashes, compared with an earlier "
             "manifest in the file LOCAL")
      .required();
  options.text("PATH", "TEXT", path_, "In the partition, from its root on: /folder/file");
  options.text("OTHER", "TEXT", other_, "LOCAL: a path of this machine; NEWNAME: a name or a path");
  declarePart(options, common);
  options.flag("-r,-R,--recursive", recursive_,
               "ls: with everything below; rm: a directory with everything in it");
  options.flag("--overwrite", overwrite_, "get, put: replace files that are there already");
  options.flag("--skip-special", skipSpecial_,
               "put: leave out symbolic links, devices and pipes, which are refused otherwise");
  options.flag("--ignore-errors", ignoreErrors_,
               "get, ls -R: leave out what lies on sectors that cannot be read");
  declareWriting(options, common);
  options.check([&] { return faultOf(common); });
}

std::string FilesCommand::faultOf(const CommonOptions& common) const {
  if (!verb_) return {};
  const std::string word(verb_->word);
  const bool hasDefault = verb_->word == "ls" || verb_->word == "manifest";
  if (path_.empty() && !hasDefault) return word + " needs a PATH in the partition";
  if (verb_->other == Verb::Other::required && (!other_ || other_->empty()))
    return word + (verb_->word == "mv" ? " needs a PATH and a NEWNAME" : " needs a PATH and LOCAL");
  if (verb_->other == Verb::Other::none && other_) return word + " takes one PATH";
  if (verb_->word == "cat" && common.json) return "cat has no --json";
  return {};
}

CommandResult FilesCommand::run(CommandContext& context) {
  if (path_.empty()) path_.assign(1, '/');
  if (ignoreErrors_) context.ui.agreeTo(Consent::diskError);
  Target target;
  ListedRow row;
  // What only reads has nothing to rehearse.
  if (CommandResult result = openPart(context, verb_->use, target, row); !result.succeeded())
    return result;
  return (this->*verb_->run)(context, target, *row.entry);
}

// --- Looking

// What a directory holds, or what in it matches the pattern that the path ends in.
Failure listFolder(FileSystem& files, const std::string& path, std::vector<ListedFile>& found) {
  const bool isPattern = hasWildcard(path);
  std::vector<FileInfo> entries;
  if (const Failure failed = isPattern ? files.find(path, entries) : files.list(path, entries))
    return failed;
  const std::string folder = isPattern ? path.substr(0, path.find_last_of("/\\") + 1) : path;
  std::ranges::sort(entries, {}, &FileInfo::name);
  for (const FileInfo& file : entries)
    found.push_back({folder.empty() ? file.name : joinedPath(folder, file.name), file});
  return {};
}

FileFailure listFiles(FileSystem& files, const std::string& path, bool isRecursive,
                      std::vector<ListedFile>& found, LeftOut leftOut) {
  if (hasWildcard(path)) return {listFolder(files, path, found), path};
  FileInfo info;
  if (const Failure failed = files.info(path, info)) return {failed, path};
  const auto add = [&](const std::string& place, const FileInfo& file) {
    found.push_back({place, file});
    return stopRequested() ? Failure(Error::cancelled) : Failure();
  };
  if (!info.isDirectory()) return {add(path, info), path};
  if (!isRecursive) return {listFolder(files, path, found), path};
  return walkTree(files, path, add,
                  [&](const FileFailure& failed) { return leftOut.takes(failed); });
}

// What is damaged was left out, and the rest is done.
void tellLeftOut(ConsoleFrontEnd& ui, const std::vector<FileFailure>& leftOut,
                 CommandResult& result) {
  if (leftOut.empty()) return;
  for (std::size_t i = 0; i < std::min(leftOut.size(), kToldDamages); ++i)
    ui.note("'" + leftOut[i].path + "' was left out: " + errorText(leftOut[i].failure));
  if (leftOut.size() > kToldDamages)
    ui.note(
        format("The first %zu of %zu that were left out are named.", kToldDamages, leftOut.size()));
  result.status = ExitStatus::doneWithLosses;
}

CommandResult FilesCommand::list(CommandContext& context, Target& target,
                                 const PartitionEntry& entry) {
  std::vector<ListedFile> found;
  std::vector<FileFailure> leftOut;
  const FlowResult flow = lookAtFiles(
      context.session.context(context.ui), *target.drive, entry, [&](FileSystem& files, Job& job) {
        return listFiles(files, path_, recursive_, found, LeftOut(job, leftOut));
      });
  CommandResult result = resultOfFlow(flow, context.ui, "The files cannot be listed.");
  if (!result.succeeded()) return result;
  tellLeftOut(context.ui, leftOut, result);
  if (!context.options.json) {
    for (const ListedFile& file : found)
      std::fputs(fileLine(file, recursive_ ? file.path : file.info.name).c_str(), stdout);
    return result;
  }
  context.json.beginArray("files");
  for (const ListedFile& file : found) {
    context.json.beginObject();
    writeFile(context.json, file);
    context.json.endObject();
  }
  context.json.endArray();
  return result;
}

CommandResult FilesCommand::stat(CommandContext& context, Target& target,
                                 const PartitionEntry& entry) {
  ListedFile file{path_, {}};
  const FlowResult flow = lookAtFiles(context.session.context(context.ui), *target.drive, entry,
                                      [&](FileSystem& files, Job&) -> FileFailure {
                                        return {files.info(path_, file.info), path_};
                                      });
  if (!flow.succeeded()) return resultOfFlow(flow, context.ui, "The file cannot be looked at.");
  if (context.options.json)
    writeFile(context.json, file);
  else
    std::fputs(fileText(file).c_str(), stdout);
  return {};
}

CommandResult FilesCommand::cat(CommandContext& context, Target& target,
                                const PartitionEntry& entry) {
  const FlowResult flow = lookAtFiles(context.session.context(context.ui), *target.drive, entry,
                                      [&](FileSystem& files, Job&) -> FileFailure {
                                        File file;
                                        if (const Failure failed = files.open(path_, {}, file))
                                          return {failed, path_};
                                        TransferBuffer buffer(kPieceBytes);
                                        if (!buffer) return {Error::outOfMemory, path_};
                                        for (u64 done = 1; done != 0;) {
                                          if (const Failure failed = file.read(buffer.span(), done))
                                            return {failed, path_};
                                          // What standard output does not take is told at the end.
                                          if (std::fwrite(buffer.data(), 1, done, stdout) != done)
                                            break;
                                          if (stopRequested()) return {Error::cancelled, path_};
                                        }
                                        return {file.close(), path_};
                                      });
  return resultOfFlow(flow, context.ui, "The file cannot be read.");
}

CommandResult FilesCommand::manifest(CommandContext& context, Target& target,
                                     const PartitionEntry& entry) {
  std::optional<ContentProof> before;
  if (other_) {
    std::string text;
    if (const Failure failed = loadTextFile(*other_, text))
      return failedBecause("'" + *other_ + "' cannot be read.", failed);
    before = parseProof(text);
    if (!before)
      return refused(
          "'" + *other_ + "' is no manifest; compare with what 'files manifest' printed before.",
          Error::notThisFormat);
  }
  ContentProof proof;
  const FlowResult flow = lookAtFiles(
      context.session.context(context.ui), *target.drive, entry,
      [&](FileSystem& files, Job& job) { return proveContent(files, path_, job, proof); });
  if (!flow.succeeded()) return resultOfFlow(flow, context.ui, "The files cannot be read.");
  if (!before) {
    if (context.options.json)
      writeProof(context.json, proof);
    else
      std::fputs(proofText(proof).c_str(), stdout);
    return {};
  }
  const ProofComparison comparison = compareProofs(*before, proof);
  if (!comparison.isSame()) {
    std::string text = comparisonText(comparison) + ".";
    for (std::size_t i = 0; i < std::min(comparison.differences.size(), kShownDifferences); ++i)
      std::fprintf(stderr, "%-8s %s\n", changeWord(comparison.differences[i].change),
                   printableFromUtf8(comparison.differences[i].path).c_str());
    if (comparison.differences.size() > kShownDifferences)
      text += format(" The first %zu of %zu differences are shown.", kShownDifferences,
                     comparison.differences.size());
    return refused(text + " Look at the files that are named.");
  }
  if (context.options.json)
    writeComparison(context.json, comparison);
  else
    std::printf("%s\n", comparisonText(comparison).c_str());
  return {};
}

// --- Copying

CommandResult FilesCommand::toldCopy(CommandContext& context, const FlowResult& flow,
                                     const CopyReport& report) const {
  if (report.neededBytes != 0)
    context.ui.note(format("It needs %s, and %s are free; nothing was copied.",
                           bytesText(report.neededBytes).c_str(),
                           bytesText(report.freeBytes).c_str()));
  else if (!flow.succeeded())
    context.ui.note(report.files == 0 && report.folders == 0
                        ? std::string(flow.end == FlowEnd::cancelled
                                          ? "Stopped; nothing was copied."
                                          : "Nothing was copied.")
                        : format("%llu of %llu file(s) were copied before that, and are whole.",
                                 static_cast<unsigned long long>(report.files),
                                 static_cast<unsigned long long>(report.filesWanted)));
  if (flow.code == Error::read && verb_->use == TargetUse::look)
    context.ui.note("With --ignore-errors all other files of a directory are copied.");
  CommandResult result = resultOfFlow(flow, context.ui, "The files were not copied.");
  if (!result.succeeded()) return result;
  for (const std::string& path : report.skipped) context.ui.note("'" + path + "' was left out.");
  if (!report.skipped.empty()) result.status = ExitStatus::doneWithLosses;
  tellLeftOut(context.ui, report.leftOut, result);
  if (context.options.json) {
    context.json.number("files", report.files);
    context.json.number("folders", report.folders);
    context.json.number("bytes", report.bytes);
  } else {
    std::printf("%llu file(s) and %llu folder(s) copied, %s\n",
                static_cast<unsigned long long>(report.files),
                static_cast<unsigned long long>(report.folders), bytesText(report.bytes).c_str());
  }
  return result;
}

CommandResult FilesCommand::get(CommandContext& context, Target& target,
                                const PartitionEntry& entry) {
  const CopyWish wish{.from = path_, .to = *other_, .overwrite = overwrite_};
  CopyReport report;
  const FlowResult flow =
      lookAtFiles(context.session.context(context.ui), *target.drive, entry,
                  [&](FileSystem& files, Job& job) { return copyOut(files, wish, job, report); });
  return toldCopy(context, flow, report);
}

CommandResult FilesCommand::put(CommandContext& context, Target& target,
                                const PartitionEntry& entry) {
  const CopyWish wish{
      .from = *other_, .to = path_, .overwrite = overwrite_, .skipSpecial = skipSpecial_};
  CopyReport report;
  const bool hadErrors = target.drive->table().hasErrors();
  const FlowResult flow =
      changeFiles(context.session.context(context.ui), *target.drive, entry,
                  [&](FileSystem& files, Job& job) { return copyIn(files, wish, job, report); });
  CommandResult result = toldCopy(context, flow, report);
  return result.succeeded() ? endChange(context, target, hadErrors, std::move(result)) : result;
}

// --- Changing

CommandResult FilesCommand::change(CommandContext& context, Target& target,
                                   const PartitionEntry& entry, const FilesWork& work) const {
  const bool hadErrors = target.drive->table().hasErrors();
  const FlowResult flow =
      changeFiles(context.session.context(context.ui), *target.drive, entry, work);
  CommandResult result = resultOfFlow(flow, context.ui, "Nothing was changed.");
  return result.succeeded() ? endChange(context, target, hadErrors, std::move(result)) : result;
}

CommandResult FilesCommand::remove(CommandContext& context, Target& target,
                                   const PartitionEntry& entry) {
  const bool hadErrors = target.drive->table().hasErrors();
  const FlowResult flow = removeFilesFlow(context.session.context(context.ui), *target.drive, entry,
                                          path_, recursive_ ? RemoveWhat::tree : RemoveWhat::file);
  CommandResult result = resultOfFlow(flow, context.ui, "'" + path_ + "' was not deleted.");
  return result.succeeded() ? endChange(context, target, hadErrors, std::move(result)) : result;
}

CommandResult FilesCommand::makeDirectory(CommandContext& context, Target& target,
                                          const PartitionEntry& entry) {
  return change(context, target, entry, [&](FileSystem& files, Job&) -> FileFailure {
    return {files.makeDirectory(path_), path_};
  });
}

CommandResult FilesCommand::removeDirectory(CommandContext& context, Target& target,
                                            const PartitionEntry& entry) {
  return change(context, target, entry, [&](FileSystem& files, Job&) -> FileFailure {
    return {files.removeDirectory(path_), path_};
  });
}

// A name stays in its folder; a path that is a folder takes it in.
std::string FilesCommand::newPath(FileSystem& files) const {
  const std::size_t cut = path_.find_last_of("/\\");
  const std::string name = cut == std::string::npos ? path_ : path_.substr(cut + 1);
  FileInfo info;
  if (other_->find_first_of("/\\") == std::string::npos)
    return cut == std::string::npos ? *other_ : path_.substr(0, cut + 1) + *other_;
  const bool isFolder = !files.info(*other_, info) && info.isDirectory();
  return isFolder ? joinedPath(*other_, name) : *other_;
}

CommandResult FilesCommand::move(CommandContext& context, Target& target,
                                 const PartitionEntry& entry) {
  return change(context, target, entry, [&](FileSystem& files, Job&) -> FileFailure {
    const std::string to = newPath(files);
    const Failure failed = files.move(path_, to);
    const bool isAboutNew = failed == Error::alreadyExists || failed == Error::invalidName ||
                            failed == Error::nameTooLong;
    return {failed, isAboutNew ? to : path_};
  });
}

}  // namespace

const CommandRow kFilesCommand = {"files", "List, copy and change the files in a partition",
                                  makeCommand<FilesCommand>};

}  // namespace tallowin
