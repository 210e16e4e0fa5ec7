#include "files/ini_text.h"

#include <algorithm>

#include "base/text.h"

namespace tallowin {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::size_t skipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && isBlank(text[at])) ++at;
  return at;
}

// A line without and with its line end.
struct Line {
  std::size_t start = 0;
  std::size_t end = 0;
  std::size_t next = 0;
};

Line lineAt(std::string_view text, std::size_t start) {
  const std::size_t end = std::min(text.find_first_of(kLineEnd, start), text.size());
  std::size_t next = std::min(end + 1, text.size());
  if (text.substr(end).starts_with(kLineEnd)) ++next;
  return {start, end, next};
}

// Where the '[' of a header line stands; nothing when the line is none.
std::optional<std::size_t> headerIn(std::string_view text, const Line& line) {
  const std::size_t at = skipBlanks(text, line.start);
  if (at >= line.end || text[at] != '[') return std::nullopt;
  if (text.substr(at, line.end - at).find(']') == std::string_view::npos) return std::nullopt;
  return at;
}

std::size_t nextHeader(std::string_view text, std::size_t from) {
  while (from < text.size()) {
    const Line line = lineAt(text, from);
    if (const auto header = headerIn(text, line)) return *header;
    from = line.next;
  }
  return text.size();
}

struct ValueLine {
  Line line;
  std::size_t valueStart = 0;
};

std::optional<ValueLine> findValue(std::string_view text, std::optional<std::string_view> section,
                                   std::string_view key) {
  std::size_t at = 0;
  if (section) {
    const auto body = findSection(text, section);
    if (!body) return std::nullopt;
    at = *body;
  }
  while (at < text.size()) {
    const Line line = lineAt(text, at);
    if (headerIn(text, line)) return std::nullopt;
    const std::string_view content = text.substr(at, line.end - at);
    if (startsWithIgnoreCase(content, key)) {
      const std::size_t equals = skipBlanks(content, key.size());
      if (equals < content.size() && content[equals] == '=')
        return ValueLine{line, at + skipBlanks(content, equals + 1)};
    }
    at = line.next;
  }
  return std::nullopt;
}

// The text with [start, end) replaced, if it fits.
std::optional<std::size_t> replaceRange(std::string& text, std::size_t capacity, std::size_t start,
                                        std::size_t end, std::string_view with) {
  if (text.size() - (end - start) + with.size() >= capacity) return std::nullopt;
  text.replace(start, end - start, with);
  return start;
}

}  // namespace

std::optional<std::size_t> findSection(std::string_view text, std::optional<std::string_view> name,
                                       SectionRange* range) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t header = nextHeader(text, at);
    if (header == text.size()) break;
    const std::size_t body = lineAt(text, header).next;
    if (!name || equalsIgnoreCase(*name, sectionName(text, header))) {
      if (range != nullptr) *range = {header, nextHeader(text, body)};
      return body;
    }
    at = body;
  }
  return std::nullopt;
}

std::string_view sectionName(std::string_view text, std::size_t headerStart) {
  if (headerStart >= text.size() || text[headerStart] != '[') return {};
  const std::string_view name =
      text.substr(headerStart + 1, lineAt(text, headerStart).end - headerStart - 1);
  return name.substr(0, name.find(']'));
}

std::optional<std::string_view> getValue(std::string_view text,
                                         std::optional<std::string_view> section,
                                         std::string_view key) {
  const auto found = findValue(text, section, key);
  if (!found) return std::nullopt;
  std::string_view value = text.substr(found->valueStart, found->line.end - found->valueStart);
  while (!value.empty() && isBlank(value.back())) value.remove_suffix(1);
  return value;
}

std::optional<std::size_t> addSection(std::string& text, std::size_t capacity,
                                      std::string_view name) {
  if (const auto body = findSection(text, name)) return body;
  std::string header(text.empty() ? std::string_view{} : kLineEnd);
  header.append("[").append(name).append("]").append(kLineEnd);
  if (!replaceRange(text, capacity, text.size(), text.size(), header)) return std::nullopt;
  return text.size();
}

std::optional<std::size_t> setValue(std::string& text, std::size_t capacity,
                                    std::optional<std::string_view> value,
                                    std::optional<std::string_view> section, std::string_view key) {
  if (const auto found = findValue(text, section, key)) {
    const std::size_t lineStart = found->line.start;
    if (!value) {
      text.erase(lineStart, found->line.next - lineStart);
      return lineStart;
    }
    if (!replaceRange(text, capacity, found->valueStart, found->line.end, *value))
      return std::nullopt;
    return lineStart;
  }
  if (!value) return section ? findSection(text, section).value_or(text.size()) : 0;

  // Worked on a copy, so that a section is not left behind when its line does not fit.
  std::string edited = text;
  const auto body = section ? addSection(edited, capacity, *section) : std::size_t{0};
  if (!body) return std::nullopt;
  std::string line;
  const bool headerIsOpen = *body != 0 && kLineEnd.find(edited[*body - 1]) == std::string::npos;
  if (headerIsOpen) line.append(kLineEnd);
  line.append(key).append("=").append(*value).append(kLineEnd);
  if (!replaceRange(edited, capacity, *body, *body, line)) return std::nullopt;
  text = std::move(edited);
  return headerIsOpen ? *body + kLineEnd.size() : *body;
}

}  // namespace tallowin
