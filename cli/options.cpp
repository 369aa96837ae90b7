#include "cli/options.h"

#include <sys/stat.h>

#include <strings.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

namespace ph {

const std::vector<OptionInfo>& AllOptions() {
  static const std::vector<OptionInfo> options = {
      {"--on", 0, "IMAGE", "the picture to work on: a file, sample:WxH, or a quoted pattern for a batch"},
      {"--out", 'o', "FILE", "where the result goes (%n: the input's base name); .png .jpg .jpeg .bmp .tif .tiff"},
      {"--fit", 0, "WxH", "for the scaling methods: the largest size within WxH that keeps the proportions"},
      {"--quality", 0, "N", "JPEG quality 1..100 for a .jpg or .jpeg --out (default 75)"},
      {"--json", 0, nullptr, "print numbers, histograms, palettes and positions as JSON, one object per input"},
      {"--get", 0, "NAME", "run: print this property after the calls (repeatable; all: every number)"},
      {"--set", 0, "P=V", "run: set a property or an assignable method before the calls"},
      {"--from", 0, "CALL", "run: make the instance with this global method, e.g. NewWebPaletteQVT"},
      {"--mask", 0, "FILE", "give the --on picture a mask"},
      {"--jobs", 'j', "N", "batch: process N files at once"},
      {"--skip-existing", 0, nullptr, "batch: leave inputs whose result exists alone"},
      {"--force", 'f', nullptr, "allow an output to replace its input"},
      {"--progress", 0, nullptr, "batch: draw the progress bar even when standard error is no terminal"},
      {"--out-dir", 0, "DIR", "demo and digest: the folder for their files"},
      {"--plugin", 0, "PATH", "load another build of the plug-in"},
      {"--host-version", 0, "V", "the REALbasic version the host claims (2007)"},
      {"--without", 0, "NAME", "a host entry point the plug-in cannot have"},
      {"--help", 'h', nullptr, "help on the command line, a command, a method or a class"},
      {"--version", 0, nullptr, "the version of picturehost and of the plug-in"},
  };
  return options;
}

namespace {

// Options are "--" and a letter, or "-" and one letter ("-j2" too); every
// other word (-0.5, -300, 1e-07, sample:4x4) is an argument.
const OptionInfo* FindOption(const std::string& w, std::string* attached) {
  attached->clear();
  std::string name;
  if (w.size() > 2 && w[0] == '-' && w[1] == '-' && std::isalpha(static_cast<unsigned char>(w[2]))) {
    const size_t eq = w.find('=');
    name = w.substr(0, eq);
    if (eq != std::string::npos) *attached = w.substr(eq + 1);
  } else if (w.size() >= 2 && w[0] == '-' && std::isalpha(static_cast<unsigned char>(w[1]))) {
    for (const OptionInfo& o : AllOptions()) {
      if (o.shortName == w[1] && (w.size() == 2 || o.value)) {
        *attached = w.substr(2);
        return &o;
      }
    }
    if (w.size() == 2) throw HostError("unknown option " + w + " (picturehost --help lists them)");
    return nullptr;
  } else {
    return nullptr;
  }
  for (const OptionInfo& o : AllOptions()) {
    if (name == o.name) return &o;
  }
  std::string hint;
  for (const OptionInfo& o : AllOptions()) {
    if (name.size() > 3 && std::string(o.name).rfind(name, 0) == 0) hint = o.name;
  }
  throw HostError("unknown option " + name +
                  (hint.empty() ? " (picturehost --help lists them)" : "; did you mean " + hint + "?"));
}

std::pair<int32_t, int32_t> ParseSize(const std::string& text) {
  const size_t x = text.find_first_of("xX");
  if (x != std::string::npos) {
    const int32_t w = ParseInteger(text.substr(0, x)), h = ParseInteger(text.substr(x + 1));
    if (w >= 1 && h >= 1) return {w, h};
  }
  throw HostError("--fit needs WIDTHxHEIGHT, both at least 1, not " + text);
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& words) {
  Options o;
  o.words = words;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& w = words[i];
    std::string attached;
    const OptionInfo* info = FindOption(w, &attached);
    if (!info) {
      if (o.command.empty()) {
        o.command = w;
      } else {
        o.arguments.push_back(w);
      }
      continue;
    }
    const std::string name = info->name;
    std::string v;
    if (info->value) {
      if (!attached.empty()) {
        v = attached;
      } else {
        if (i + 1 >= words.size()) throw HostError(name + " needs a value (" + info->value + ")");
        v = words[++i];
      }
    } else if (!attached.empty()) {
      throw HostError(name + " takes no value");
    }
    if (name == "--progress") o.progress = true;
    else if (name == "--help") o.help = true;
    else if (name == "--version") o.showVersion = true;
    else if (name == "--force") o.force = true;
    else if (name == "--skip-existing") o.skipExisting = true;
    else if (name == "--json") o.json = true;
    else if (name == "--on") {
      o.on = v;
      o.inputs.push_back(v);
    } else if (name == "--out") o.out = v;
    else if (name == "--mask") o.mask = v;
    else if (name == "--from") o.from = v;
    else if (name == "--set") o.sets.push_back(v);
    else if (name == "--get") o.gets.push_back(v);
    else if (name == "--plugin") o.plugin = v;
    else if (name == "--out-dir") o.outDir = v;
    else if (name == "--without") o.without.insert(v);
    else if (name == "--fit") o.fit = ParseSize(v);
    else if (name == "--jobs") {
      o.jobs = ParseInteger(v);
      if (o.jobs < 1 || o.jobs > 64) throw HostError("-j needs a number of jobs from 1 to 64, not " + v);
    } else if (name == "--quality") {
      o.quality = ParseInteger(v);
      if (o.quality < 1 || o.quality > 100) throw HostError("--quality needs a number from 1 to 100, not " + v);
    } else if (name == "--host-version") {
      char* end = nullptr;
      o.version = std::strtod(v.c_str(), &end);
      if (end == v.c_str() || *end) throw HostError("--host-version needs a number, not " + v);
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
  auto hex = [](const std::string& digits, size_t most, uint32_t* value) {
    if (digits.empty() || digits.size() > most ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
      return false;
    *value = static_cast<uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
    return true;
  };
  uint32_t value = 0;
  if (text.size() > 2 && text[0] == '&') {
    const char kind = static_cast<char>(std::tolower(static_cast<unsigned char>(text[1])));
    if ((kind == 'c' && hex(text.substr(2), 6, &value)) || (kind == 'h' && hex(text.substr(2), 8, &value)))
      return value;
  }
  if (text.size() == 7 && text[0] == '#' && hex(text.substr(1), 6, &value)) return value;
  if (text.size() == 6 && hex(text, 6, &value)) return value;
  static const std::pair<const char*, uint32_t> kNames[] = {
      {"black", 0x000000},   {"white", 0xFFFFFF},  {"red", 0xFF0000},    {"green", 0x008000},  {"lime", 0x00FF00},
      {"blue", 0x0000FF},    {"yellow", 0xFFFF00}, {"cyan", 0x00FFFF},   {"aqua", 0x00FFFF},   {"magenta", 0xFF00FF},
      {"fuchsia", 0xFF00FF}, {"gray", 0x808080},   {"grey", 0x808080},   {"silver", 0xC0C0C0}, {"maroon", 0x800000},
      {"navy", 0x000080},    {"olive", 0x808000},  {"purple", 0x800080}, {"teal", 0x008080},   {"orange", 0xFFA500},
  };
  for (const auto& [name, c] : kNames) {
    if (strcasecmp(text.c_str(), name) == 0) return c;
  }
  throw HostError("not a colour: " + text +
                  " (use &cRRGGBB, #RRGGBB, RRGGBB, &hAARRGGBB or a name such as white, black, red, gray)");
}

bool ParseBoolean(const std::string& text) {
  for (const char* yes : {"true", "1", "yes"}) {
    if (strcasecmp(text.c_str(), yes) == 0) return true;
  }
  for (const char* no : {"false", "0", "no"}) {
    if (strcasecmp(text.c_str(), no) == 0) return false;
  }
  throw HostError("not a boolean (true/false, 1/0, yes/no): " + text);
}

// The shortest text that reads back as the same double: 0.299, not
// 0.29899999999999999.
std::string FormatDouble(double d) {
  char text[40];
  const auto [end, ec] = std::to_chars(text, text + sizeof text, d);
  return ec == std::errc() ? std::string(text, end) : "nan";
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
