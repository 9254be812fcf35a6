// Records as JSON texts: attributes by their names in declared order, members of collections by the text of their key
// in the collection's order. Made from the same list of attributes as everything else that leaves the process.
#pragma once

#include <charconv>
#include <cmath>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "runtime/Types.h"

namespace Rix {

class Entity;

class JsonWriter {
 public:
  std::string take() { return std::move(text_); }

  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  // The name of the next value. Anything that has a text form can be one.
  template <class Key>
  void key(Key const& key) {
    separate();
    quoted(textOf(key));
    text_ += ':';
    first_ = true;
  }

  // A number or a truth value as such, anything else as its text form.
  template <class Value>
  void value(Value const& value) {
    separate();
    if constexpr (std::is_same_v<Value, bool>) {
      text_ += value ? "true" : "false";
    } else if constexpr (std::is_integral_v<Value>) {
      text_ += std::to_string(value);
    } else if constexpr (std::is_floating_point_v<Value>) {
      number(value);
    } else {
      quoted(textOf(value));
    }
    first_ = false;
  }
  // All attributes of a record; null for none.
  void entity(Entity const* entity);
  // Of an entity that stands elsewhere: its key, if it has one; null for none.
  template <class T>
  void reference(T const* entity) {
    if (!entity) {
      null();
    } else if constexpr (requires { entity->rixKey(); }) {
      value(entity->rixKey());
    } else {
      value(std::string_view("present"));
    }
  }
  void null();

 private:
  template <class Value>
  static std::string textOf(Value const& value) {
    if constexpr (requires { std::string_view(value); }) {
      return std::string(std::string_view(value));
    } else if constexpr (requires { std::string(value.view()); }) {
      return std::string(value.view());
    } else if constexpr (requires { std::string(value.stringValue()); }) {
      return value.stringValue();
    } else if constexpr (std::is_integral_v<Value>) {
      return std::to_string(value);
    } else {
      std::ostringstream text;
      text << value;
      return text.str();
    }
  }

  void open(char bracket);
  void close(char bracket);
  void separate() {
    if (!first_) text_ += ',';
  }
  void quoted(std::string_view text);
  // One that JSON has no form for becomes null.
  void number(double value);

  std::string text_;
  bool first_ = true;
};

// One record, with all below it.
std::string jsonText(Entity const& entity);

}  // namespace Rix
