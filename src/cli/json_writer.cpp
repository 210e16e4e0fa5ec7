#include "cli/json_writer.h"

#include <algorithm>

namespace tallowin {
namespace {

bool isUtf8(const std::string& text) {
  rapidjson::StringStream in(text.c_str());
  rapidjson::StringBuffer ignored;
  while (in.Tell() < text.size())
    if (!rapidjson::UTF8<>::Validate(in, ignored)) return false;
  return true;
}

}  // namespace

JsonWriter::JsonWriter() : writer_(buffer_) { writer_.SetIndent(' ', 2); }

void JsonWriter::name(const char* key) {
  if (key) writer_.Key(key);
}

void JsonWriter::beginObject(const char* key) {
  name(key);
  writer_.StartObject();
}

void JsonWriter::beginArray(const char* key) {
  name(key);
  writer_.StartArray();
}

void JsonWriter::text(const char* key, std::string_view value) {
  name(key);
  std::string valid(value);
  if (!isUtf8(valid))
    std::replace_if(
        valid.begin(), valid.end(), [](char c) { return static_cast<u8>(c) >= 0x80; }, '?');
  writer_.String(valid.c_str(), static_cast<rapidjson::SizeType>(valid.size()));
}

void JsonWriter::number(const char* key, u64 value) {
  name(key);
  writer_.Uint64(value);
}

void JsonWriter::boolean(const char* key, bool value) {
  name(key);
  writer_.Bool(value);
}

void JsonWriter::null(const char* key) {
  name(key);
  writer_.Null();
}

void JsonWriter::numberOrNull(const char* key, std::optional<u64> value) {
  if (value) return number(key, *value);
  null(key);
}

void JsonWriter::textOrNull(const char* key, const std::optional<std::string>& value) {
  if (value) return text(key, std::string_view(*value));
  null(key);
}

}  // namespace tallowin
