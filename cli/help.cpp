#include "cli/help.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "cli/options.h"

namespace ph {

extern const char kApiReference[];  // docs/api.md, compiled in (embed.cmake)
const char kPicturehostVersion[] = "1.0";

namespace {

bool StartsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The name of a declaration: the text before its parenthesis or " as ".
std::string NameOf(const std::string& declaration) {
  const size_t end = std::min(declaration.find('('), declaration.find(' '));
  return declaration.substr(0, end);
}

struct Parsed {
  std::vector<ReferenceEntry> entries;
  std::vector<ReferenceClass> classes;
};

// Sections name the owner of their entries; an entry runs from its heading to
// the next heading outside a code block.
const Parsed& Reference() {
  static const Parsed parsed = [] {
    Parsed p;
    std::istringstream in(kApiReference);
    std::string owner;
    std::vector<std::string>* lines = nullptr;
    bool fenced = false;
    for (std::string line; std::getline(in, line);) {
      if (StartsWith(line, "```")) fenced = !fenced;
      if (fenced || line.empty() || line[0] != '#') {
        if (lines) lines->push_back(line);
        continue;
      }
      lines = nullptr;
      if (StartsWith(line, "## ")) {
        const std::string title = line.substr(3);
        owner = title == "Picture methods"    ? "Picture"
                : title == "graphics methods" ? "graphics"
                : title == "Global methods"   ? "global"
                : StartsWith(title, "Class ") ? title.substr(6)
                                              : "";
        if (StartsWith(title, "Class ")) {
          p.classes.push_back({owner, {}});
          lines = &p.classes.back().intro;
        }
      } else if (StartsWith(line, "#### `")) {
        const size_t close = line.find('`', 6);
        if (close == std::string::npos) continue;
        p.entries.push_back({owner, line.substr(6, close - 6), line.find("*(assignable)*") != std::string::npos, {}});
        lines = &p.entries.back().body;
      }
    }
    return p;
  }();
  return parsed;
}

// The prose of a body, without code blocks and example lines, joined.
std::string Prose(const std::vector<std::string>& body) {
  std::string text;
  bool fenced = false;
  for (const std::string& line : body) {
    if (StartsWith(line, "```")) {
      fenced = !fenced;
      continue;
    }
    if (fenced || StartsWith(line, "    ") || StartsWith(line, "- `")) continue;
    if (line.empty()) {
      if (!text.empty() && text.back() != '\n') text += '\n';
      continue;
    }
    if (!text.empty() && text.back() != '\n') text += ' ';
    text += line;
  }
  text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
  return text;
}

std::vector<std::string> Sentences(const std::string& prose) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t i = 0; i < prose.size(); ++i) {
    const bool end =
        (prose[i] == '.' && (i + 1 == prose.size() || prose[i + 1] == ' ' || prose[i + 1] == '\n')) || prose[i] == '\n';
    if (!end && i + 1 != prose.size()) continue;
    std::string s = prose.substr(start, i + 1 - start);
    s.erase(0, s.find_first_not_of(" \n"));
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    if (!s.empty()) out.push_back(s);
    start = i + 1;
  }
  return out;
}

// Markdown made readable on a terminal: code blocks indented and labelled,
// backticks dropped, the examples kept as they are.
std::string Terminal(const std::vector<std::string>& body) {
  std::string out;
  bool fenced = false, examples = false;
  std::vector<std::string> lines = body;
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  size_t first = 0;
  while (first < lines.size() && lines[first].empty()) ++first;
  for (size_t i = first; i < lines.size(); ++i) {
    std::string line = lines[i];
    if (StartsWith(line, "```")) {
      if (!fenced) out += "  REALbasic:\n";
      fenced = !fenced;
      continue;
    }
    if (fenced) {
      out += "      " + line + "\n";
      continue;
    }
    if (StartsWith(line, "    picturehost ") && !examples) {
      out += "  Command line:\n";
      examples = true;
    }
    if (!StartsWith(line, "    ")) line.erase(std::remove(line.begin(), line.end(), '`'), line.end());
    out += line.empty() ? "\n" : "  " + line + "\n";
  }
  return out;
}

size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

const char* const kCommands[] = {"list", "call", "run", "help", "demo", "digest"};

}  // namespace

const std::vector<ReferenceEntry>& ReferenceEntries() { return Reference().entries; }
const std::vector<ReferenceClass>& ReferenceClasses() { return Reference().classes; }

std::vector<const ReferenceEntry*> FindEntries(const std::string& name) {
  std::vector<const ReferenceEntry*> found;
  for (const ReferenceEntry& e : ReferenceEntries()) {
    if (strcasecmp(NameOf(e.declaration).c_str(), name.c_str()) == 0) found.push_back(&e);
  }
  return found;
}

std::string Summary(const ReferenceEntry& e) {
  const std::vector<std::string> s = Sentences(Prose(e.body));
  return s.empty() ? "" : s[0];
}

