// A manifest that the user gives back: what is taken for one is written as the same text again, and
// comes out of a comparison with itself as the same.
#include "fs/content_proof.h"
#include "fuzz_input.h"

using namespace tallowin;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size > 16 * kKiB) return 0;
  const auto proof = parseProof({reinterpret_cast<const char*>(data), size});
  if (!proof) return 0;
  const std::string text = proofText(*proof);
  const auto again = parseProof(text);
  require(again.has_value() && proofText(*again) == text);
  require(compareProofs(*proof, *again).isSame());
  return 0;
}
