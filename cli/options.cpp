#include "cli/options.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

namespace ph {

// Only words that begin with "--" and a letter are options; every other word
// (-0.5, -300, 1e-07) is an argument.
static bool IsOption(const std::string& w) {
  return w.size() > 2 && w[0] == '-' && w[1] == '-' && std::isalpha(static_cast<unsigned char>(w[2]));
}

Options ParseOptions(const std::vector<std::string>& words) {
  Options o;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& w = words[i];
    if (!IsOption(w)) {
      if (o.command.empty()) {
        o.command = w;
      } else {
        o.arguments.push_back(w);
      }
      continue;
    }
    auto value = [&]() -> std::string {
      if (i + 1 >= words.size()) throw HostError(w + " needs a value");
      return words[++i];
    };
    if (w == "--progress") {
      o.progress = true;
      continue;
    }
    if (w == "--on") {
      o.on = value();
      o.inputs.push_back(*o.on);
    } else if (w == "--out") o.out = value();
    else if (w == "--mask") o.mask = value();
    else if (w == "--from") o.from = value();
    else if (w == "--set") o.sets.push_back(value());
    else if (w == "--plugin") o.plugin = value();
    else if (w == "--out-dir") o.outDir = value();
    else if (w == "--without") o.without.insert(value());
    else if (w == "--host-version") {
      const std::string v = value();
      char* end = nullptr;
      o.version = std::strtod(v.c_str(), &end);
      if (end == v.c_str() || *end) throw HostError("--host-version needs a number, not " + v);
    } else {
      throw HostError("unknown option " + w);
    }
  }
  return o;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw HostError("cannot read " + path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  if (!out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    throw HostError("cannot write " + path);
  }
}

int32_t ParseInteger(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (!text.empty() && !*end && errno == 0 && v >= INT32_MIN && v <= INT32_MAX) return static_cast<int32_t>(v);
  // Exponent forms such as 1e3 are accepted when they name a whole number.
  const double d = std::strtod(text.c_str(), &end);
  if (!text.empty() && !*end && std::isfinite(d) && d == std::trunc(d) && d >= INT32_MIN && d <= INT32_MAX) {
    return static_cast<int32_t>(d);
  }
  throw HostError("not an integer: " + text);
}

double ParseDouble(const std::string& text) {
  char* end = nullptr;
  const double d = std::strtod(text.c_str(), &end);
  if (text.empty() || *end) throw HostError("not a number: " + text);
  return d;
}

uint32_t ParseColor(const std::string& text) {
  if (text.size() > 2 && text[0] == '&' && (text[1] == 'c' || text[1] == 'C' || text[1] == 'h' || text[1] == 'H')) {
    const std::string digits = text.substr(2);
    const size_t most = (text[1] == 'c' || text[1] == 'C') ? 6 : 8;
    if (!digits.empty() && digits.size() <= most &&
        digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
      return static_cast<uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
    }
  }
  throw HostError("not a color (&cRRGGBB or &hXXXXXXXX): " + text);
}

std::string FormatDouble(double d) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", d);
  return text;
}

std::string FormatColor(uint32_t c) {
  char text[16];
  if (c >> 24) {
    std::snprintf(text, sizeof text, "&h%08X", c);
  } else {
    std::snprintf(text, sizeof text, "&c%06X", c);
  }
  return text;
}

void SplitCall(const std::string& text, std::string& name, std::vector<std::string>& args) {
  const size_t open = text.find('(');
  args.clear();
  if (open == std::string::npos) {
    name = text;
    return;
  }
  if (text.back() != ')') throw HostError("bad call " + text);
  name = text.substr(0, open);
  const std::string inside = text.substr(open + 1, text.size() - open - 2);
  if (inside.empty()) return;
  size_t start = 0;
  while (true) {
    const size_t comma = inside.find(',', start);
    args.push_back(inside.substr(start, comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  for (std::string& a : args) {
    a.erase(0, a.find_first_not_of(' '));
    a.erase(a.find_last_not_of(' ') + 1);
  }
}

bool IsPattern(const std::string& text) {
  if (text.find_first_of("*?[") == std::string::npos) return false;
  struct stat st;
  return stat(text.c_str(), &st) != 0;  // an existing file of that very name is a file
}

}  // namespace ph