std::string FailureSentences(const ReferenceEntry& e) {
  std::string out;
  for (const std::string& s : Sentences(Prose(e.body))) {
    if (s.find("nil") != std::string::npos || s.find("Nil") != std::string::npos ||
        s.find("\u22121") != std::string::npos || s.find("false") != std::string::npos) {
      out += (out.empty() ? "" : " ") + s;
    }
  }
  return out;
}

std::string TopHelp() {
  std::ostringstream o;
  o << "usage: picturehost COMMAND [ARGUMENTS] [OPTIONS]\n"
       "\n"
       "Runs the Picture plug-in through an emulated REALbasic host.\n"
       "\n"
       "Commands:\n"
       "  list [PATTERN]       what the plug-in registers; with a pattern (RotateQVT, Rotate*,\n"
       "                       scale) the matching members, each with what it does\n"
       "  call NAME [ARG ...]  call a Picture method on --on IMAGE, or a global method\n"
       "  run CLASS [CALL ...] make an instance of a class, set it up and call its methods\n"
       "  help [NAME]          this text, a command's, or a method's or class's reference entry\n"
       "  demo                 apply every method to a picture and write a page of results\n"
       "  digest               a checksum of every method's output on fixed inputs\n"
       "\n"
       "Options (anywhere on the line):\n";
  for (const OptionInfo& info : AllOptions()) {
    std::string left = info.shortName ? std::string("-") + info.shortName + ", " : "    ";
    left += info.name;
    if (info.value) left += std::string(" ") + info.value;
    o << "  " << left << std::string(left.size() < 22 ? 22 - left.size() : 1, ' ') << info.help << "\n";
  }
  o << "\n"
       "Arguments are read by the declared type: numbers; booleans true/false, 1/0,\n"
       "yes/no; colours &cRRGGBB, #RRGGBB, RRGGBB, &hAARRGGBB or a name (white, black,\n"
       "red, green, blue, gray, ...); pictures as image files or sample:WxH; strings\n"
       "and memory blocks as files, zeros:N for an empty block; nil. %i stands for the\n"
       "--on picture. Images read and written: .png .jpg .jpeg .bmp .tif .tiff.\n"
       "\n"
       "Exit status: 0 success, 1 bad input, 3 a nil result, 4 an accounting error\n"
       "(a leak or a picture left locked), 5 a sanitizer report.\n"
       "\n"
       "Examples:\n"
       "  picturehost help RotateQVT\n"
       "  picturehost call --on photo.jpg RotateQVT 30 white -o rotated.png\n"
       "  picturehost call --on 'photos/*.jpg' ScaleQVT true --fit 160x160 -o 'thumbs/%n.jpg' -j 2\n"
       "  picturehost run PictureMinMaxQVT --on photo.jpg 'FindAll(%i)' --json\n";
  return o.str();
}

std::string CommandHelp(const std::string& command) {
  if (command == "list") {
    return "usage: picturehost list [PATTERN]\n\n"
           "Without a pattern, every class, extension, property and method the plug-in\n"
           "registers, in the order registered. With a pattern (a name, part of one, or\n"
           "a shell pattern such as 'Rotate*'; any case) the matching members, each with\n"
           "the first sentence of its reference entry.\n";
  }
  if (command == "call") {
    return "usage: picturehost call [--on IMAGE|PATTERN ...] NAME [ARG ...] [-o FILE] [OPTIONS]\n\n"
           "Calls the Picture (or graphics) method NAME on IMAGE, or the global method\n"
           "NAME without --on. A picture result is saved as FILE; other results are\n"
           "printed (--json: as JSON). Byref integers are printed, memory blocks the call\n"
           "fills are saved as FILE.NAME (--json: printed). Several --on or a quoted\n"
           "pattern make a batch: --out then needs %n, the input's base name.\n"
           "  --fit WxH        scaling methods: width and height that keep the proportions\n"
           "                   (leave out the width and height arguments)\n"
           "  --quality N      JPEG quality of a .jpg output\n"
           "  -j N             batch: N files at once\n"
           "  --skip-existing  batch: inputs whose result exists are left alone\n"
           "  -f, --force      an output may replace its input\n"
           "Example: picturehost call --on photo.jpg ScaleQVT true --fit 640x640 -o small.jpg\n";
  }
  if (command == "run") {
    return "usage: picturehost run CLASS [--on IMAGE] [--from FACTORY] [--set P=V ...] [CALL ...]\n"
           "                     [--get NAME ...] [-o FILE] [OPTIONS]\n\n"
           "Makes an instance of CLASS (or takes the one FACTORY, a global method, makes),\n"
           "gives it --on as its SourcePicture, sets properties and assignable methods,\n"
           "then makes the calls in order: Run, 'FindAll(%i)', 'Col(5)'. Results of the\n"
           "calls are printed, and the properties named by --get (all: every number); a\n"
           "class that makes no picture prints all its numbers. -o saves the\n"
           "DestinationPicture, or for a class without one the last picture a call gave.\n"
           "Example: picturehost run PictureSepiaQVT --on photo.jpg --set SepiaRed=40 Run -o sepia.png\n";
  }
  if (command == "help") {
    return "usage: picturehost help [COMMAND | METHOD | CLASS]\n\n"
           "The help of a command, or the reference entry of a method (every overload:\n"
           "declaration, what it does, when it gives nil, false or -1, REALbasic code\n"
           "and a command line) or of a class. picturehost help man prints this help as\n"
           "a manual page.\n";
  }
  if (command == "demo") {
    return "usage: picturehost demo [--on IMAGE] [--out-dir DIR]\n\n"
           "Applies every method and class to IMAGE and writes one PNG per result, a\n"
           "contact sheet and index.html to DIR (what make demo runs).\n";
  }
  if (command == "digest") {
    return "usage: picturehost digest [--out-dir DIR]\n\n"
           "One SHA-256 line per listed call on fixed inputs, to compare builds.\n";
  }
  return "";
}

