// The dynamic symbol table of the built library, read from the file: what it
// exports, what it needs and from where, and its ELF class. The host finds
// the plug-in by REALPluginMain alone, so nothing else may be exported, and
// the library may rely only on the C and C++ runtime, the maths library, GDK
// and GDK-PixBuf being present.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "tests/support/host_fixture.h"

namespace {

using Ehdr = ElfW(Ehdr);
using Shdr = ElfW(Shdr);
using Sym = ElfW(Sym);
using Dyn = ElfW(Dyn);

struct Symbol {
  std::string name;
  bool defined = false;
  unsigned binding = 0;
  unsigned type = 0;
  unsigned visibility = 0;
  std::string version;      // the version name, empty when unversioned
  std::string versionFile;  // for a reference: the library the version is required from
};

// The dynamic section of an ELF file of this process's own class.
struct ElfFile {
  std::vector<uint8_t> bytes;
  std::vector<Symbol> symbols;
  std::vector<std::string> needed;
  std::unordered_set<std::string> definitions;  // NAME and NAME@VERSION of every exported definition

  bool Load(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    bytes.resize(in ? static_cast<size_t>(in.tellg()) : 0);
    in.seekg(0);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!in) bytes.clear();
    if (bytes.size() < sizeof(Ehdr) || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0) {
      *error = path + " is not an ELF file";
      return false;
    }
    if (bytes[EI_CLASS] != (sizeof(void*) == 4 ? ELFCLASS32 : ELFCLASS64)) {
      *error = path + " has another ELF class than this program";
      return false;
    }
    const Ehdr& h = *reinterpret_cast<const Ehdr*>(bytes.data());
    if (h.e_shoff == 0 || h.e_shoff + size_t{h.e_shnum} * sizeof(Shdr) > bytes.size()) {
      *error = path + " has no section headers";
      return false;
    }
    const Shdr* sections = reinterpret_cast<const Shdr*>(bytes.data() + h.e_shoff);
    auto section = [&](uint32_t type) -> const Shdr* {
      for (size_t i = 0; i < h.e_shnum; ++i) {
        if (sections[i].sh_type == type) return &sections[i];
      }
      return nullptr;
    };
    auto text = [&](const Shdr& strings, size_t offset) {
      return std::string(reinterpret_cast<const char*>(bytes.data() + strings.sh_offset + offset));
    };

    const Shdr* dynsym = section(SHT_DYNSYM);
    if (!dynsym) {
      *error = path + " has no dynamic symbol table";
      return false;
    }
    const Shdr& strings = sections[dynsym->sh_link];

    // Version indices: defined versions by index, required versions by
    // index with the file they come from.
    std::map<unsigned, std::string> versionName, versionFile;
    if (const Shdr* verdef = section(SHT_GNU_verdef)) {
      const Shdr& vs = sections[verdef->sh_link];
      size_t at = verdef->sh_offset;
      for (size_t i = 0; i < verdef->sh_info; ++i) {
        const auto& d = *reinterpret_cast<const ElfW(Verdef)*>(bytes.data() + at);
        const auto& aux = *reinterpret_cast<const ElfW(Verdaux)*>(bytes.data() + at + d.vd_aux);
        versionName[d.vd_ndx] = text(vs, aux.vda_name);
        if (d.vd_next == 0) break;
        at += d.vd_next;
      }
    }
    if (const Shdr* verneed = section(SHT_GNU_verneed)) {
      const Shdr& vs = sections[verneed->sh_link];
      size_t at = verneed->sh_offset;
      for (size_t i = 0; i < verneed->sh_info; ++i) {
        const auto& n = *reinterpret_cast<const ElfW(Verneed)*>(bytes.data() + at);
        size_t aux = at + n.vn_aux;
        for (size_t j = 0; j < n.vn_cnt; ++j) {
          const auto& a = *reinterpret_cast<const ElfW(Vernaux)*>(bytes.data() + aux);
          versionName[a.vna_other] = text(vs, a.vna_name);
          versionFile[a.vna_other] = text(vs, n.vn_file);
          if (a.vna_next == 0) break;
          aux += a.vna_next;
        }
        if (n.vn_next == 0) break;
        at += n.vn_next;
      }
    }
    const Shdr* versym = section(SHT_GNU_versym);

