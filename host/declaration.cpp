#include "host/declaration.h"

#include <cctype>

namespace ph {

namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

bool IsIdentifier(std::string_view s) {
  if (s.empty() || !(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_')) return false;
  for (char c : s) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
  }
  return true;
}

// Splits "X as T" at its last " as " (case-insensitive). False without one.
bool SplitAs(std::string_view s, std::string_view& head, std::string_view& type) {
  for (size_t i = s.size(); i-- > 0;) {
    if (i + 4 <= s.size() && std::isspace(static_cast<unsigned char>(s[i])) && EqualsNoCase(s.substr(i + 1, 2), "as") &&
        std::isspace(static_cast<unsigned char>(s[i + 3]))) {
      head = Trim(s.substr(0, i));
      type = Trim(s.substr(i + 4));
      return true;
    }
  }
  return false;
}

}  // namespace

Type TypeFromName(std::string_view name) {
  static const std::pair<const char*, Type> kTypes[] = {
      {"integer", Type::Integer}, {"double", Type::Double},     {"boolean", Type::Boolean},
      {"color", Type::Color},     {"picture", Type::Picture},   {"memoryblock", Type::MemoryBlock},
      {"string", Type::String},   {"graphics", Type::Graphics},
  };
  for (const auto& [text, type] : kTypes) {
    if (EqualsNoCase(name, text)) return type;
  }
  return Type::Object;
}

const char* TypeName(Type type) {
  switch (type) {
    case Type::None: return "none";
    case Type::Integer: return "integer";
    case Type::Double: return "double";
    case Type::Boolean: return "boolean";
    case Type::Color: return "color";
    case Type::Picture: return "picture";
    case Type::MemoryBlock: return "memoryblock";
    case Type::String: return "string";
    case Type::Graphics: return "graphics";
    case Type::Object: return "object";
  }
  return "?";
}

std::optional<Declaration> ParseDeclaration(std::string_view text) {
  Declaration d;
  d.text = std::string(text);
  std::string_view rest = Trim(text);

  // Result type after the closing parenthesis (or after the name).
  const size_t open = rest.find('(');
  std::string_view signature = rest;
  if (open != std::string_view::npos) {
    const size_t close = rest.find(')', open);
    if (close == std::string_view::npos) return std::nullopt;
    std::string_view tail = Trim(rest.substr(close + 1));
    if (!tail.empty()) {
      const std::string padded = " " + std::string(tail);
      std::string_view head, type;
      if (!SplitAs(padded, head, type) || !head.empty() || !IsIdentifier(type)) {
        return std::nullopt;
      }
      d.resultName = std::string(type);
      d.result = TypeFromName(type);
    }
    d.name = std::string(Trim(rest.substr(0, open)));
    std::string_view params = Trim(rest.substr(open + 1, close - open - 1));
    while (!params.empty()) {
      const size_t comma = params.find(',');
      std::string_view one = Trim(params.substr(0, comma));
      Param p;
      if (one.size() > 6 && EqualsNoCase(one.substr(0, 5), "byref") &&
          std::isspace(static_cast<unsigned char>(one[5]))) {
        p.byref = true;
        one = Trim(one.substr(6));
      }
      std::string_view pname, ptype;
      if (!SplitAs(one, pname, ptype) || !IsIdentifier(pname) || !IsIdentifier(ptype)) return std::nullopt;
      p.name = std::string(pname);
      p.typeName = std::string(ptype);
      p.type = TypeFromName(ptype);
      d.params.push_back(std::move(p));
      if (comma == std::string_view::npos) break;
      params = params.substr(comma + 1);
      if (Trim(params).empty()) return std::nullopt;
    }
  } else {
    std::string_view head, type;
    if (SplitAs(signature, head, type)) {
      if (!IsIdentifier(type)) return std::nullopt;
      d.name = std::string(head);
      d.resultName = std::string(type);
      d.result = TypeFromName(type);
    } else {
      d.name = std::string(signature);
    }
  }
  if (!IsIdentifier(d.name)) return std::nullopt;
  return d;
}

}  // namespace ph
