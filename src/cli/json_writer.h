// JSON for scripts.
#pragma once

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/types.h"

namespace tallowin {

// Writes one object, member by member; `key` is left out inside an array.
class JsonWriter {
 public:
  JsonWriter();

  void beginObject(const char* key = nullptr);
  void endObject() { writer_.EndObject(); }
  void beginArray(const char* key);
  void endArray() { writer_.EndArray(); }

  // Bytes that are no UTF-8 (a path may hold them) become "?".
  void text(const char* key, std::string_view value);
  void number(const char* key, u64 value);
  void boolean(const char* key, bool value);
  void null(const char* key);
  // Null for nothing.
  void numberOrNull(const char* key, std::optional<u64> value);
  void textOrNull(const char* key, const std::optional<std::string>& value);

  const char* content() const { return buffer_.GetString(); }

 private:
  void name(const char* key);

  rapidjson::StringBuffer buffer_;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer_;
};

}  // namespace tallowin