    const size_t count = dynsym->sh_size / sizeof(Sym);
    for (size_t i = 1; i < count; ++i) {
      const Sym& s = reinterpret_cast<const Sym*>(bytes.data() + dynsym->sh_offset)[i];
      if (ELF64_ST_TYPE(s.st_info) == STT_SECTION) continue;
      Symbol symbol;
      symbol.name = text(strings, s.st_name);
      symbol.defined = s.st_shndx != SHN_UNDEF;
      symbol.binding = ELF64_ST_BIND(s.st_info);
      symbol.type = ELF64_ST_TYPE(s.st_info);
      symbol.visibility = ELF64_ST_VISIBILITY(s.st_other);
      if (versym) {
        const unsigned index = reinterpret_cast<const ElfW(Half)*>(bytes.data() + versym->sh_offset)[i] & 0x7FFF;
        if (index > 1 && versionName.count(index)) symbol.version = versionName[index];
        if (!symbol.defined && versionFile.count(index)) symbol.versionFile = versionFile[index];
      }
      if (symbol.defined && symbol.binding != STB_LOCAL) {
        definitions.insert(symbol.name);
        if (!symbol.version.empty()) definitions.insert(symbol.name + "@" + symbol.version);
      }
      symbols.push_back(symbol);
    }

    if (const Shdr* dynamic = section(SHT_DYNAMIC)) {
      const Shdr& ds = sections[dynamic->sh_link];
      const size_t entries = dynamic->sh_size / sizeof(Dyn);
      for (size_t i = 0; i < entries; ++i) {
        const Dyn& d = reinterpret_cast<const Dyn*>(bytes.data() + dynamic->sh_offset)[i];
        if (d.d_tag == DT_NULL) break;
        if (d.d_tag == DT_NEEDED) needed.push_back(text(ds, d.d_un.d_val));
      }
    }
    return true;
  }

  // Whether the file defines `name` (in `version`, when one is given).
  bool Defines(const std::string& name, const std::string& version) const {
    return definitions.count(version.empty() ? name : name + "@" + version) > 0;
  }
};

std::string BaseName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

// The file each loaded shared object was opened from, by its base name.
std::map<std::string, std::string> LoadedObjects() {
  std::map<std::string, std::string> files;
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* data) {
        auto& map = *static_cast<std::map<std::string, std::string>*>(data);
        if (info->dlpi_name && *info->dlpi_name) map.emplace(BaseName(info->dlpi_name), info->dlpi_name);
        return 0;
      },
      &files);
  return files;
}

