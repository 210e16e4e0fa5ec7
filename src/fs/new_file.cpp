#include "fs/new_file.h"

#include "base/text.h"

namespace tallowin {
namespace {

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// With one separator, a slash, before each component.
std::string plainPath(const std::string& path) {
  std::string plain;
  for (const std::string_view part : componentsOf(path)) plain.append("/").append(part);
  return plain;
}

}  // namespace

NewFile::~NewFile() {
  // What went wrong before is what was told.
  static_cast<void>(file_.close());
  if (!name_.empty()) static_cast<void>(files_.deleteFile(name_));
}

std::string NewFile::freeName() const {
  for (u32 number = 0;; ++number)
    if (std::string name = folderOf(path_) + format("~TLWN%03X.TMP", number); !files_.exists(name))
      return name;
}

Failure NewFile::create(const std::string& path, NewFileName name) {
  path_ = plainPath(path);
  FileInfo older;
  const Failure found = files_.info(path_, older);
  if (found && found != Error::noSuchFile) return found;
  if (!found && older.isDirectory()) return Error::accessDenied;
  if (!found) path_ = folderOf(path_) + older.name;
  const std::string made = name == NewFileName::own ? path_ : freeName();
  if (const Failure failed = files_.open(
          made, {.access = FileAccess::write, .create = true, .exclusive = true}, file_))
    return failed;
  name_ = made;
  return {};
}

Failure NewFile::finish() {
  if (const Failure failed = file_.close()) return failed;
  if (name_ != path_)
    if (const Failure failed = takePlace()) return failed;
  name_.clear();
  return {};
}

Failure NewFile::takePlace() {
  const Failure failed = files_.move(name_, path_);
  return failed == Error::alreadyExists ? files_.replace(name_, path_) : failed;
}

}  // namespace tallowin
