// `picturehost demo`: every shown line of the listed calls (demo/calls.cpp)
// on one input picture, then a call made up from the declaration for every
// registered method, global method and class that no line reaches. Each picture result is saved as PNG
// under a name made from the method and its arguments; the records of all
// calls become index.html and the contact sheet gallery.png, and one summary
// line per call is printed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

#include "cli/call.h"
#include "cli/cli.h"
#include "demo/calls.h"
#include "demo/demo.h"

namespace ph {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A file name stem from a command line: the words joined by "_", every
// character but letters, digits, '.' and '-' turned into '_'.
std::string Stem(const std::vector<std::string>& line) {
  std::string name;
  for (size_t i = 1; i < line.size(); ++i) {
    if (line[i] == "--set" || line[i] == "--from") continue;
    std::string word = line[i];
    for (size_t at = word.find(kInputWord); at != std::string::npos; at = word.find(kInputWord))
      word.replace(at, 2, "$SAMPLE");
    if (!name.empty()) name += "_";
    for (char ch : word) name += std::isalnum(static_cast<unsigned char>(ch)) || ch == '.' || ch == '-' ? ch : '_';
  }
  while (name.find("__") != std::string::npos) name.replace(name.find("__"), 2, "_");
  while (!name.empty() && name.back() == '_') name.pop_back();
  return name.substr(0, 120);
}

// How an argument of a listed line reads on the page and in the summary.
std::string Readable(std::string text) {
  for (size_t at = text.find(kInputWord); at != std::string::npos; at = text.find(kInputWord))
    text.replace(at, 2, "input");
  return text;
}

std::string Join(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (size_t i = 0; i < words.size(); ++i) text += (i ? between : "") + words[i];
  return text;
}

// Quotes a word for a POSIX shell when it needs it.
std::string ShellWord(const std::string& word) {
  if (!word.empty() &&
      word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:/,=+") ==
          std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (char ch : word) quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
  return quoted + "'";
}

uint32_t ChannelColour(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (lower.rfind("red", 0) == 0) return 0xD03030;
  if (lower.rfind("green", 0) == 0) return 0x30A030;
  if (lower.rfind("blue", 0) == 0) return 0x3050D0;
  return 0x606060;
}

std::string HexPreview(const std::vector<uint8_t>& bytes) {
  std::string text;
  char hex[4];
  for (size_t i = 0; i < bytes.size() && i < 24; ++i) {
    std::snprintf(hex, sizeof hex, "%02X", bytes[i]);
    text += (i ? " " : "") + std::string(hex);
  }
  if (bytes.size() > 24) text += " …";
  return text;
}

// A value for a parameter in a call the demo makes up from a declaration.
std::string DefaultArgument(const Param& p, int32_t width, int32_t height) {
  std::string lower = p.name;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  switch (p.type) {
    case Type::Integer:
      if (lower.find("width") != std::string::npos || lower.find("height") != std::string::npos) return "32";
      if (lower.find("count") != std::string::npos) return "16";
      return p.byref ? "0" : "1";
    case Type::Double: return "0.5";
    case Type::Boolean: return "true";
    case Type::Color: return "&c808080";
    case Type::Picture: return kInputWord;
    case Type::MemoryBlock: return "zeros:" + std::to_string(int64_t{width} * height * 4 + 64);
    case Type::String: return "@ppic";  // the binary string of the listed calls
    default: return "nil";
  }
}

class DemoRunner {
 public:
  DemoRunner(Host& host, std::string dir, std::string input, int32_t width, int32_t height)
      : host_(host), dir_(std::move(dir)), input_(std::move(input)), width_(width), height_(height) {}

  // `words` as listed (a call line without --out), or made up; `label` names
  // the line's saved result for later lines (@label).
  DemoItem Run(const std::vector<std::string>& words, bool added, const std::string& label = "") {
    DemoItem item;
    item.added = added;
    std::vector<std::string> shown, run;  // as the page shows them, and as they run
    for (size_t i = 0; i < words.size(); ++i) {
      if ((words[i] == "--on" || words[i] == "--out") && i + 1 < words.size()) {
        if (words[i] == "--on") run.insert(run.end(), {"--on", input_});
        ++i;
        continue;
      }
      const bool file = words[i][0] == '@';
      const std::string name =
          file && files_.count(words[i].substr(1)) ? files_[words[i].substr(1)] : words[i].substr(1);
      shown.push_back(file ? name : words[i]);
      run.push_back(file ? dir_ + "/" + name : words[i]);
    }
    item.stem = UniqueStem(Stem(shown));
    try {
      if (shown.size() < 2) throw HostError("a demo line needs a command and a name");
      const Options o = ParseOptions(run);
      item.command = "picturehost";
      for (const std::string& w : run) item.command += " " + ShellWord(w);
      if (o.command == "call") {
        RunCall(item, o, shown);
      } else {
        RunInstance(item, o, ParseOptions(shown));
      }
    } catch (const NilResult& e) {
      item.status = "nil";
      if (item.summary.empty()) item.summary = e.what();
    } catch (const std::exception& e) {
      item.status = std::string("error: ") + e.what();
    }
    if (item.title.empty()) item.title = Join(shown, " ");
    for (const DemoShown& s : item.shown) {
      if (!label.empty() && s.label == "result") files_[label] = s.file;
    }
    return item;
  }

  void AddFile(const std::string& name, const std::string& file) { files_[name] = file; }

 private:
  std::string UniqueStem(std::string stem) {
    if (stem.empty()) stem = "result";
    std::string unique = stem;
    for (int n = 2; !stems_.insert(unique).second; ++n) unique = stem + "-" + std::to_string(n);
    return unique;
  }

  DemoShown SavePicture(const Ref& picture, const std::string& stem, const std::string& label) {
    DemoShown s;
    s.kind = DemoShown::Kind::Picture;
    s.label = label;
    s.file = stem + ".png";
    s.width = host_.Width(picture);
    s.height = host_.Height(picture);
    std::string error;
    if (!host_.SavePicture(picture, dir_ + "/" + s.file, &error)) throw HostError(error);
    return s;
  }

  DemoShown SaveBytes(const Ref& block, const std::string& file, const std::string& label) {
    DemoShown s;
    s.kind = DemoShown::Kind::Bytes;
    s.label = label;
    s.file = file;
    const std::vector<uint8_t> bytes = host_.Bytes(block);
    s.size = static_cast<int64_t>(bytes.size());
    s.text = HexPreview(bytes);
    WriteFile(dir_ + "/" + file, bytes);
    return s;
  }

  // The colours of a palette-like instance: a Count property and a
  // "Col(i as integer) as color" method.
  void ShowPalette(DemoItem& item, const Ref& instance, const ClassInfo& c) {
    const MethodInfo* col = FindMethod(c.methods, "Col", 1);
    if (!col || col->declaration.result != Type::Color || !HasProperty(c, "Count")) return;
    const int32_t count = std::clamp(host_.GetProperty(instance, "Count").AsInt(), 0, 256);
    DemoShown s;
    s.kind = DemoShown::Kind::Palette;
    s.label = "colours 0 to " + std::to_string(count - 1);
    for (int32_t i = 0; i < count; ++i) s.values.push_back(host_.CallMethod(instance, "Col", {i}).AsColor());
    item.shown.push_back(std::move(s));
  }

  void ShowInstance(DemoItem& item, const Ref& instance, const std::string& label) {
    DemoShown table;
    table.kind = DemoShown::Kind::Table;
    table.label = label;
    table.rows = NumberProperties(host_, instance);
    if (!table.rows.empty()) item.shown.push_back(std::move(table));
    ShowPalette(item, instance, *host_.FindClass(host_.ClassOf(instance)));
  }

  // Positions reported in property triples NAME, NAMEX, NAMEY (the minimum
  // and maximum finder) marked on the picture the instance was given.
  void ShowPositions(DemoItem& item, const Ref& instance, const ClassInfo& c, const std::string& pictureFile) {
    DemoShown s;
    s.kind = DemoShown::Kind::Markers;
    s.file = pictureFile;
    s.width = width_;
    s.height = height_;
    s.label = "positions";
    for (const PropertyInfo& p : c.properties) {
      if (!HasProperty(c, p.name + "X") || !HasProperty(c, p.name + "Y")) continue;
      DemoShown::Mark m;
      m.name = p.name;
      m.value = host_.GetProperty(instance, p.name).AsInt();
      m.x = host_.GetProperty(instance, p.name + "X").AsInt();
      m.y = host_.GetProperty(instance, p.name + "Y").AsInt();
      if (m.x < 0 || m.y < 0) continue;
      m.colour = ChannelColour(p.name);
      m.maximum = p.name.find("Min") == std::string::npos;
      s.marks.push_back(m);
    }
    if (!s.marks.empty()) item.shown.push_back(std::move(s));
  }

  // The entities an execution reached and the declarations it called, also
  // when it failed part of the way.
  void Cover(DemoItem& item, const Execution& e) {
    if (e.cls) {
      item.subject = "class:" + e.cls->name;
      item.covers.push_back(item.subject);
    }
    for (const Invoked& i : e.invoked) {
      const std::string& text = i.method->declaration.text;
      if (i.owner == "global" || !e.cls) {
        item.subject = i.owner + ":" + text;
        item.covers.push_back(item.subject);
      }
      const bool listed =
          std::find(item.declarations.begin(), item.declarations.end(), text) != item.declarations.end();
      if (!i.setter || !listed) item.declarations.push_back(text);
    }
    item.milliseconds = e.milliseconds;
  }

  void RunCall(DemoItem& item, const Options& o, const std::vector<std::string>& shown) {
    std::vector<std::string> readable;
    for (size_t i = 2; i < shown.size(); ++i) readable.push_back(Readable(shown[i]));
    item.title = shown[1] + (readable.empty() ? "" : "(" + Join(readable, ", ") + ")");
    Execution e;
    try {
      Execute(host_, o, e);
    } catch (...) {
      Cover(item, e);
      throw;
    }
    Cover(item, e);
    const Declaration& d = e.target.method->declaration;
    std::vector<std::string> summary;
    const auto out = [&](const std::string& file) { item.command += " --out " + file; };
    switch (d.result) {
      case Type::None: break;
      case Type::Picture:
        if (!e.result.IsNil()) {
          item.shown.push_back(SavePicture(e.result.AsRef(), item.stem, "result"));
          out(item.stem + ".png");
        }
        break;
      case Type::MemoryBlock:
      case Type::String:
        if (!e.result.IsNil()) {
          item.shown.push_back(SaveBytes(e.result.AsRef(), item.stem + ".bin", "result"));
          out(item.stem + ".bin");
        }
        break;
      case Type::Object:
        if (!e.result.IsNil()) ShowInstance(item, e.result.AsRef(), host_.ClassOf(e.result.AsRef()));
        break;
      default: {
        DemoShown s;
        s.label = "result";
        s.text = Describe(host_, e.result, d.result);
        item.shown.push_back(s);
      }
    }
    if (d.result != Type::None) summary.push_back(Describe(host_, e.result, d.result));

    // Byref results and the memory blocks the call wrote into.
    for (size_t i = 0; i < e.arguments.size(); ++i) {
      const Param& p = d.params[i];
      const Value& now = e.arguments[i];
      if (p.type == Type::Integer && p.byref) {
        DemoShown s;
        s.label = p.name;
        s.text = std::to_string(now.AsInt());
        item.shown.push_back(s);
        summary.push_back(p.name + "=" + s.text);
      } else if (p.type == Type::MemoryBlock && !now.IsNil()) {
        const std::vector<uint8_t> bytes = host_.Bytes(now.AsRef());
        if (p.byref && bytes.size() == 1024) {
          DemoShown s;
          s.kind = DemoShown::Kind::Histogram;
          s.label = p.name;
          s.colour = ChannelColour(p.name);
          for (size_t k = 0; k < 256; ++k) {
            s.values.push_back(uint32_t{bytes[4 * k]} | uint32_t{bytes[4 * k + 1]} << 8 |
                               uint32_t{bytes[4 * k + 2]} << 16 | uint32_t{bytes[4 * k + 3]} << 24);
          }
          item.shown.push_back(std::move(s));
        } else if (p.byref || bytes != host_.Bytes(Convert(host_, p, e.texts[i]).AsRef())) {
          // blocks the call only read are not shown
          item.shown.push_back(SaveBytes(now.AsRef(), item.stem + "." + p.name + ".bin", p.name + " after the call"));
        }
      }
    }
    if (e.picture && d.result != Type::Picture &&
        (e.target.owner == Owner::Graphics || host_.Pixels(e.picture) != host_.Pixels(host_.LoadPicture(input_)))) {
      item.shown.push_back(SavePicture(e.picture, item.stem + "-after", "the picture after the call"));
    }
    item.summary = Join(summary, ", ");
    if (d.result != Type::None && e.result.IsNil()) throw NilResult(item.summary);
  }

  void RunInstance(DemoItem& item, const Options& o, const Options& shown) {
    std::vector<std::string> titleParts;
    if (shown.from) titleParts.push_back(Readable(*shown.from) + " →");
    Execution e;
    try {
      Execute(host_, o, e);
    } catch (const NilResult&) {
      Cover(item, e);
      item.title = Join(titleParts, " ") + " " + host_.FindClass(shown.arguments[0])->name;
      item.summary = *shown.from + " gave nil";
      throw NilResult(item.summary);
    } catch (...) {
      Cover(item, e);
      throw;
    }
    Cover(item, e);
    const ClassInfo& c = *e.cls;
    titleParts.push_back(c.name + ":");
    for (const std::string& s : shown.sets) titleParts.push_back(Readable(s));

    std::vector<std::string> summary;
    std::string pictureArgument;
    for (size_t k = 0; k < e.steps.size(); ++k) {
      const Execution::Step& step = e.steps[k];
      const std::string call = shown.arguments[k + 1];
      std::string name;
      std::vector<std::string> texts;
      SplitCall(call, name, texts);
      for (size_t i = 0; i < texts.size(); ++i) {
        if (step.method->declaration.params[i].type == Type::Picture && pictureArgument.empty())
          pictureArgument = texts[i];
      }
      titleParts.push_back(Readable(call));
      if (step.method->declaration.result == Type::None) continue;
      const std::string text = Describe(host_, step.value, step.method->declaration.result);
      summary.push_back(Readable(call) + " = " + text);
      if (step.method->declaration.result == Type::Picture && !step.value.IsNil()) {
        item.shown.push_back(SavePicture(step.value.AsRef(), item.stem + "_" + Stem({"", call}), Readable(call)));
      } else {
        DemoShown s;
        s.label = Readable(call);
        s.text = text;
        item.shown.push_back(s);
      }
    }

    ShowInstance(item, e.instance, "properties after the calls");
    if (!pictureArgument.empty()) {
      std::string file = item.stem + "_picture.png";
      if (pictureArgument == kInputWord) {
        file = "input.png";
      } else {
        SavePicture(host_.LoadPicture(pictureArgument), item.stem + "_picture", "");
      }
      ShowPositions(item, e.instance, c, file);
    }
    item.title = Join(titleParts, " ");
    bool nil = false;
    if (HasProperty(c, "DestinationPicture")) {
      Value destination = host_.GetProperty(e.instance, "DestinationPicture");
      item.command += " --out " + item.stem + ".png";
      nil = destination.IsNil();
      if (nil) {
        summary.push_back("DestinationPicture nil");
      } else {
        item.shown.push_back(SavePicture(destination.AsRef(), item.stem, "DestinationPicture"));
        summary.push_back("DestinationPicture " + std::to_string(host_.Width(destination.AsRef())) + "x" +
                          std::to_string(host_.Height(destination.AsRef())));
      }
    }
    item.summary = Join(summary, ", ");
    if (nil) throw NilResult(item.summary);
  }

  Host& host_;
  std::string dir_, input_;
  int32_t width_, height_;
  std::set<std::string> stems_;
  std::map<std::string, std::string> files_;  // @NAME: a labelled line's result, or a listed input file
};

// Every registered thing, in the order the host received it.
std::vector<DemoEntity> Entities(const Host& host) {
  std::vector<DemoEntity> entities;
  for (const ClassInfo& c : host.Classes()) {
    if (c.extension) {
      for (const MethodInfo& m : c.methods) {
        entities.push_back({c.name + ":" + m.declaration.text, c.name, m.declaration.text, m.setter != nullptr, {}});
      }
      continue;
    }
    DemoEntity e{"class:" + c.name, "class", c.name, false, {}};
    for (const PropertyInfo& p : c.properties) e.members.push_back("property " + p.name + " as " + p.type);
    for (const MethodInfo& m : c.methods)
      e.members.push_back((m.setter ? "method (assignable) " : "method ") + m.declaration.text);
    entities.push_back(std::move(e));
  }
  for (const MethodInfo& m : host.GlobalMethods()) {
    entities.push_back({"global:" + m.declaration.text, "global", m.declaration.text, false, {}});
  }
  return entities;
}

// A line for a registered thing that no listed line reaches.
std::vector<std::string> MadeUpLine(const Host& host, const DemoEntity& e, int32_t width, int32_t height) {
  if (e.group == "class") {
    const ClassInfo* c = host.FindClass(e.title);
    std::vector<std::string> line{"run", e.title, "--on", kInputWord};
    for (const MethodInfo& m : c->methods) {
      const Declaration& d = m.declaration;
      if (d.result == Type::None) continue;  // Close and the like
      if (d.params.empty()) {
        line.push_back(d.name);
        break;
      }
      if (d.params.size() == 1 && d.params[0].type == Type::Picture) {
        line.push_back(d.name + "(" + kInputWord + ")");
        break;
      }
    }
    return line;
  }
  const std::vector<MethodInfo>& methods =
      e.group == "global" ? host.GlobalMethods() : host.FindClass(e.group)->methods;
  for (const MethodInfo& m : methods) {
    if (m.declaration.text != e.title) continue;
    std::vector<std::string> line{"call", "--on", kInputWord, m.declaration.name};
    for (const Param& p : m.declaration.params) line.push_back(DefaultArgument(p, width, height));
    // A global method works on the input only when it is given as an argument.
    if (e.group == "global" && std::find(line.begin() + 4, line.end(), kInputWord) == line.end()) {
      line.erase(line.begin() + 1, line.begin() + 3);
    }
    return line;
  }
  return {};
}

}  // namespace

int Demo(Host& host, const Options& o) {
  const auto start = Clock::now();
  const std::string dir = o.outDir.value_or("out/demo");
  fs::create_directories(dir);
  const std::string input = o.on.value_or("sample:320x240");
  std::cout << "plug-in registrations:\n";
  for (const std::string& line : host.ListLines()) std::cout << "  " << line << "\n";

  DemoReport report;
  report.input = input;
  {
    Ref picture = host.LoadPicture(input);
    report.width = host.Width(picture);
    report.height = host.Height(picture);
    std::string error;
    if (!host.SavePicture(picture, dir + "/" + report.inputFile, &error)) throw HostError(error);
  }
  report.entities = Entities(host);
  std::cout << "results in " << dir << "/ (input " << input << ", " << report.width << "x" << report.height << "):\n";

  DemoRunner runner(host, dir, input, report.width, report.height);
  for (const auto& [name, bytes] : ListedInputs()) {
    WriteFile(dir + "/" + name, bytes);
    runner.AddFile(name, name);
  }
  std::set<std::string> covered;
  auto run = [&](const std::vector<std::string>& line, bool added, const std::string& label = "") {
    DemoItem item = runner.Run(line, added, label);
    covered.insert(item.covers.begin(), item.covers.end());
    char timing[32];
    std::snprintf(timing, sizeof timing, "%9.2f ms", item.milliseconds);
    std::cout << timing << "  " << item.title << "  " << (item.status == "ok" ? "" : item.status + "  ")
              << (item.summary.empty() || item.status != "ok" ? "" : "→ " + item.summary + "  ")
              << (added ? "(made up by the demo)" : "") << "\n";
    report.items.push_back(std::move(item));
  };
  for (const ListedCall& c : ListedCalls()) {
    if (c.shown) run(c.words, false, c.label);
  }
  for (const DemoEntity& e : report.entities) {
    if (covered.count(e.key)) continue;
    const std::vector<std::string> line = MadeUpLine(host, e, report.width, report.height);
    if (!line.empty()) run(line, true);
  }

  // The contact sheet of every picture result.
  std::vector<Thumbnail> thumbnails;
  for (const DemoItem& item : report.items) {
    for (const DemoShown& s : item.shown) {
      if (s.kind != DemoShown::Kind::Picture) continue;
      const bool main = s.label == "result" || s.label == "DestinationPicture";
      thumbnails.push_back({dir + "/" + s.file, item.title + (main ? "" : " · " + s.label)});
    }
  }
  std::string error;
  if (WriteContactSheet(thumbnails, "Picture plug-in gallery · input " + input, dir + "/gallery.png",
                        &report.galleryWidth, &report.galleryHeight, &error)) {
    report.gallery = "gallery.png";
  } else {
    std::cerr << "picturehost: no gallery: " << error << "\n";
  }
  report.totalSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  WriteDemoPage(report, dir + "/index.html");

  int errors = 0, nils = 0, pictures = 0;
  for (const DemoItem& item : report.items) {
    errors += item.status.rfind("error", 0) == 0;
    nils += item.status == "nil";
  }
  pictures = static_cast<int>(thumbnails.size());
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.2f", report.totalSeconds);
  std::cout << report.items.size() << " calls: " << pictures << " pictures, " << nils << " nil, " << errors
            << " errors; " << dir << "/gallery.png " << report.galleryWidth << "x" << report.galleryHeight << ", "
            << dir << "/index.html; " << seconds << " s\n";
  return errors || report.gallery.empty() ? kExitBadInput : kExitOk;
}

}  // namespace ph
