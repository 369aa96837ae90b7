// `picturehost demo`: every line of kDemoCalls on one input picture, then a
// call made up from the declaration for every registered method, global
// method and class that no line reaches. Each picture result is saved as PNG
// under a name made from the method and its arguments; the records of all
// calls become index.html and the contact sheet gallery.png, and one summary
// line per call is printed.
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

#include "cli/cli.h"
#include "cli/cli_session.h"
#include "demo/demo.h"
#include "demo/demo_calls.h"

namespace ph {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

bool Same(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

const MethodInfo* Named(const ClassInfo* c, const std::string& name) {
  if (!c) return nullptr;
  for (const MethodInfo& m : c->methods) {
    if (Same(m.declaration.name, name)) return &m;
  }
  return nullptr;
}

bool HasProperty(const ClassInfo& c, const std::string& name) {
  for (const PropertyInfo& p : c.properties) {
    if (p.name == name) return true;
  }
  return false;
}

// A file name stem from a command line: the words joined by "_", every
// character but letters, digits, '.' and '-' turned into '_'.
std::string Stem(const std::vector<std::string>& line) {
  std::string name;
  for (size_t i = 1; i < line.size(); ++i) {
    if (line[i] == "--set" || line[i] == "--from") continue;
    std::string word = line[i];
    if (word.rfind("$OUT/", 0) == 0) word = word.substr(5);
    if (!name.empty()) name += "_";
    for (char ch : word) name += std::isalnum(static_cast<unsigned char>(ch)) || ch == '.' || ch == '-' ? ch : '_';
  }
  while (name.find("__") != std::string::npos) name.replace(name.find("__"), 2, "_");
  while (!name.empty() && name.back() == '_') name.pop_back();
  return name.substr(0, 120);
}

// How an argument of a listed line reads on the page and in the summary.
std::string Readable(const std::string& word) {
  if (word == "$SAMPLE") return "input";
  if (word.rfind("$OUT/", 0) == 0) return word.substr(5);
  std::string text = word;
  for (size_t at = text.find("$SAMPLE"); at != std::string::npos; at = text.find("$SAMPLE")) text.replace(at, 7, "input");
  return text;
}

std::string Join(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (size_t i = 0; i < words.size(); ++i) text += (i ? between : "") + words[i];
  return text;
}

// Quotes a word for a POSIX shell when it needs it.
std::string ShellWord(const std::string& word) {
  if (!word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:/,=+") ==
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
    case Type::Picture: return "$SAMPLE";
    case Type::MemoryBlock: return "zeros:" + std::to_string(int64_t{width} * height * 4 + 64);
    case Type::String: return "$OUT/PicturetoBinaryStringQVT_SAMPLE.bin";
    default: return "nil";
  }
}

class DemoRunner {
 public:
  DemoRunner(Cli& cli, std::string dir, std::string input, int32_t width, int32_t height)
      : cli_(cli), host_(cli.host()), dir_(std::move(dir)), input_(std::move(input)), width_(width), height_(height) {}

  DemoItem Run(const std::vector<std::string>& line, bool added) {
    DemoItem item;
    item.line = line;
    item.added = added;
    item.stem = UniqueStem(Stem(line));
    try {
      if (line.size() < 2) throw HostError("a demo line needs a command and a name");
      if (line[0] == "call") {
        RunCall(item);
      } else if (line[0] == "run") {
        RunInstance(item);
      } else {
        throw HostError("unknown demo command " + line[0]);
      }
    } catch (const NilResult& e) {
      item.status = "nil";
      if (item.summary.empty()) item.summary = e.what();
    } catch (const std::exception& e) {
      item.status = std::string("error: ") + e.what();
    }
    if (item.title.empty()) item.title = Join(line, " ");
    return item;
  }

 private:
  // Replaces the placeholders of a listed argument and finds data files of
  // the source tree when the working directory is elsewhere.
  std::string Resolve(const std::string& word, Type type) const {
    std::string text = word;
    for (size_t at = text.find("$SAMPLE"); at != std::string::npos; at = text.find("$SAMPLE", at + input_.size())) {
      text.replace(at, 7, input_);
    }
    if (text.rfind("$OUT/", 0) == 0) text = dir_ + "/" + text.substr(5);
    const bool isFile = type == Type::Picture || type == Type::MemoryBlock || type == Type::String;
    if (isFile && !text.empty() && text[0] != '/' && text.rfind("zeros:", 0) != 0 && text.rfind("sample:", 0) != 0 &&
        text != "nil" && !fs::exists(text)) {
#ifdef PICTURE_SOURCE_DIR
      const fs::path inTree = fs::path(PICTURE_SOURCE_DIR) / text;
      if (fs::exists(inTree)) text = inTree.string();
#endif
    }
    return text;
  }

  std::string UniqueStem(std::string stem) {
    if (stem.empty()) stem = "result";
    std::string unique = stem;
    for (int n = 2; !stems_.insert(unique).second; ++n) unique = stem + "-" + std::to_string(n);
    return unique;
  }

  template <typename F>
  auto Timed(DemoItem& item, F f) {
    const auto start = Clock::now();
    struct Add {
      DemoItem& item;
      Clock::time_point start;
      ~Add() { item.milliseconds += std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }
    } add{item, start};
    return f();
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
    const MethodInfo* col = Named(&c, "Col");
    if (!col || col->declaration.params.size() != 1 || col->declaration.result != Type::Color || !HasProperty(c, "Count")) {
      return;
    }
    const int32_t count = std::clamp(host_.GetProperty(instance, "Count").AsInt(), 0, 256);
    DemoShown s;
    s.kind = DemoShown::Kind::Palette;
    s.label = "colours 0 to " + std::to_string(count - 1);
    for (int32_t i = 0; i < count; ++i) s.values.push_back(host_.CallMethod(instance, "Col", {i}).AsColor());
    item.shown.push_back(std::move(s));
  }

  void ShowInstance(DemoItem& item, const Ref& instance, const std::string& label) {
    const ClassInfo* c = host_.FindClass(host_.ClassOf(instance));
    DemoShown table;
    table.kind = DemoShown::Kind::Table;
    table.label = label;
    for (const PropertyInfo& p : c->properties) {
      const Type t = TypeFromName(p.type);
      if (t != Type::Integer && t != Type::Double) continue;
      table.rows.emplace_back(p.name, cli_.Describe(host_.GetProperty(instance, p.name), t));
    }
    if (!table.rows.empty()) item.shown.push_back(std::move(table));
    ShowPalette(item, instance, *c);
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

  void RunCall(DemoItem& item) {
    const std::string& name = item.line[1];
    const std::vector<std::string> listed(item.line.begin() + 2, item.line.end());
    const ClassInfo* pictureClass = host_.FindClass("Picture");
    const ClassInfo* graphicsClass = host_.FindClass("graphics");
    const bool onPicture = Named(pictureClass, name) || Named(graphicsClass, name);
    const Cli::Target target = cli_.FindCallTarget(name, listed.size(), onPicture, false);
    const Declaration& d = target.method->declaration;
    const std::string group = target.owner == Cli::Target::Owner::Picture    ? "Picture"
                              : target.owner == Cli::Target::Owner::Graphics ? "graphics"
                                                                             : "global";
    item.subject = group + ":" + d.text;
    item.covers.push_back(item.subject);
    item.declarations.push_back(d.text);

    std::vector<std::string> readable, words{"picturehost", "call"};
    for (const std::string& w : listed) readable.push_back(Readable(w));
    item.title = name + (listed.empty() ? "" : "(" + Join(readable, ", ") + ")");
    if (onPicture) words.insert(words.end(), {"--on", input_});
    words.push_back(name);
    for (size_t i = 0; i < listed.size(); ++i) words.push_back(Resolve(listed[i], d.params[i].type));

    std::vector<std::string> texts;
    for (size_t i = 0; i < listed.size(); ++i) texts.push_back(Resolve(listed[i], d.params[i].type));
    Ref picture, receiver;
    std::vector<uint32_t> before;
    if (onPicture) {
      picture = cli_.LoadPicture(input_);
      receiver = target.owner == Cli::Target::Owner::Graphics ? host_.GraphicsOf(picture) : picture;
      if (d.result != Type::Picture) before = host_.Pixels(picture);
    }
    std::vector<Value> byref;
    std::vector<Value> args = cli_.ConvertAll(d, texts, byref);
    std::vector<Value> inputs = args;
    std::vector<std::vector<uint8_t>> blocksBefore(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
      if (d.params[i].type == Type::MemoryBlock && !d.params[i].byref && !inputs[i].IsNil()) {
        blocksBefore[i] = host_.Bytes(inputs[i].AsRef());
      }
    }
    Value result = Timed(item, [&] { return receiver ? host_.Call(receiver, name, args) : host_.CallGlobal(name, args); });

    std::vector<std::string> summary;
    switch (d.result) {
      case Type::None: break;
      case Type::Picture:
        if (!result.IsNil()) {
          item.shown.push_back(SavePicture(result.AsRef(), item.stem, "result"));
          words.insert(words.end(), {"--out", item.stem + ".png"});
        }
        break;
      case Type::MemoryBlock:
      case Type::String:
        if (!result.IsNil()) {
          item.shown.push_back(SaveBytes(result.AsRef(), item.stem + ".bin", "result"));
          words.insert(words.end(), {"--out", item.stem + ".bin"});
        }
        break;
      case Type::Object:
        if (!result.IsNil()) ShowInstance(item, result.AsRef(), host_.ClassOf(result.AsRef()));
        break;
      default: {
        DemoShown s;
        s.label = "result";
        s.text = cli_.Describe(result, d.result);
        item.shown.push_back(s);
      }
    }
    if (d.result != Type::None) summary.push_back(cli_.Describe(result, d.result));

    // Byref results and the memory blocks the call wrote into.
    for (size_t i = 0; i < listed.size(); ++i) {
      const Param& p = d.params[i];
      const Value& now = p.byref ? byref[i] : inputs[i];
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
        } else if (p.byref || bytes != blocksBefore[i]) {  // blocks the call only read are not shown
          item.shown.push_back(SaveBytes(now.AsRef(), item.stem + "." + p.name + ".bin", p.name + " after the call"));
        }
      }
    }
    if (picture && d.result != Type::Picture &&
        (target.owner == Cli::Target::Owner::Graphics || host_.Pixels(picture) != before)) {
      item.shown.push_back(SavePicture(picture, item.stem + "-after", "the picture after the call"));
    }
    item.command = "";
    for (const std::string& w : words) item.command += (item.command.empty() ? "" : " ") + ShellWord(w);
    item.summary = Join(summary, ", ");
    if (d.result != Type::None && result.IsNil()) throw NilResult(item.summary);
  }

  void RunInstance(DemoItem& item) {
    std::vector<std::string> sets, calls;
    std::string className, factory;
    for (size_t i = 1; i < item.line.size(); ++i) {
      const std::string& w = item.line[i];
      if (w == "--set" && i + 1 < item.line.size()) {
        sets.push_back(item.line[++i]);
      } else if (w == "--from" && i + 1 < item.line.size()) {
        factory = item.line[++i];
      } else if (className.empty()) {
        className = w;
      } else {
        calls.push_back(w);
      }
    }
    const ClassInfo* c = host_.FindClass(className);
    if (!c || c->extension) throw HostError("unknown class " + className);
    item.subject = "class:" + c->name;
    item.covers.push_back(item.subject);

    std::vector<std::string> words{"picturehost", "run", c->name}, titleParts;
    Ref instance;
    if (!factory.empty()) {
      std::string name;
      std::vector<std::string> texts;
      SplitCall(factory, name, texts);
      const MethodInfo& m = Cli::Choose(host_.GlobalMethods(), "", name, texts.size());
      item.subject = "global:" + m.declaration.text;
      item.covers.push_back(item.subject);
      item.declarations.push_back(m.declaration.text);
      for (size_t i = 0; i < texts.size(); ++i) texts[i] = Resolve(texts[i], m.declaration.params[i].type);
      std::vector<Value> byref;
      std::vector<Value> args = cli_.ConvertAll(m.declaration, texts, byref);
      Value v = Timed(item, [&] { return host_.CallGlobal(name, args); });
      words.insert(words.end(), {"--from", factory});
      titleParts.push_back(Readable(factory) + " →");
      if (v.IsNil()) {
        item.title = Join(titleParts, " ") + " " + c->name;
        item.summary = factory + " gave nil";
        item.command = Join(words, " ");
        throw NilResult(item.summary);
      }
      instance = v.AsRef();
    } else {
      instance = Timed(item, [&] { return host_.NewInstance(c->name); });
    }
    titleParts.push_back(c->name + ":");

    for (const std::string& s : sets) {
      const size_t eq = s.find('=', s.find(')') == std::string::npos ? 0 : s.find(')'));
      std::string name;
      std::vector<std::string> texts;
      SplitCall(s.substr(0, eq == std::string::npos ? s.size() : eq), name, texts);
      if (const MethodInfo* m = Named(c, name); m && m->setter) {
        if (std::find(item.declarations.begin(), item.declarations.end(), m->declaration.text) == item.declarations.end()) {
          item.declarations.push_back(m->declaration.text);
        }
      }
      const std::string resolved =
          eq == std::string::npos ? s : s.substr(0, eq + 1) + Resolve(s.substr(eq + 1), Type::Picture);
      Timed(item, [&] {
        cli_.Assign(instance, *c, resolved);
        return 0;
      });
      words.insert(words.end(), {"--set", resolved});
      if (s.rfind("SourcePicture=", 0) != 0) titleParts.push_back(Readable(s));
    }

    std::vector<std::string> summary;
    std::string pictureArgument;
    for (const std::string& call : calls) {
      std::string name;
      std::vector<std::string> texts;
      SplitCall(call, name, texts);
      const MethodInfo& m = Cli::Choose(c->methods, c->name, name, texts.size());
      item.declarations.push_back(m.declaration.text);
      for (size_t i = 0; i < texts.size(); ++i) {
        if (m.declaration.params[i].type == Type::Picture && pictureArgument.empty()) pictureArgument = texts[i];
        texts[i] = Resolve(texts[i], m.declaration.params[i].type);
      }
      std::vector<Value> byref;
      std::vector<Value> args = cli_.ConvertAll(m.declaration, texts, byref);
      Value v = Timed(item, [&] { return host_.CallMethod(instance, name, args); });
      words.push_back(Readable(call) == call ? call : name + "(" + Join(texts, ",") + ")");
      titleParts.push_back(Readable(call));
      if (m.declaration.result == Type::None) continue;
      const std::string text = cli_.Describe(v, m.declaration.result);
      summary.push_back(Readable(call) + " = " + text);
      if (m.declaration.result == Type::Picture && !v.IsNil()) {
        item.shown.push_back(SavePicture(v.AsRef(), item.stem + "_" + Stem({"", call}), Readable(call)));
      } else {
        DemoShown s;
        s.label = Readable(call);
        s.text = text;
        item.shown.push_back(s);
      }
    }

    ShowInstance(item, instance, "properties after the calls");
    if (!pictureArgument.empty()) {
      std::string file = item.stem + "_picture.png";
      if (pictureArgument == "$SAMPLE") {
        file = "input.png";
      } else {
        SavePicture(cli_.LoadPicture(Resolve(pictureArgument, Type::Picture)), item.stem + "_picture", "");
      }
      ShowPositions(item, instance, *c, file);
    }
    item.title = Join(titleParts, " ");
    if (HasProperty(*c, "DestinationPicture")) {
      Value destination = host_.GetProperty(instance, "DestinationPicture");
      words.insert(words.end(), {"--out", item.stem + ".png"});
      if (destination.IsNil()) {
        summary.push_back("DestinationPicture nil");
      } else {
        item.shown.push_back(SavePicture(destination.AsRef(), item.stem, "DestinationPicture"));
        summary.push_back("DestinationPicture " + std::to_string(host_.Width(destination.AsRef())) + "x" +
                          std::to_string(host_.Height(destination.AsRef())));
      }
      item.summary = Join(summary, ", ");
      item.command.clear();
      for (const std::string& w : words) item.command += (item.command.empty() ? "" : " ") + ShellWord(w);
      if (destination.IsNil()) throw NilResult(item.summary);
    }
    item.summary = Join(summary, ", ");
    item.command.clear();
    for (const std::string& w : words) item.command += (item.command.empty() ? "" : " ") + ShellWord(w);
  }

  Cli& cli_;
  Host& host_;
  std::string dir_, input_;
  int32_t width_, height_;
  std::set<std::string> stems_;
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
    for (const MethodInfo& m : c.methods) e.members.push_back((m.setter ? "method (assignable) " : "method ") + m.declaration.text);
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
    std::vector<std::string> line{"run", e.title};
    if (HasProperty(*c, "SourcePicture")) line.insert(line.end(), {"--set", "SourcePicture=$SAMPLE"});
    for (const MethodInfo& m : c->methods) {
      const Declaration& d = m.declaration;
      if (d.result == Type::None) continue;  // Close and the like
      if (d.params.empty()) {
        line.push_back(d.name);
        break;
      }
      if (d.params.size() == 1 && d.params[0].type == Type::Picture) {
        line.push_back(d.name + "($SAMPLE)");
        break;
      }
    }
    return line;
  }
  const std::vector<MethodInfo>& methods = e.group == "global" ? host.GlobalMethods() : host.FindClass(e.group)->methods;
  for (const MethodInfo& m : methods) {
    if (m.declaration.text != e.title) continue;
    std::vector<std::string> line{"call", m.declaration.name};
    for (const Param& p : m.declaration.params) line.push_back(DefaultArgument(p, width, height));
    return line;
  }
  return {};
}

}  // namespace

