#include "wipe/wipe_pattern.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

namespace tallowin {
namespace {

constexpr auto kMfm =
    std::to_array<u8>({0x55, 0xAA, 0x92, 0x49, 0x24, 0x55, 0xAA, 0x92, 0x49, 0x24});
constexpr auto kRll17 = std::to_array<u8>({0x55, 0xAA, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66,
                                           0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF});
constexpr auto kRll27 = std::to_array<u8>(
    {0x92, 0x49, 0x24, 0x00, 0x33, 0x66, 0x99, 0xCC, 0xFF, 0x92, 0x49, 0x24, 0x6D, 0xB6, 0xDB});
constexpr auto kGutmann = std::to_array<u8>({0x55, 0xAA, 0x92, 0x49, 0x24, 0x00, 0x11, 0x22, 0x33,
                                             0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC,
                                             0xDD, 0xEE, 0xFF, 0x92, 0x49, 0x24, 0x6D, 0xB6, 0xDB});
constexpr std::size_t kRandomAround = 4;  // passes on each side of the patterns

constexpr auto kMethods = std::to_array<WipeMethod>({
    {WipeType::random1, "random1", "Random - &1 Pass + 1"},
    {WipeType::random4, "random4", "Random - &4 Pass + 1"},
    {WipeType::mfm, "mfm", "Pattern - PG MFM 2&8 Pass + 1"},
    {WipeType::rll17, "rll17", "Pattern - PG RLL(1,7) 2&6 Pass + 1"},
    {WipeType::rll27, "rll27", "Pattern - PG RLL(2,7) 2&3 Pass + 1"},
    {WipeType::gutmann, "gutmann", "Pattern - PG 3&5 Pass + 1"},
    {WipeType::zeros, "zero", ""},
});

std::span<const u8> patternsOf(WipeType type) {
  switch (type) {
    case WipeType::mfm:
      return kMfm;
    case WipeType::rll17:
      return kRll17;
    case WipeType::rll27:
      return kRll27;
    case WipeType::gutmann:
      return kGutmann;
    default:
      return {};
  }
}

// Some bytes stand for a cycle of three that begins with them.
WipePass patternPass(u8 first) {
  for (const auto& cycle : {std::array<u8, 3>{0x92, 0x49, 0x24}, {0x6D, 0xB6, 0xDB}}) {
    const auto at = std::find(cycle.begin(), cycle.end(), first);
    if (at == cycle.end()) continue;
    WipePass pass;
    for (std::size_t i = 0; i < cycle.size(); ++i)
      pass.bytes.push_back(
          cycle[(static_cast<std::size_t>(at - cycle.begin()) + i) % cycle.size()]);
    return pass;
  }
  return {WipePass::Kind::fixed, {first}, false};
}

// A number as strtoul reads it with base 0; its low byte. Nothing when there is none.
std::optional<u8> takeByte(std::string_view& rest) {
  if (rest.empty() || std::isdigit(static_cast<unsigned char>(rest[0])) == 0) return std::nullopt;
  const std::string text(rest);
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 0);
  rest.remove_prefix(static_cast<std::size_t>(end - text.c_str()));
  return static_cast<u8>(value);
}

std::optional<WipePass::Kind> kindOfLetter(char letter) {
  switch (letter) {
    case 'r':
    case 'R':
      return WipePass::Kind::random;
    case 'n':
    case 'N':
      return WipePass::Kind::fresh;
    case 's':
    case 'S':
      return WipePass::Kind::stirred;
    case 'v':
    case 'V':
      return WipePass::Kind::validate;
    default:
      return std::nullopt;
  }
}

std::optional<WipePass> parseToken(std::string_view token, std::size_t mostBytes) {
  if (const auto kind = kindOfLetter(token[0]))
    return token.size() == 1 ? std::optional(WipePass{*kind, {}, false}) : std::nullopt;
  WipePass pass;
  for (;;) {
    const std::optional<u8> byte = takeByte(token);
    if (!byte || pass.bytes.size() == mostBytes) return std::nullopt;
    pass.bytes.push_back(*byte);
    if (token.empty()) return pass;
    if (token == ">") {
      pass.fillsSector = true;
      return pass;
    }
    if (token[0] != '&') return std::nullopt;
    token.remove_prefix(1);
  }
}

}  // namespace

std::span<const WipeMethod> wipeMethods() { return kMethods; }

std::vector<WipePass> passesOf(WipeType type) {
  const WipePass random{WipePass::Kind::random, {}, false};
  std::vector<WipePass> passes;
  const std::span<const u8> patterns = patternsOf(type);
  if (type == WipeType::random1) passes.assign(1, random);
  if (type == WipeType::random4) passes.assign(4, random);
  if (!patterns.empty()) passes.assign(kRandomAround, random);
  for (const u8 first : patterns) passes.push_back(patternPass(first));
  if (!patterns.empty()) passes.insert(passes.end(), kRandomAround, random);
  passes.push_back({WipePass::Kind::fixed, {0}, false});
  return passes;
}

std::optional<std::vector<WipePass>> parsePasses(std::string_view text, std::size_t mostBytes) {
  std::vector<WipePass> passes;
  while (!text.empty()) {
    const std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string_view::npos) break;
    text.remove_prefix(begin);
    const std::size_t end = std::min(text.find(' '), text.size());
    const auto pass = parseToken(text.substr(0, end), mostBytes);
    if (!pass) return std::nullopt;
    passes.push_back(*pass);
    text.remove_prefix(end);
  }
  return passes.empty() ? std::nullopt : std::optional(passes);
}

bool needsEntropy(std::span<const WipePass> passes) {
  return std::any_of(passes.begin(), passes.end(), [](const WipePass& pass) {
    return pass.kind != WipePass::Kind::fixed && pass.kind != WipePass::Kind::validate;
  });
}

}  // namespace tallowin
