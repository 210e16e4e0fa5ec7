// A MoveCallback that records what it is told and stops where a test wants it to.
#pragma once

#include <vector>

#include "move/move_callback.h"

namespace tallowin {

// The cancel loop: run once to count the calls, then once for each call with stopAtCall there.
struct CallbackScript {
  struct Call {
    u32 id = 0;
    u32 value = 0;
    friend bool operator==(const Call&, const Call&) = default;
  };

  std::size_t stopAtCall = static_cast<std::size_t>(-1);  // answers false from this call on
  std::vector<Call> calls;

  // Borrows the script.
  MoveCallback callback() {
    return [this](u32 id, u32 value) {
      calls.push_back({id, value});
      return calls.size() <= stopAtCall;
    };
  }
};

}  // namespace tallowin
