#include "base/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace tallowin {

void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    // The lowest free number is taken. A folder can be opened everywhere, without touching a
    // device.
    if (::fcntl(stream, F_GETFD) == -1) static_cast<void>(::open("/", O_RDONLY | O_DIRECTORY));
}

}  // namespace tallowin
