// REALbasic declaration strings as the host reads them:
//   "RotateQVT(angle as double,background as color) as picture"
//   "CountColorsQVT(byref red as memoryblock, ..., byref count as integer)"
//   "Close"
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ph {

enum class Type { None, Integer, Double, Boolean, Color, Picture, MemoryBlock, String, Graphics, Object };

struct Param {
  std::string name;
  Type type = Type::None;
  std::string typeName;  // as written; the class name for Type::Object
  bool byref = false;
};

struct Declaration {
  std::string text;
  std::string name;
  std::vector<Param> params;
  Type result = Type::None;
  std::string resultName;
};

// Null for a malformed declaration.
std::optional<Declaration> ParseDeclaration(std::string_view text);

// Case-insensitive; a name that is no built-in type is a class name.
Type TypeFromName(std::string_view name);
const char* TypeName(Type type);

}  // namespace ph
