#include "support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tallowin {

TempFolder::TempFolder() {
  std::string pattern = std::filesystem::temp_directory_path() / "tallowin-test-XXXXXX";
  path_ = ::mkdtemp(pattern.data());
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void TempFolder::write(const std::string& name, const std::string& content) const {
  std::filesystem::create_directories(std::filesystem::path(file(name)).parent_path());
  std::ofstream(file(name), std::ios::binary) << content;
}

std::string TempFolder::read(const std::string& name) const {
  std::ostringstream content;
  content << std::ifstream(file(name), std::ios::binary).rdbuf();
  return content.str();
}

std::string TempFolder::sparse(const std::string& name, unsigned long long bytes) const {
  write(name, "");
  std::filesystem::resize_file(file(name), bytes);
  return file(name);
}

}  // namespace tallowin