std::string EntryHelp(const ReferenceEntry& e) {
  std::string owner = e.owner == "global" ? "global method" : e.owner.empty() ? "" : e.owner + " method";
  return e.declaration + (e.assignable ? "  (assignable)" : "") + (owner.empty() ? "" : "  [" + owner + "]") + "\n" +
         Terminal(e.body);
}

std::string ClassHelp(const ReferenceClass& c) {
  std::string out = "class " + c.name + "\n" + Terminal(c.intro) + "\n  Methods:\n";
  for (const ReferenceEntry& e : ReferenceEntries()) {
    if (e.owner == c.name) out += "    " + e.declaration + (e.assignable ? "  (assignable)" : "") + "\n";
  }
  return out + "  (picturehost help NAME for a method)\n";
}

std::string HelpFor(const std::string& name) {
  if (std::string text = CommandHelp(name); !text.empty()) return text;
  // A name can be a class and a method too (the Picture method PaletteQVT).
  std::string out;
  for (const ReferenceClass& c : ReferenceClasses()) {
    if (strcasecmp(c.name.c_str(), name.c_str()) == 0) out = ClassHelp(c);
  }
  for (const ReferenceEntry* e : FindEntries(name)) out += (out.empty() ? "" : "\n") + EntryHelp(*e);
  return out;
}

std::string ManPage() {
  // troff: the help texts as they are, each command a section, the reference
  // entries one paragraph each.
  auto escape = [](const std::string& text) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      std::string l;
      for (char c : line) l += c == '\\' ? std::string("\\e") : std::string(1, c);
      if (!l.empty() && (l[0] == '.' || l[0] == '\'')) l = "\\&" + l;
      out += l + "\n";
    }
    return out;
  };
  std::string out = ".TH PICTUREHOST 1 \"\" \"picturehost " + std::string(kPicturehostVersion) + "\"\n";
  out += ".SH NAME\npicturehost \\- run the Picture plug-in from a shell\n.SH SYNOPSIS\n.nf\n";
  out += escape(TopHelp()) + ".fi\n";
  for (const char* command : kCommands) {
    out += ".SH \"" + Lower(command) + "\"\n.nf\n" + escape(CommandHelp(command)) + ".fi\n";
  }
  out += ".SH METHODS AND CLASSES\n";
  for (const ReferenceEntry& e : ReferenceEntries()) {
    out += ".TP\n.B " + escape(e.declaration) + escape(Summary(e));
  }
  return out;
}

std::vector<std::string> CompletionWords() {
  std::vector<std::string> words(std::begin(kCommands), std::end(kCommands));
  for (const OptionInfo& info : AllOptions()) words.push_back(info.name);
  for (const ReferenceEntry& e : ReferenceEntries()) words.push_back(NameOf(e.declaration));
  for (const ReferenceClass& c : ReferenceClasses()) words.push_back(c.name);
  std::sort(words.begin() + std::size(kCommands), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates) {
  const std::string lower = Lower(name);
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& c : candidates) {
    const std::string lc = Lower(c);
    size_t d = Distance(lower, lc);
    if (lower.size() >= 4 && lc.find(lower) != std::string::npos) d = std::min<size_t>(d, 1);
    if (d <= std::max<size_t>(2, lower.size() / 4) && d < lower.size()) near.emplace_back(d, c);
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  if (near.empty()) return "";
  std::string out = "; did you mean ";
  for (size_t i = 0; i < near.size() && i < 3; ++i) out += (i ? ", " : "") + near[i].second;
  return out + "?";
}

std::vector<std::string> CallableNames(const Host& host) {
  std::vector<std::string> names;
  for (const MethodInfo& m : host.GlobalMethods()) names.push_back(m.declaration.name);
  for (const ClassInfo& c : host.Classes()) {
    if (!c.extension) names.push_back(c.name);
    for (const MethodInfo& m : c.methods) names.push_back(m.declaration.name);
  }
  return names;
}

}  // namespace ph
