#include "cli/cli.h"

#include <glob.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/cli_session.h"

namespace ph {

// Only words that begin with "--" and a letter are options; every other word
// (-0.5, -300, 1e-07) is an argument.
static bool IsOption(const std::string& w) { return w.size() > 2 && w[0] == '-' && w[1] == '-' && std::isalpha(static_cast<unsigned char>(w[2])); }

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
    if (!digits.empty() && digits.size() <= most && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
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

namespace {

// Replaces every %i in a call argument or --set value by the input picture.
std::string WithInput(std::string text, const std::optional<std::string>& input) {
  if (!input) return text;
  for (size_t at = text.find(kInputWord); at != std::string::npos; at = text.find(kInputWord, at + input->size())) {
    text.replace(at, 2, *input);
  }
  return text;
}

bool MentionsInput(const std::vector<std::string>& texts) {
  for (const std::string& t : texts) {
    if (t.find(kInputWord) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

int Cli::Run() {
  if (o_.command.empty()) throw HostError("usage: picturehost list | call | run | demo (see README.md)");
  HostOptions ho;
  if (o_.plugin) ho.pluginPath = *o_.plugin;
  ho.version = o_.version;
  ho.without = o_.without;
  host_ = std::make_unique<Host>(ho);
  int status = kExitOk;
  const bool batch = (o_.command == "call" || o_.command == "run") &&
                     (o_.inputs.size() > 1 || (o_.inputs.size() == 1 && IsPattern(o_.inputs[0])));
  try {
    if (o_.command == "list") {
      for (const std::string& line : host_->ListLines()) std::cout << line << "\n";
    } else if (batch) {
      status = Batch();
    } else if (o_.command == "call") {
      Call(o_);
    } else if (o_.command == "run") {
      RunClass(o_);
    } else if (o_.command == "demo") {
      status = Demo();
    } else {
      throw HostError("unknown command " + o_.command);
    }
  } catch (const NilResult& e) {
    std::cout << std::flush;
    std::cerr << e.what() << "\n";
    status = kExitNil;
  }
  std::cout << std::flush;
  return Finish(status);
}

// Reports accounting problems and leaks; they override any other status.
int Cli::Finish(int status) {
  std::vector<std::string> problems = host_->TakeProblems();
  for (const std::string& leak : host_->LeaksSince(0)) problems.push_back(leak);
  for (const std::string& p : problems) std::cerr << "accounting: " << p << "\n";
  return problems.empty() ? status : kExitAccounting;
}

Value Cli::Convert(const Param& p, const std::string& text) {
  if ((p.type == Type::Picture || p.type == Type::MemoryBlock || p.type == Type::String || p.type == Type::Object) &&
      text == "nil") {
    return Value();
  }
  switch (p.type) {
    case Type::Integer: return Value(ParseInteger(text));
    case Type::Double: return Value(ParseDouble(text));
    case Type::Boolean:
      if (strcasecmp(text.c_str(), "true") == 0) return Value(true);
      if (strcasecmp(text.c_str(), "false") == 0) return Value(false);
      throw HostError("not a boolean (true or false): " + text);
    case Type::Color: return Value(Color{ParseColor(text)});
    case Type::Picture: return Value(LoadPicture(text));
    case Type::MemoryBlock: {
      if (text.rfind("zeros:", 0) == 0) return Value(host_->NewMemoryBlock(ParseInteger(text.substr(6))));
      const std::string bytes = ReadFile(text);
      return Value(host_->NewMemoryBlock(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())));
    }
    case Type::String: return Value(host_->NewString(ReadFile(text)));
    default: throw HostError("cannot pass a " + p.typeName + " from the command line: " + text);
  }
}

Ref Cli::LoadPicture(const std::string& text) { return host_->LoadPicture(text == "$SAMPLE" ? sample_ : text); }

std::vector<Value> Cli::ConvertAll(const Declaration& d, const std::vector<std::string>& texts,
                                   std::vector<Value>& byrefVariables) {
  std::vector<Value> args;
  byrefVariables.assign(texts.size(), Value());
  for (size_t i = 0; i < texts.size(); ++i) {
    Value v = Convert(d.params[i], texts[i]);
    if (d.params[i].byref) {
      byrefVariables[i] = std::move(v);
      args.push_back(Value::ByRef(&byrefVariables[i]));
    } else {
      args.push_back(std::move(v));
    }
  }
  return args;
}

const MethodInfo& Cli::Choose(const std::vector<MethodInfo>& methods, const std::string& owner,
                              const std::string& name, size_t count) {
  bool named = false;
  for (const MethodInfo& m : methods) {
    if (strcasecmp(m.declaration.name.c_str(), name.c_str()) != 0) continue;
    named = true;
    if (m.declaration.params.size() == count) return m;
  }
  if (!named) throw HostError("unknown method " + name + (owner.empty() ? "" : " of " + owner));
  throw HostError(name + " takes no " + std::to_string(count) + " argument(s)");
}

Cli::Target Cli::FindCallTarget(const std::string& name, size_t count, bool onPicture, bool usesInput) const {
  auto named = [&](const ClassInfo* c) {
    if (!c) return false;
    for (const MethodInfo& m : c->methods) {
      if (strcasecmp(m.declaration.name.c_str(), name.c_str()) == 0) return true;
    }
    return false;
  };
  Target t;
  if (!onPicture) {
    t.method = &Choose(host_->GlobalMethods(), "", name, count);
    return t;
  }
  const ClassInfo* picture = host_->FindClass("Picture");
  const ClassInfo* graphics = host_->FindClass("graphics");
  if (!named(picture) && named(graphics)) {
    t.owner = Target::Owner::Graphics;
    t.method = &Choose(graphics->methods, "graphics", name, count);
    return t;
  }
  if (!named(picture) && usesInput) {
    t.method = &Choose(host_->GlobalMethods(), "", name, count);
    return t;
  }
  if (!picture) throw HostError("the plug-in extends no Picture");
  t.owner = Target::Owner::Picture;
  t.method = &Choose(picture->methods, "Picture", name, count);
  return t;
}

std::string Cli::Describe(const Value& v, Type type) {
  if (v.IsNil()) return "nil";
  switch (type) {
    case Type::Integer: return std::to_string(v.AsInt());
    case Type::Double: return FormatDouble(v.AsDouble());
    case Type::Boolean: return v.AsBool() ? "true" : "false";
    case Type::Color: return FormatColor(v.AsColor());
    case Type::Picture:
      return "picture " + std::to_string(host_->Width(v.AsRef())) + "x" + std::to_string(host_->Height(v.AsRef()));
    case Type::MemoryBlock:
    case Type::String: return std::to_string(host_->Bytes(v.AsRef()).size()) + " bytes";
    default: return host_->ClassOf(v.AsRef());
  }
}

void Cli::PrintProperties(const Ref& instance) {
  const ClassInfo* c = host_->FindClass(host_->ClassOf(instance));
  for (const PropertyInfo& p : c->properties) {
    const Type t = TypeFromName(p.type);
    if (t != Type::Integer && t != Type::Double) continue;
    std::cout << p.name << "=" << Describe(host_->GetProperty(instance, p.name), t) << "\n";
  }
}

// Prints or saves a call's result. A nil result ends with status 3.
void Cli::Emit(const Value& result, const Declaration& d, const std::optional<std::string>& out) {
  if (d.result == Type::None) return;
  if (result.IsNil()) throw NilResult("nil");
  switch (d.result) {
    case Type::Picture:
      if (out) {
        std::string error;
        if (!host_->SavePicture(result.AsRef(), *out, &error)) throw HostError(error);
      } else {
        std::cout << Describe(result, d.result) << "\n";
      }
      break;
    case Type::MemoryBlock:
    case Type::String:
      if (out) {
        WriteFile(*out, host_->Bytes(result.AsRef()));
      } else {
        std::cout << Describe(result, d.result) << "\n";
      }
      break;
    case Type::Object:
      std::cout << host_->ClassOf(result.AsRef()) << "\n";
      PrintProperties(result.AsRef());
      break;
    default:
      std::cout << Describe(result, d.result) << "\n";
  }
}

Value Cli::Call(const Options& o) {
  if (o.arguments.empty()) throw HostError("usage: picturehost call [--on IMAGE] NAME [ARG ...] [--out FILE]");
  const std::string name = o.arguments[0];
  std::vector<std::string> texts(o.arguments.begin() + 1, o.arguments.end());
  const Target target = FindCallTarget(name, texts.size(), o.on.has_value(), MentionsInput(texts));
  for (std::string& t : texts) t = WithInput(t, o.on);
  Ref picture, receiver;
  if (target.owner != Target::Owner::Global) {
    picture = LoadPicture(*o.on);
    if (o.mask) host_->SetMask(picture, LoadPicture(*o.mask));
    receiver = target.owner == Target::Owner::Graphics ? host_->GraphicsOf(picture) : picture;
  }
  const MethodInfo* m = target.method;
  std::vector<Value> byref;
  std::vector<Value> args = ConvertAll(m->declaration, texts, byref);
  std::vector<Value> inputs = args;  // keeps the memory blocks passed by value
  Value result = receiver ? host_->Call(receiver, name, args) : host_->CallGlobal(name, args);

  // Memory blocks are saved next to --out; byref integers are printed.
  for (size_t i = 0; i < texts.size(); ++i) {
    const Param& p = m->declaration.params[i];
    const Value& now = p.byref ? byref[i] : inputs[i];
    if (p.type == Type::MemoryBlock && o.out && !now.IsNil()) {
      WriteFile(*o.out + "." + p.name, host_->Bytes(now.AsRef()));
    }
    if (p.byref && p.type == Type::Integer) std::cout << p.name << "=" << now.AsInt() << "\n";
  }
  // A graphics method draws into the picture: --out saves the picture after the call.
  if (target.owner == Target::Owner::Graphics && o.out) {
    std::string error;
    if (!host_->SavePicture(picture, *o.out, &error)) throw HostError(error);
  }
  Emit(result, m->declaration, o.out);
  return result;
}

Ref Cli::MakeInstance(const Options& o, const std::string& className) {
  if (!o.from) return host_->NewInstance(className);
  std::string name;
  std::vector<std::string> texts;
  SplitCall(*o.from, name, texts);
  for (std::string& t : texts) t = WithInput(t, o.on);
  const MethodInfo& m = Choose(host_->GlobalMethods(), "", name, texts.size());
  std::vector<Value> byref;
  Value v = host_->CallGlobal(name, ConvertAll(m.declaration, texts, byref));
  if (v.IsNil()) throw NilResult(*o.from + " gave nil");
  if (m.declaration.result != Type::Object || host_->ClassOf(v.AsRef()) != className) {
    throw HostError(*o.from + " does not make a " + className);
  }
  return v.AsRef();
}

void Cli::Assign(const Ref& instance, const ClassInfo& c, const std::string& assignment) {
  const size_t close = assignment.find(')');
  const size_t eq = assignment.find('=', close == std::string::npos ? 0 : close);
  if (eq == std::string::npos) throw HostError("--set needs PROPERTY=VALUE, not " + assignment);
  std::string name;
  std::vector<std::string> texts;
  SplitCall(assignment.substr(0, eq), name, texts);
  const std::string valueText = assignment.substr(eq + 1);
  for (const PropertyInfo& p : c.properties) {
    if (texts.empty() && strcasecmp(p.name.c_str(), name.c_str()) == 0) {
      Param param{p.name, TypeFromName(p.type), p.type, false};
      host_->SetProperty(instance, p.name, Convert(param, valueText));
      return;
    }
  }
  for (const MethodInfo& m : c.methods) {
    if (strcasecmp(m.declaration.name.c_str(), name.c_str()) != 0 || !m.setter ||
        m.declaration.params.size() != texts.size()) {
      continue;
    }
    std::vector<Value> byref;
    std::vector<Value> args = ConvertAll(m.declaration, texts, byref);
    Param param{"value", m.declaration.result, m.declaration.resultName, false};
    host_->AssignMethod(instance, name, args, Convert(param, valueText));
    return;
  }
  throw HostError(c.name + " has no property or assignable method " + name + " with " +
                  std::to_string(texts.size()) + " argument(s)");
}

void Cli::RunClass(const Options& o) {
  if (o.arguments.empty()) throw HostError("usage: picturehost run CLASS [--from FACTORY] [--set P=V ...] [CALL ...] [--out FILE]");
  const std::string className = o.arguments[0];
  const ClassInfo* c = host_->FindClass(className);
  if (!c || c->extension) throw HostError("unknown class " + className);
  Ref instance = MakeInstance(o, c->name);
  // --on gives the picture the instance works on: its SourcePicture, and %i.
  if (o.on) {
    for (const PropertyInfo& p : c->properties) {
      if (p.name == "SourcePicture") Assign(instance, *c, "SourcePicture=" + *o.on);
    }
  }
  for (const std::string& s : o.sets) Assign(instance, *c, WithInput(s, o.on));
  for (size_t i = 1; i < o.arguments.size(); ++i) {
    std::string name;
    std::vector<std::string> texts;
    SplitCall(o.arguments[i], name, texts);
    for (std::string& t : texts) t = WithInput(t, o.on);
    const MethodInfo& m = Choose(c->methods, c->name, name, texts.size());
    std::vector<Value> byref;
    Value v = host_->CallMethod(instance, name, ConvertAll(m.declaration, texts, byref));
    if (m.declaration.result != Type::None) std::cout << o.arguments[i] << " = " << Describe(v, m.declaration.result) << "\n";
  }
  PrintProperties(instance);
  if (o.out) {
    bool hasDestination = false;
    for (const PropertyInfo& p : c->properties) hasDestination |= p.name == "DestinationPicture";
    Value destination = hasDestination ? host_->GetProperty(instance, "DestinationPicture") : Value();
    if (destination.IsNil()) throw NilResult("DestinationPicture is nil");
    std::string error;
    if (!host_->SavePicture(destination.AsRef(), *o.out, &error)) throw HostError(error);
  }
}

int RunCommandLine(const std::vector<std::string>& words) {
  try {
    Cli cli(ParseOptions(words));
    return cli.Run();
  } catch (const HostError& e) {
    std::cout << std::flush;
    std::cerr << "picturehost: " << e.what() << "\n";
    return kExitBadInput;
  }
}

}  // namespace ph
