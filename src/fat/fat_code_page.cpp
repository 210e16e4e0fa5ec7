#include "fat/fat_code_page.h"

#include <algorithm>

#include "fs/names.h"

namespace tallowin {
namespace {

constexpr std::size_t kHalf = 128;

constexpr char16_t kPage437[kHalf + 1] =
    u"ÇüéâäàåçêëèïîìÄÅ"
    u"ÉæÆôöòûùÿÖÜ¢£¥₧ƒ"
    u"áíóúñÑªº¿⌐¬½¼¡«»"
    u"░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
    u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧"
    u"╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀"
    u"αßΓπΣσµτΦΘΩδ∞φε∩"
    u"≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";

constexpr char16_t kPage850[kHalf + 1] =
    u"ÇüéâäàåçêëèïîìÄÅ"
    u"ÉæÆôöòûùÿÖÜø£Ø×ƒ"
    u"áíóúñÑªº¿®¬½¼¡«»"
    u"░▒▓│┤ÁÂÀ©╣║╗╝¢¥┐"
    u"└┴┬├─┼ãÃ╚╔╩╦╠═╬¤"
    u"ðÐÊËÈıÍÎÏ┘┌█▄¦Ì▀"
    u"ÓßÔÒõÕµþÞÚÛÙýÝ¯´"
    u"\u00AD±‗¾¶§÷¸°¨·¹³²■\u00A0";

}  // namespace

FatCodePage::FatCodePage(u32 number) : upperHalf_(number == 850 ? kPage850 : kPage437) {}

char16_t FatCodePage::unitOf(u8 byte) const {
  return byte < kHalf ? char16_t{byte} : upperHalf_[byte - kHalf];
}

std::optional<u8> FatCodePage::byteOf(char16_t unit) const {
  if (unit < kHalf) return static_cast<u8>(unit);
  const char16_t* end = upperHalf_ + kHalf;
  const char16_t* found = std::find(upperHalf_, end, unit);
  if (found == end) return std::nullopt;
  return static_cast<u8>(kHalf + static_cast<std::size_t>(found - upperHalf_));
}

std::optional<u8> FatCodePage::capitalByteOf(char16_t unit) const {
  const std::optional<u8> byte = byteOf(upperCase(unit));
  return byte ? byte : byteOf(unit);
}

}  // namespace tallowin
