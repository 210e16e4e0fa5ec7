// The passes of a wipe.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

namespace tallowin {

// The numbers are published.
enum class WipeType : u8 {
  zeros = 0,
  mfm = 1,
  rll17 = 2,
  rll27 = 3,
  gutmann = 4,
  random1 = 5,
  random4 = 6,
  userDefined = 9,
};

struct WipePass {
  enum class Kind : u8 {
    fixed,     // `bytes`, over and over
    random,    // one buffer of random bytes, over and over
    fresh,     // random bytes, new ones all the way
    stirred,   // the same, with entropy stirred in after each buffer
    validate,  // reads back what the pass before it that was none of these has written
  };
  Kind kind = Kind::fixed;
  std::vector<u8> bytes;
  // The rest of each sector is filled with the last of the bytes.
  bool fillsSector = false;

  friend bool operator==(const WipePass&, const WipePass&) = default;
};

// Of a built-in method.
std::vector<WipePass> passesOf(WipeType type);
// Of a text: one token a pass, "r", "n", "s", "v", or numbers joined by "&" with a ">" at the end
// where the last one fills the sector. Nothing when it is invalid, or a group has more bytes than
// `mostBytes`.
std::optional<std::vector<WipePass>> parsePasses(std::string_view text, std::size_t mostBytes);
inline constexpr std::size_t kMostPatternBytes = 128;  // in a dialog

// "random, 4 passes and zeros".
struct WipeMethod {
  WipeType type;
  std::string_view word;  // for scripts
  const char* label;      // in the dialog, with its mnemonic
};
std::span<const WipeMethod> wipeMethods();

bool needsEntropy(std::span<const WipePass> passes);

}  // namespace tallowin
