// The dynamic symbol table of the built library, as `nm -D` reads it from the
// file: what it exports and where each of its references is resolved. The
// host finds the plug-in by REALPluginMain alone, so nothing else may be
// exported, and the library may rely only on the C and C++ runtime, the
// maths library, GDK and GDK-PixBuf being present.
#include <dlfcn.h>

#include <cstdio>
#include <set>

#include "tests/support/host_fixture.h"

namespace {

struct Symbol {
  char kind;  // nm's letter: T global function, U undefined, w weak undefined, ...
  std::string name, version;
};

std::vector<Symbol> DynamicSymbols(const char* which) {
  std::vector<Symbol> symbols;
  FILE* pipe = popen(("nm -D " + std::string(which) + " '" + PluginPath() + "'").c_str(), "r");
  if (!pipe) return symbols;
  char line[1024];
  while (std::fgets(line, sizeof line, pipe)) {
    char kind, name[1000];
    // "ADDRESS KIND NAME" for definitions, "KIND NAME" for references.
    if (std::sscanf(line, "%*x %c %999s", &kind, name) != 2 && std::sscanf(line, " %c %999s", &kind, name) != 2) continue;
    const std::string text = name;
    const size_t at = text.find('@');
    symbols.push_back({kind, text.substr(0, at), at == std::string::npos ? "" : text.substr(text.find_last_of('@') + 1)});
  }
  pclose(pipe);
  return symbols;
}

// The libraries the plug-in may take `symbol` from, by file name prefix; in a
// sanitizer build also the sanitizer runtimes. From libgcc_s only the
// unwinder that C++ exceptions use belongs to the C++ runtime; its other
// helpers (such as the 64-bit divisions of 32-bit x86) are linked in.
bool Allowed(const std::string& file, const std::string& symbol) {
  const std::string soname = file.substr(file.find_last_of('/') + 1);
  if (soname.rfind("libgcc_s.so.", 0) == 0) return symbol.rfind("_Unwind_", 0) == 0;
  // The C runtime may hand out the kernel's vDSO for a call such as time().
  for (const char* prefix : {"libc.so.", "linux-vdso.so.", "linux-gate.so.", "libm.so.", "libstdc++.so.", "ld-linux",
                             "libgdk-x11-2.0.so.", "libgdk_pixbuf-2.0.so."
#if defined(__SANITIZE_ADDRESS__)
                             , "libasan.so.", "libubsan.so."
#endif
       })
    if (soname.rfind(prefix, 0) == 0) return true;
  return false;
}

TEST(Symbols, OnlyTheTwoEntryPointsAreExported) {
  std::set<std::string> exported;
  for (const Symbol& s : DynamicSymbols("--defined-only")) {
    exported.insert(s.name);
    EXPECT_EQ(s.kind, 'T') << s.name << " must be a global (not weak or unique) function";
  }
  EXPECT_EQ(exported, (std::set<std::string>{"REALPluginMain", "SelectGraphics"}));
}

// Each reference is looked up as the loader binds it (in the library's own
// dependency tree, in the version it names), and the file that provides it
// must be one of the allowed libraries.
TEST(Symbols, EveryReferenceIsResolvedByAnAllowedLibrary) {
  void* library = dlopen(PluginPath(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const std::set<std::string> optional = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__",
                                          "__cxa_finalize"};
  size_t references = 0;
  for (const Symbol& s : DynamicSymbols("--undefined-only")) {
    if (s.kind == 'w' && optional.count(s.name)) continue;
    ++references;
    void* address = s.version.empty() ? dlsym(library, s.name.c_str()) : dlvsym(library, s.name.c_str(), s.version.c_str());
    Dl_info info{};
    ASSERT_TRUE(address && dladdr(address, &info) && info.dli_fname) << s.name << "@" << s.version << " is not resolved";
    EXPECT_TRUE(Allowed(info.dli_fname, s.name)) << s.name << "@" << s.version << " is taken from " << info.dli_fname;
  }
  EXPECT_GT(references, 0u);
  dlclose(library);
}

}  // namespace
