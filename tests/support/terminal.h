// Runs a program on a terminal, as somebody who sits before it does.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/oracle.h"

namespace tallowin {

class Terminal {
 public:
  explicit Terminal(const std::vector<std::string>& command, unsigned short columns = 80);
  // Ends a program that still runs.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Waits until the text has appeared. False when the program ended, or a minute passed, before.
  bool waitFor(const std::string& text);
  // "\n" is Enter, "\x03" is Ctrl-C.
  void type(const std::string& keys);
  // Waits for the end, at most a minute from the last output; everything that appeared.
  ProgramResult finish();

 private:
  bool readMore(int timeoutMilliseconds);

  pid_t program_ = -1;
  int terminal_ = -1;
  bool ended_ = false;  // nobody holds the other end any more
  std::string shown_;
};

}  // namespace tallowin
