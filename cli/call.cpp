#include "cli/call.h"

#include <strings.h>

#include <chrono>
#include <ostream>

namespace ph {

namespace {

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
  if (!named) throw HostError("unknown method " + name + (owner.empty() ? "" : " of " + owner));
  throw HostError(name + " takes no " + std::to_string(count) + " argument(s)");
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

void ExecuteCall(Host& host, const Options& o, Execution& e) {
  if (o.arguments.empty()) throw HostError("usage: picturehost call [--on IMAGE] NAME [ARG ...] [--out FILE]");
  const std::string& name = o.arguments[0];
  e.texts.assign(o.arguments.begin() + 1, o.arguments.end());
  e.target = FindCallTarget(host, o);
  e.invoked.push_back({OwnerName(e.target.owner), e.target.method, false});
  for (std::string& t : e.texts) t = WithInput(t, o.on);
  Ref receiver;
  if (e.target.owner != Owner::Global) {
    e.picture = host.LoadPicture(*o.on);
    if (o.mask) host.SetMask(e.picture, host.LoadPicture(*o.mask));
    receiver = e.target.owner == Owner::Graphics ? host.GraphicsOf(e.picture) : e.picture;
  }
  const Declaration& d = e.target.method->declaration;
  std::vector<Value> byref;
  std::vector<Value> args = ConvertAll(host, d, e.texts, byref);
  std::vector<Value> inputs = args;  // keeps the memory blocks passed by value
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

void SavePicture(Host& host, const Ref& picture, const std::string& path, std::vector<Written>* written) {
  std::string error;
  if (!host.SavePicture(picture, path, &error)) throw HostError(error);
  if (written) written->push_back({path, picture, {}});
}

void SaveBytes(Host& host, const Ref& object, const std::string& path, std::vector<Written>* written) {
  std::vector<uint8_t> bytes = host.Bytes(object);
  WriteFile(path, bytes);
  if (written) written->push_back({path, Ref(), std::move(bytes)});
}

void PrintSteps(const Host& host, const Execution& e, std::ostream& out) {
  for (const Execution::Step& s : e.steps) {
    const Type type = s.method->declaration.result;
    if (type != Type::None) out << s.call << " = " << Describe(host, s.value, type) << "\n";
  }
}

void PrintProperties(Host& host, const Ref& instance, std::ostream& out) {
  for (const auto& [name, value] : NumberProperties(host, instance)) out << name << "=" << value << "\n";
}

// Memory blocks are saved next to --out, byref integers printed; a graphics
// method's picture is saved as --out; then the result is printed or saved.
void DeliverCall(Host& host, const Options& o, const Execution& e, std::ostream& out, std::vector<Written>* written) {
  const Declaration& d = e.target.method->declaration;
  for (size_t i = 0; i < e.arguments.size(); ++i) {
    const Param& p = d.params[i];
    const Value& now = e.arguments[i];
    if (p.type == Type::MemoryBlock && o.out && !now.IsNil())
      SaveBytes(host, now.AsRef(), *o.out + "." + p.name, written);
    if (p.byref && p.type == Type::Integer) out << p.name << "=" << now.AsInt() << "\n";
  }
  if (e.target.owner == Owner::Graphics && o.out) SavePicture(host, e.picture, *o.out, written);
  if (d.result == Type::None) return;
  if (e.result.IsNil()) throw NilResult("nil");
  const bool file = d.result == Type::Picture || d.result == Type::MemoryBlock || d.result == Type::String;
  if (file && o.out) {
    if (d.result == Type::Picture) {
      SavePicture(host, e.result.AsRef(), *o.out, written);
    } else {
      SaveBytes(host, e.result.AsRef(), *o.out, written);
    }
  } else if (d.result == Type::Object) {
    out << host.ClassOf(e.result.AsRef()) << "\n";
    PrintProperties(host, e.result.AsRef(), out);
  } else {
    out << Describe(host, e.result, d.result) << "\n";
  }
}

void DeliverRun(Host& host, const Options& o, const Execution& e, std::ostream& out, std::vector<Written>* written) {
  PrintSteps(host, e, out);
  PrintProperties(host, e.instance, out);
  if (!o.out) return;
  Value destination =
      HasProperty(*e.cls, "DestinationPicture") ? host.GetProperty(e.instance, "DestinationPicture") : Value();
  if (destination.IsNil()) throw NilResult("DestinationPicture is nil");
  SavePicture(host, destination.AsRef(), *o.out, written);
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
  if (!onPicture) return {&Choose(host.GlobalMethods(), "", name, count), Owner::Global};
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
  return FindCallTarget(host, o.arguments[0], o.arguments.size() - 1, o.on.has_value(), usesInput);
}

Value Convert(Host& host, const Param& p, const std::string& text) {
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
    case Type::Picture: return Value(host.LoadPicture(text));
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
