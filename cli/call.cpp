#include "cli/call.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <sstream>

#include "cli/help.h"
#include "cli/output.h"

namespace ph {

std::string WrongCount(const std::vector<MethodInfo>& methods, const std::string& name, size_t count) {
  std::string counts, declarations;
  for (const MethodInfo& m : methods) {
    if (strcasecmp(m.declaration.name.c_str(), name.c_str()) != 0) continue;
    counts += (counts.empty() ? "" : " or ") + std::to_string(m.declaration.params.size());
    declarations += "\n  " + m.declaration.text;
  }
  return name + " takes " + counts + " argument(s), not " + std::to_string(count) + ":" + declarations;
}

namespace {

std::string NameOf(const std::string& declaration) {
  return declaration.substr(0, std::min(declaration.find('('), declaration.find(' ')));
}

// Replaces every %i in a call argument or --set value by the input picture.
std::string WithInput(std::string text, const std::optional<std::string>& input) {
  if (!input) return text;
  for (size_t at = text.find(kInputWord); at != std::string::npos; at = text.find(kInputWord, at + input->size())) {
    text.replace(at, 2, *input);
  }
  return text;
}

const MethodInfo& Choose(const std::vector<MethodInfo>& methods, const std::string& owner, const std::string& name,
                         size_t count) {
  bool named = false;
  if (const MethodInfo* m = FindMethod(methods, name, count, false, &named)) return *m;
  if (!named) {
    std::vector<std::string> names;
    for (const MethodInfo& m : methods) names.push_back(m.declaration.name);
    throw HostError("unknown method " + name + (owner.empty() ? "" : " of " + owner) + DidYouMean(name, names));
  }
  throw HostError(WrongCount(methods, name, count));
}

// The arguments of a declaration; a byref one points at its variable in
// `byrefVariables`.
std::vector<Value> ConvertAll(Host& host, const Declaration& d, const std::vector<std::string>& texts,
                              std::vector<Value>& byrefVariables) {
  std::vector<Value> args;
  byrefVariables.assign(texts.size(), Value());
  for (size_t i = 0; i < texts.size(); ++i) {
    Value v = Convert(host, d.params[i], texts[i]);
    if (d.params[i].byref) {
      byrefVariables[i] = std::move(v);
      args.push_back(Value::ByRef(&byrefVariables[i]));
    } else {
      args.push_back(std::move(v));
    }
  }
  return args;
}

// Runs f, a call into the plug-in, adding its time to the execution's.
template <typename F>
auto Timed(Execution& e, F f) {
  const auto start = std::chrono::steady_clock::now();
  struct Add {
    Execution& e;
    std::chrono::steady_clock::time_point start;
    ~Add() {
      e.milliseconds += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
  } add{e, start};
  return f();
}

// "Name(a,b)" with every %i replaced: the name and the argument texts.
std::vector<std::string> SplitWithInput(const std::string& call, std::string& name, const Options& o) {
  std::vector<std::string> texts;
  SplitCall(call, name, texts);
  for (std::string& t : texts) t = WithInput(t, o.on);
  return texts;
}

const char* OwnerName(Owner owner) {
  return owner == Owner::Picture ? "Picture" : owner == Owner::Graphics ? "graphics" : "global";
}

// --fit WxH: the width and height arguments of a scaling method, left out of
// the line, become the largest size within W x H with the picture's
// proportions (each side rounded, at least 1).
void FitArguments(Host& host, const Options& o, const Declaration& d, Execution& e) {
  size_t width = d.params.size(), height = d.params.size();
  for (size_t i = 0; i < d.params.size(); ++i) {
    if (d.params[i].type != Type::Integer) continue;
    if (strcasecmp(d.params[i].name.c_str(), "width") == 0) width = i;
    if (strcasecmp(d.params[i].name.c_str(), "height") == 0) height = i;
  }
  if (!e.picture || width == d.params.size() || height == d.params.size() ||
      d.name.find("Scale") == std::string::npos) {
    throw HostError("--fit is for the scaling methods on a picture (ScaleQVT), not " + d.text);
  }
  const double w = host.Width(e.picture), h = host.Height(e.picture);
  const double s = std::min(o.fit->first / w, o.fit->second / h);
  const auto side = [&](double v, int32_t most) {
    return std::to_string(std::clamp(static_cast<int32_t>(std::lround(v * s)), int32_t{1}, most));
  };
  const size_t first = std::min(width, height);
  e.texts.insert(e.texts.begin() + static_cast<std::ptrdiff_t>(first),
                 first == width ? side(w, o.fit->first) : side(h, o.fit->second));
  const size_t second = std::max(width, height);
  e.texts.insert(e.texts.begin() + static_cast<std::ptrdiff_t>(second),
                 second == width ? side(w, o.fit->first) : side(h, o.fit->second));
}

void ExecuteCall(Host& host, const Options& o, Execution& e) {
  if (o.arguments.empty()) throw HostError("usage: picturehost call [--on IMAGE] NAME [ARG ...] [--out FILE]");
  const std::string& name = o.arguments[0];
  e.texts.assign(o.arguments.begin() + 1, o.arguments.end());
  e.target = FindCallTarget(host, o);
  if (o.out && (e.target.method->declaration.result == Type::Picture || e.target.owner == Owner::Graphics) &&
      !IsImageName(*o.out)) {
    throw HostError("--out " + *o.out + ": the name must end in " + ImageFormats());
  }
  e.invoked.push_back({OwnerName(e.target.owner), e.target.method, false});
  for (std::string& t : e.texts) t = WithInput(t, o.on);
  Ref receiver;
  if (e.target.owner != Owner::Global) {
    e.picture = LoadImage(host, *o.on);
    if (o.mask) host.SetMask(e.picture, LoadImage(host, *o.mask));
    receiver = e.target.owner == Owner::Graphics ? host.GraphicsOf(e.picture) : e.picture;
  }
  const Declaration& d = e.target.method->declaration;
  if (o.fit) FitArguments(host, o, d, e);
  std::vector<Value> byref;
  std::vector<Value> args = ConvertAll(host, d, e.texts, byref);
  std::vector<Value> inputs = args;  // keeps the memory blocks passed by value
  for (size_t i = 0; i < d.params.size(); ++i) {
    const bool block = d.params[i].type == Type::MemoryBlock && !d.params[i].byref && !args[i].IsNil();
    e.blocksBefore.push_back(block ? host.Bytes(args[i].AsRef()) : std::vector<uint8_t>());
  }
  e.result = Timed(e, [&] { return receiver ? host.Call(receiver, name, args) : host.CallGlobal(name, args); });
  for (size_t i = 0; i < d.params.size(); ++i)
    e.arguments.push_back(std::move(d.params[i].byref ? byref[i] : inputs[i]));
}

// --from FACTORY(args), or a new instance.
Ref MakeInstance(Host& host, const Options& o, const ClassInfo& c, Execution& e) {
  if (!o.from) return Timed(e, [&] { return host.NewInstance(c.name); });
  std::string name;
  const std::vector<std::string> texts = SplitWithInput(*o.from, name, o);
  const MethodInfo& m = Choose(host.GlobalMethods(), "", name, texts.size());
  std::vector<Value> byref;
  std::vector<Value> args = ConvertAll(host, m.declaration, texts, byref);
  e.invoked.push_back({"global", &m, false});
  Value v = Timed(e, [&] { return host.CallGlobal(name, args); });
  if (v.IsNil()) throw NilResult(*o.from + " gave nil");
  if (m.declaration.result != Type::Object || host.ClassOf(v.AsRef()) != c.name) {
    throw HostError(*o.from + " does not make a " + c.name);
  }
  return v.AsRef();
}

// PROPERTY=VALUE or METHOD(args)=VALUE.
void Assign(Host& host, Execution& e, const std::string& assignment) {
  const ClassInfo& c = *e.cls;
  const size_t close = assignment.find(')');
  const size_t eq = assignment.find('=', close == std::string::npos ? 0 : close);
  if (eq == std::string::npos) throw HostError("--set needs PROPERTY=VALUE, not " + assignment);
  std::string name;
  std::vector<std::string> texts;
  SplitCall(assignment.substr(0, eq), name, texts);
  const std::string valueText = assignment.substr(eq + 1);
  for (const PropertyInfo& p : c.properties) {
    if (texts.empty() && strcasecmp(p.name.c_str(), name.c_str()) == 0) {
      Value value = Convert(host, Param{p.name, TypeFromName(p.type), p.type, false}, valueText);
      Timed(e, [&] {
        host.SetProperty(e.instance, p.name, value);
        return 0;
      });
      return;
    }
  }
  const MethodInfo* m = FindMethod(c.methods, name, texts.size(), true);
  if (!m) {
    throw HostError(c.name + " has no property or assignable method " + name + " with " + std::to_string(texts.size()) +
                    " argument(s)");
  }
  std::vector<Value> byref;
  std::vector<Value> args = ConvertAll(host, m->declaration, texts, byref);
  Value value = Convert(host, Param{"value", m->declaration.result, m->declaration.resultName, false}, valueText);
  e.invoked.push_back({c.name, m, true});
  Timed(e, [&] {
    host.AssignMethod(e.instance, name, args, value);
    return 0;
  });
}

void ExecuteRun(Host& host, const Options& o, Execution& e) {
  if (o.arguments.empty()) {
    throw HostError("usage: picturehost run CLASS [--from FACTORY] [--set P=V ...] [CALL ...] [--out FILE]");
  }
  const ClassInfo* c = host.FindClass(o.arguments[0]);
  if (!c || c->extension) throw HostError("unknown class " + o.arguments[0]);
  if (o.out && !IsImageName(*o.out)) throw HostError("--out " + *o.out + ": the name must end in " + ImageFormats());
  e.cls = c;
  e.instance = MakeInstance(host, o, *c, e);
  // --on gives the picture the instance works on: its SourcePicture, and %i.
  if (o.on && HasProperty(*c, "SourcePicture")) Assign(host, e, "SourcePicture=" + *o.on);
  for (const std::string& s : o.sets) Assign(host, e, WithInput(s, o.on));
  for (size_t i = 1; i < o.arguments.size(); ++i) {
    std::string name;
    const std::vector<std::string> texts = SplitWithInput(o.arguments[i], name, o);
    const MethodInfo& m = Choose(c->methods, c->name, name, texts.size());
    std::vector<Value> byref;
    std::vector<Value> args = ConvertAll(host, m.declaration, texts, byref);
    e.invoked.push_back({c->name, &m, false});
    Value v = Timed(e, [&] { return host.CallMethod(e.instance, name, args); });
    e.steps.push_back({o.arguments[i], &m, std::move(v)});
  }
}

void SavePicture(Host& host, const Options& o, const Ref& picture, const std::string& path,
                 std::vector<Written>* written) {
  SaveImage(host, picture, path, o.quality);
  if (written) written->push_back({path, picture, {}});
}

void SaveBytes(Host& host, const Ref& object, const std::string& path, std::vector<Written>* written) {
  std::vector<uint8_t> bytes = host.Bytes(object);
  WriteFileSafely(path, bytes);
  if (written) written->push_back({path, Ref(), std::move(bytes)});
}

void PrintSteps(const Host& host, const Execution& e, std::ostream& out) {
  for (const Execution::Step& s : e.steps) {
    const Type type = s.method->declaration.result;
    if (type != Type::None) out << s.call << " = " << Describe(host, s.value, type) << "\n";
  }
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

// A value as JSON: numbers as numbers (a double that is no number as null),
// colours as "&cRRGGBB", pictures as their size.
std::string JsonValue(const Host& host, const Value& v, Type type) {
  if (v.IsNil()) return "null";
  switch (type) {
    case Type::Integer: return std::to_string(v.AsInt());
    case Type::Double: return std::isfinite(v.AsDouble()) ? FormatDouble(v.AsDouble()) : "null";
    case Type::Boolean: return v.AsBool() ? "true" : "false";
    case Type::Color: return JsonString(FormatColor(v.AsColor()));
    case Type::Picture:
      return "{\"width\": " + std::to_string(host.Width(v.AsRef())) +
             ", \"height\": " + std::to_string(host.Height(v.AsRef())) + "}";
    case Type::MemoryBlock:
    case Type::String: return "{\"bytes\": " + std::to_string(host.Bytes(v.AsRef()).size()) + "}";
    default: return JsonString(host.ClassOf(v.AsRef()));
  }
}

// A block of little-endian 32-bit counters (the histograms) as a JSON array.
std::string JsonCounters(const std::vector<uint8_t>& bytes) {
  std::string out = "[";
  for (size_t i = 0; i + 3 < bytes.size(); i += 4) {
    const uint32_t v =
        uint32_t{bytes[i]} | uint32_t{bytes[i + 1]} << 8 | uint32_t{bytes[i + 2]} << 16 | uint32_t{bytes[i + 3]} << 24;
    out += (i ? ", " : "") + std::to_string(v);
  }
  return out + "]";
}

// An object of fields written in order: {"a": 1, "b": [..]}.
struct JsonObject {
  std::string text;
  void Add(const std::string& name, const std::string& json) {
    text += (text.empty() ? "" : ", ") + JsonString(name) + ": " + json;
  }
  std::string Done() const { return "{" + text + "}"; }
};

// The colours of a palette: Col(0) .. Col(Count - 1).
std::vector<uint32_t> PaletteColors(Host& host, const Ref& instance) {
  const ClassInfo* c = host.FindClass(host.ClassOf(instance));
  std::vector<uint32_t> colors;
  const MethodInfo* col = c ? FindMethod(c->methods, "Col", 1) : nullptr;
  if (!col || col->declaration.result != Type::Color || !HasProperty(*c, "Count")) return colors;
  const int32_t count = std::clamp(host.GetProperty(instance, "Count").AsInt(), int32_t{0}, int32_t{256});
  for (int32_t i = 0; i < count; ++i) colors.push_back(host.CallMethod(instance, "Col", {Value(i)}).AsColor());
  return colors;
}

// The properties `run` prints: those --get names (all: every number), or,
// for a class that makes no picture, every number, since they are its results.
std::vector<std::pair<std::string, std::string>> ChosenProperties(Host& host, const Options& o, const Ref& instance) {
  const ClassInfo& c = *host.FindClass(host.ClassOf(instance));
  std::vector<std::pair<std::string, std::string>> all = NumberProperties(host, instance);
  if (o.gets.empty()) return HasProperty(c, "DestinationPicture") ? decltype(all)() : all;
  std::vector<std::pair<std::string, std::string>> chosen;
  for (const std::string& list : o.gets) {
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
      if (strcasecmp(name.c_str(), "all") == 0) return all;
      const auto it = std::find_if(all.begin(), all.end(),
                                   [&](const auto& p) { return strcasecmp(p.first.c_str(), name.c_str()) == 0; });
      if (it == all.end()) {
        std::vector<std::string> names;
        for (const auto& p : all) names.push_back(p.first);
        throw HostError(c.name + " has no number property " + name + DidYouMean(name, names));
      }
      chosen.push_back(*it);
    }
  }
  return chosen;
}

std::string JsonProperties(const std::vector<std::pair<std::string, std::string>>& properties) {
  JsonObject o;
  for (const auto& [name, value] : properties)
    o.Add(name, value == "nan" || value == "inf" || value == "-inf" ? "null" : value);
  return o.Done();
}

std::string JsonInstance(Host& host, const Ref& instance,
                         const std::vector<std::pair<std::string, std::string>>& properties) {
  JsonObject o;
  o.Add("class", JsonString(host.ClassOf(instance)));
  o.Add("properties", JsonProperties(properties));
  const std::vector<uint32_t> colors = PaletteColors(host, instance);
  if (!colors.empty()) {
    std::string list = "[";
    for (size_t i = 0; i < colors.size(); ++i) list += (i ? ", " : "") + JsonString(FormatColor(colors[i]));
    o.Add("colors", list + "]");
  }
  return o.Done();
}

// Memory blocks the call filled (byref ones, or those passed whose bytes
// changed) are saved next to --out or, with --json, printed; byref integers
// are printed; a graphics method's picture is saved as --out; then the result
// is printed or saved.
void DeliverCall(Host& host, const Options& o, const Execution& e, std::ostream& out, std::vector<Written>* written) {
  const Declaration& d = e.target.method->declaration;
  JsonObject json;
  if (o.on) json.Add("input", JsonString(*o.on));
  json.Add("method", JsonString(d.name));
  for (size_t i = 0; i < e.arguments.size(); ++i) {
    const Param& p = d.params[i];
    const Value& now = e.arguments[i];
    if (p.type == Type::MemoryBlock && !now.IsNil()) {
      const std::vector<uint8_t> bytes = host.Bytes(now.AsRef());
      const bool filled = p.byref || (i < e.blocksBefore.size() && bytes != e.blocksBefore[i]);
      if (filled && o.json) {
        json.Add(p.name, p.byref && bytes.size() % 4 == 0 ? JsonCounters(bytes)
                                                          : "{\"bytes\": " + std::to_string(bytes.size()) + "}");
      } else if (filled && o.out) {
        SaveBytes(host, now.AsRef(), *o.out + "." + p.name, written);
      }
    }
    if (p.byref && p.type == Type::Integer) {
      if (o.json) {
        json.Add(p.name, std::to_string(now.AsInt()));
      } else {
        out << p.name << "=" << now.AsInt() << "\n";
      }
    }
  }
  if (e.target.owner == Owner::Graphics && o.out) SavePicture(host, o, e.picture, *o.out, written);
  if (d.result != Type::None) {
    if (e.result.IsNil()) {
      if (o.json) out << json.Done() << "\n";
      throw NilResult(NilReason(host, e));
    }
    const bool file = d.result == Type::Picture || d.result == Type::MemoryBlock || d.result == Type::String;
    if (file && o.out) {
      if (d.result == Type::Picture) {
        SavePicture(host, o, e.result.AsRef(), *o.out, written);
      } else {
        SaveBytes(host, e.result.AsRef(), *o.out, written);
      }
      json.Add("out", JsonString(*o.out));
    }
    if (d.result == Type::Object) {
      const auto properties = NumberProperties(host, e.result.AsRef());
      if (o.json) {
        json.Add("result", JsonInstance(host, e.result.AsRef(), properties));
      } else {
        out << host.ClassOf(e.result.AsRef()) << "\n";
        for (const auto& [name, value] : properties) out << name << "=" << value << "\n";
      }
    } else if (o.json) {
      json.Add("result", JsonValue(host, e.result, d.result));
    } else if (!(file && o.out)) {
      out << Describe(host, e.result, d.result) << "\n";
    }
  }
  if (o.json) out << json.Done() << "\n";
}

// The picture `run --out` saves: the DestinationPicture, or for a class with
// none (a palette) the last picture a call gave.
Value RunPicture(Host& host, const Execution& e) {
  if (HasProperty(*e.cls, "DestinationPicture")) {
    Value destination = host.GetProperty(e.instance, "DestinationPicture");
    if (!destination.IsNil()) return destination;
    bool ran = false;
    for (const Execution::Step& s : e.steps) ran |= strcasecmp(s.method->declaration.name.c_str(), "Run") == 0;
    if (!ran && FindMethod(e.cls->methods, "Run", 0)) {
      throw NilResult("DestinationPicture is nil: Run was not called (add Run to the line after the --set options)");
    }
    std::string reason;
    for (const ReferenceClass& c : ReferenceClasses()) {
      if (c.name == e.cls->name) {
        for (const ReferenceEntry& entry : ReferenceEntries()) {
          if (entry.owner == c.name && NameOf(entry.declaration) == "Run") reason = FailureSentences(entry);
        }
      }
    }
    throw NilResult("DestinationPicture is nil: Run gave no picture" + (reason.empty() ? "" : ". " + reason));
  }
  for (auto s = e.steps.rbegin(); s != e.steps.rend(); ++s) {
    if (s->method->declaration.result != Type::Picture) continue;
    if (s->value.IsNil()) throw NilResult(s->call + " gave nil");
    return s->value;
  }
  throw HostError(e.cls->name + " has no DestinationPicture and no call on the line gave a picture to save as --out");
}

void DeliverRun(Host& host, const Options& o, const Execution& e, std::ostream& out, std::vector<Written>* written) {
  const auto properties = ChosenProperties(host, o, e.instance);
  Value picture;
  if (o.out) picture = RunPicture(host, e);
  if (o.json) {
    JsonObject json;
    if (o.on) json.Add("input", JsonString(*o.on));
    std::string calls = "[";
    for (const Execution::Step& s : e.steps) {
      JsonObject step;
      step.Add("call", JsonString(s.call));
      if (s.method->declaration.result != Type::None)
        step.Add("result", JsonValue(host, s.value, s.method->declaration.result));
      calls += (calls.size() > 1 ? ", " : "") + step.Done();
    }
    json.Add("calls", calls + "]");
    const std::string instance = JsonInstance(host, e.instance, properties);
    json.text += ", " + instance.substr(1, instance.size() - 2);
    if (o.out) json.Add("out", JsonString(*o.out));
    out << json.Done() << "\n";
  } else {
    PrintSteps(host, e, out);
    for (const auto& [name, value] : properties) out << name << "=" << value << "\n";
  }
  if (o.out) SavePicture(host, o, picture.AsRef(), *o.out, written);
}

}  // namespace

bool HasProperty(const ClassInfo& c, const std::string& name) {
  for (const PropertyInfo& p : c.properties) {
    if (p.name == name) return true;
  }
  return false;
}

std::vector<std::pair<std::string, std::string>> NumberProperties(Host& host, const Ref& instance) {
  std::vector<std::pair<std::string, std::string>> values;
  for (const PropertyInfo& p : host.FindClass(host.ClassOf(instance))->properties) {
    const Type t = TypeFromName(p.type);
    if (t == Type::Integer || t == Type::Double)
      values.emplace_back(p.name, Describe(host, host.GetProperty(instance, p.name), t));
  }
  return values;
}

Target FindCallTarget(const Host& host, const std::string& name, size_t count, bool onPicture, bool usesInput) {
  auto named = [&](const ClassInfo* c) {
    bool any = false;
    if (c) FindMethod(c->methods, name, count, false, &any);
    return any;
  };
  if (!onPicture) {
    bool global = false;
    FindMethod(host.GlobalMethods(), name, count, false, &global);
    const ClassInfo* picture = host.FindClass("Picture");
    if (!global && picture && named(picture)) {
      throw HostError(name + " is a Picture method: give it a picture with --on IMAGE (or sample:WxH)");
    }
    // Neither a global nor a Picture method: the nearest name of any kind.
    if (!global) throw HostError("unknown method " + name + DidYouMean(name, CallableNames(host)));
    return {&Choose(host.GlobalMethods(), "", name, count), Owner::Global};
  }
  const ClassInfo* picture = host.FindClass("Picture");
  const ClassInfo* graphics = host.FindClass("graphics");
  if (!named(picture) && named(graphics)) return {&Choose(graphics->methods, "graphics", name, count), Owner::Graphics};
  if (!named(picture) && usesInput) return {&Choose(host.GlobalMethods(), "", name, count), Owner::Global};
  if (!picture) throw HostError("the plug-in extends no Picture");
  return {&Choose(picture->methods, "Picture", name, count), Owner::Picture};
}

Target FindCallTarget(const Host& host, const Options& o) {
  bool usesInput = false;
  for (size_t i = 1; i < o.arguments.size(); ++i) usesInput |= o.arguments[i].find(kInputWord) != std::string::npos;
  // With --fit the width and height are left out of the line.
  return FindCallTarget(host, o.arguments[0], o.arguments.size() - 1 + (o.fit ? 2 : 0), o.on.has_value(), usesInput);
}

Value Convert(Host& host, const Param& p, const std::string& text) {
  if ((p.type == Type::Picture || p.type == Type::MemoryBlock || p.type == Type::String || p.type == Type::Object) &&
      text == "nil") {
    return Value();
  }
  switch (p.type) {
    case Type::Integer: return Value(ParseInteger(text));
    case Type::Double: return Value(ParseDouble(text));
    case Type::Boolean: return Value(ParseBoolean(text));
    case Type::Color: return Value(Color{ParseColor(text)});
    case Type::Picture: return Value(LoadImage(host, text));
    case Type::MemoryBlock: {
      if (text.rfind("zeros:", 0) == 0) return Value(host.NewMemoryBlock(ParseInteger(text.substr(6))));
      const std::string bytes = ReadFile(text);
      return Value(host.NewMemoryBlock(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())));
    }
    case Type::String: return Value(host.NewString(ReadFile(text)));
    default: throw HostError("cannot pass a " + p.typeName + " from the command line: " + text);
  }
}

std::string Describe(const Host& host, const Value& v, Type type) {
  if (v.IsNil()) return "nil";
  switch (type) {
    case Type::Integer: return std::to_string(v.AsInt());
    case Type::Double: return FormatDouble(v.AsDouble());
    case Type::Boolean: return v.AsBool() ? "true" : "false";
    case Type::Color: return FormatColor(v.AsColor());
    case Type::Picture:
      return "picture " + std::to_string(host.Width(v.AsRef())) + "x" + std::to_string(host.Height(v.AsRef()));
    case Type::MemoryBlock:
    case Type::String: return std::to_string(host.Bytes(v.AsRef()).size()) + " bytes";
    default: return host.ClassOf(v.AsRef());
  }
}

std::string NilReason(Host& host, const Execution& e) {
  const Declaration& d = e.target.method->declaration;
  constexpr int64_t kSide = 32767, kArea = int64_t{1} << 27;
  const std::string limits = " (the host makes pictures of at most 32767 pixels a side and 2^27 = 134217728 in all)";
  std::string reason;
  auto integer = [&](size_t i) { return e.arguments[i].AsInt(); };
  if (d.name == "ScaleQVT" && e.arguments.size() == 3) {
    const int64_t w = integer(0), h = integer(1);
    if (w < 1 || h < 1 || w > kSide || h > kSide) {
      reason = "the width and height must be 1..32767, not " + std::to_string(w) + " and " + std::to_string(h);
    } else if (w * h > kArea) {
      reason = "a " + std::to_string(w) + "x" + std::to_string(h) + " picture is larger than the host makes" + limits;
    }
  } else if (d.name == "RotateQVT" && e.arguments.size() == 2 && e.picture) {
    const double angle = e.arguments[0].AsDouble();
    if (!std::isfinite(angle)) {
      reason = "the angle is not a number";
    } else if (std::fmod(angle, 90.0) != 0) {
      // The rotation turns by whole quarters first, then shears three times
      // by the rest r: rows by tan(r/2), columns by sin(r), rows again.
      double a = std::fmod(angle, 360.0);
      if (a < 0) a += 360.0;
      const int turns = (a > 90.0) + (a > 180.0) + (a > 270.0);
      const double r = (a - 90.0 * turns) * M_PI / 180, t = std::tan(r / 2), sn = std::sin(r), cs = std::cos(r);
      const double w = turns % 2 ? host.Height(e.picture) : host.Width(e.picture);
      const double h = turns % 2 ? host.Width(e.picture) : host.Height(e.picture);
      const double w1 = w + std::trunc(t * h), h2 = std::trunc(cs * h + sn * w) + 1, w3 = std::trunc(cs * w + sn * h) + 1;
      auto fits = [&](double x, double y) { return x <= kSide && y <= kSide && x * y <= static_cast<double>(kArea); };
      if (!fits(w1, h) || !fits(w1, h2) || !fits(w3, h2)) {
        reason = "its sheared passes would be " + std::to_string(int64_t(w1)) + "x" + std::to_string(int64_t(h)) +
                 ", " + std::to_string(int64_t(w1)) + "x" + std::to_string(int64_t(h2)) + " and " +
                 std::to_string(int64_t(w3)) + "x" + std::to_string(int64_t(h2)) + " pixels" + limits;
      }
    }
  }
  std::string message = d.name + " gave nil";
  if (e.picture)
    message +=
        " on a " + std::to_string(host.Width(e.picture)) + "x" + std::to_string(host.Height(e.picture)) + " picture";
  if (!reason.empty()) return message + ": " + reason;
  for (const ReferenceEntry* entry : FindEntries(d.name)) {
    if (entry->declaration != d.text) continue;
    const std::string cases = FailureSentences(*entry);
    if (!cases.empty()) return message + ". Its reference: " + cases;
  }
  return message;
}

void Execute(Host& host, const Options& o, Execution& e) {
  if (o.command == "call") {
    ExecuteCall(host, o, e);
  } else if (o.command == "run") {
    ExecuteRun(host, o, e);
  } else {
    throw HostError("unknown command " + o.command);
  }
}

void Deliver(Host& host, const Options& o, const Execution& e, std::ostream& out, std::vector<Written>* written) {
  if (e.cls) {
    DeliverRun(host, o, e, out, written);
  } else {
    DeliverCall(host, o, e, out, written);
  }
}

void Perform(Host& host, const Options& o, std::ostream& out, std::vector<Written>* written) {
  Execution e;
  try {
    Execute(host, o, e);
  } catch (...) {
    PrintSteps(host, e, out);  // the calls of a run made before the failure
    throw;
  }
  Deliver(host, o, e, out, written);
}

}  // namespace ph
