#include "ops/trace_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>

#include "base/text.h"
#include "base/waiting.h"

namespace tallowin {

void traceLine(const ProgramFolders& folders, const char* pattern, ...) {
  std::va_list arguments;
  va_start(arguments, pattern);
  const std::string line = formatList(pattern, arguments) + "\n";
  va_end(arguments);
  if (makeFolders(folders.state)) return;
  const int file =
      ::open(folders.traceFile().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) return;
  // A short write leaves a cut line, which is all that a full disk allows.
  if (::write(file, line.data(), line.size()) >= 0) static_cast<void>(waitedSync(file));
  ::close(file);
}

}  // namespace tallowin