int Cli::Demo() {
  const auto start = Clock::now();
  const std::string dir = o_.outDir.value_or("out/demo");
  fs::create_directories(dir);
  const std::string input = o_.on.value_or("sample:320x240");
  sample_ = input;
  std::cout << "plug-in registrations:\n";
  for (const std::string& line : host_->ListLines()) std::cout << "  " << line << "\n";

  DemoReport report;
  report.input = input;
  {
    Ref picture = LoadPicture(input);
    report.width = host_->Width(picture);
    report.height = host_->Height(picture);
    std::string error;
    if (!host_->SavePicture(picture, dir + "/" + report.inputFile, &error)) throw HostError(error);
  }
  report.entities = Entities(*host_);
  std::cout << "results in " << dir << "/ (input " << input << ", " << report.width << "x" << report.height << "):\n";

  DemoRunner runner(*this, dir, input, report.width, report.height);
  std::set<std::string> covered;
  auto run = [&](const std::vector<std::string>& line, bool added) {
    DemoItem item = runner.Run(line, added);
    covered.insert(item.covers.begin(), item.covers.end());
    char timing[32];
    std::snprintf(timing, sizeof timing, "%9.2f ms", item.milliseconds);
    std::cout << timing << "  " << item.title << "  " << (item.status == "ok" ? "" : item.status + "  ")
              << (item.summary.empty() || item.status != "ok" ? "" : "→ " + item.summary + "  ")
              << (added ? "(made up by the demo)" : "") << "\n";
    report.items.push_back(std::move(item));
  };
  for (const std::vector<std::string>& line : kDemoCalls) run(line, false);
  for (const DemoEntity& e : report.entities) {
    if (covered.count(e.key)) continue;
    const std::vector<std::string> line = MadeUpLine(*host_, e, report.width, report.height);
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