// The libraries the plug-in may take `symbol` from, by soname prefix: the C
// runtime (with the dynamic loader), the C++ runtime, the maths library,
// GDK and GDK-PixBuf; in a sanitizer build also the sanitizer runtimes that
// the instrumented code calls. From libgcc_s only the unwinder that C++
// exceptions use belongs to the C++ runtime; its other helpers (such as the
// 64-bit divisions of 32-bit x86) are linked into the library instead.
bool Allowed(const std::string& soname, const std::string& symbol) {
  if (soname.rfind("libgcc_s.so.", 0) == 0) return symbol.rfind("_Unwind_", 0) == 0;
  std::vector<std::string> allowed = {"libc.so.",          "libm.so.",       "libstdc++.so.", "ld-linux.so.",
                                      "ld-linux-x86-64.so.", "libgdk-x11-2.0.so.", "libgdk_pixbuf-2.0.so."};
#if defined(__SANITIZE_ADDRESS__)
  allowed.push_back("libasan.so.");
  allowed.push_back("libubsan.so.");
#endif
  for (const std::string& prefix : allowed) {
    if (soname.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

class Symbols : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(plugin_.Load(PluginPath(), &error)) << error;
  }
  ElfFile plugin_;
};

TEST_F(Symbols, TheLibraryIsBuiltForItsPlatform) {
  const Ehdr& h = *reinterpret_cast<const Ehdr*>(plugin_.bytes.data());
  EXPECT_EQ(h.e_type, ET_DYN);
#if defined(__i386__)
  EXPECT_EQ(plugin_.bytes[EI_CLASS], ELFCLASS32);
  EXPECT_EQ(h.e_machine, EM_386);
#elif defined(__x86_64__)
  EXPECT_EQ(plugin_.bytes[EI_CLASS], ELFCLASS64);
  EXPECT_EQ(h.e_machine, EM_X86_64);
#else
  ADD_FAILURE() << "the library is built for x86 only";
#endif
  EXPECT_EQ(plugin_.bytes[EI_DATA], ELFDATA2LSB);
}

TEST_F(Symbols, OnlyTheTwoEntryPointsAreExported) {
  std::set<std::string> exported;
  for (const Symbol& s : plugin_.symbols) {
    if (!s.defined || s.binding == STB_LOCAL) continue;
    exported.insert(s.name);
    SCOPED_TRACE(s.name);
    EXPECT_EQ(s.binding, STB_GLOBAL) << "weak or unique definitions are exported too";
    EXPECT_EQ(s.type, STT_FUNC);
    EXPECT_EQ(s.visibility, STV_DEFAULT);
  }
  EXPECT_EQ(exported, (std::set<std::string>{"REALPluginMain", "SelectGraphics"}));

  // The host finds the entry point by its unmangled name.
  void* library = dlopen(PluginPath(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_NE(dlsym(library, "REALPluginMain"), nullptr);
  EXPECT_EQ(dlsym(library, "PluginEntry"), nullptr);
  dlclose(library);
}

TEST_F(Symbols, EveryReferenceIsResolvedByAnAllowedLibrary) {
  // Load the plug-in, so that every library it needs is mapped, and find
  // their files.
  void* library = dlopen(PluginPath(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const std::map<std::string, std::string> loaded = LoadedObjects();
  dlclose(library);

  std::map<std::string, ElfFile> needed;
  for (const std::string& soname : plugin_.needed) {
    auto file = loaded.find(soname);
    ASSERT_NE(file, loaded.end()) << soname << " is needed but was not loaded";
    std::string error;
    ASSERT_TRUE(needed[soname].Load(file->second, &error)) << error;
  }

  // Weak references that the start-up code makes and that may stay unresolved.
  const std::set<std::string> optional = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable",
                                          "__gmon_start__", "__cxa_finalize"};
  size_t references = 0;
  for (const Symbol& s : plugin_.symbols) {
    if (s.defined) continue;
    if (s.binding == STB_WEAK && optional.count(s.name)) continue;
    ++references;
    SCOPED_TRACE(s.name + (s.version.empty() ? "" : "@" + s.version));
    if (!s.versionFile.empty()) {
      // A versioned reference names the library it is bound to.
      EXPECT_TRUE(Allowed(s.versionFile, s.name)) << "taken from " << s.versionFile;
      auto lib = needed.find(s.versionFile);
      ASSERT_NE(lib, needed.end()) << s.versionFile << " is not among the needed libraries";
      EXPECT_TRUE(lib->second.Defines(s.name, s.version)) << s.versionFile << " does not define it";
      continue;
    }
    // Otherwise the first needed library that defines it provides it.
    std::optional<std::string> provider;
    for (const std::string& soname : plugin_.needed) {
      if (needed[soname].Defines(s.name, "")) {
        provider = soname;
        break;
      }
    }
    ASSERT_TRUE(provider.has_value()) << "no needed library defines it";
    EXPECT_TRUE(Allowed(*provider, s.name)) << "taken from " << *provider;
  }
  EXPECT_GT(references, 0u);
}

}  // namespace
