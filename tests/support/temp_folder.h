// A folder for one test, removed at its end.
#pragma once

#include <string>

namespace tallowin {

class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Creates the file, and the folders above it.
  void write(const std::string& name, const std::string& content) const;
  std::string read(const std::string& name) const;
  // A sparse file of `bytes`; returns its path.
  std::string sparse(const std::string& name, unsigned long long bytes) const;

 private:
  std::string path_;
};

}  // namespace tallowin
