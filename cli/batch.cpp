// Batch mode of `picturehost call` and `picturehost run`: the same command
// over several input pictures, given as several --on options or as glob(3)
// patterns, with results named by an output pattern (%n = the input's base
// name without its extension). A file that cannot be processed is reported at
// the end and the others still are; no input file is ever overwritten.
#include <glob.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>

#include "cli/batch.h"
#include "cli/call.h"
#include "cli/cli.h"

namespace ph {

namespace {

namespace fs = std::filesystem;

// Expands the --on values into file names, in the order given; each pattern's
// matches are sorted. Patterns that match nothing are returned in `unmatched`.
std::vector<std::string> ExpandInputs(const std::vector<std::string>& values, std::vector<std::string>& unmatched) {
  std::vector<std::string> files;
  for (const std::string& v : values) {
    if (!IsPattern(v)) {
      files.push_back(v);
      continue;
    }
    glob_t g{};
    const int rc = glob(v.c_str(), GLOB_MARK, nullptr, &g);
    size_t found = 0;
    if (rc == 0) {
      for (size_t i = 0; i < g.gl_pathc; ++i) {
        const std::string path = g.gl_pathv[i];
        if (!path.empty() && path.back() == '/') continue;  // directories are no pictures
        files.push_back(path);
        ++found;
      }
    }
    globfree(&g);
    if (found == 0) unmatched.push_back(v);
  }
  return files;
}

// The output name of one input: %n is the input's base name without its
// extension, %% a percent sign. Any other % sequence is refused.
std::string ExpandOutput(const std::string& pattern, const std::string& input) {
  const std::string stem = fs::path(input).stem().string();
  std::string out;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') {
      out += pattern[i];
      continue;
    }
    if (i + 1 < pattern.size() && pattern[i + 1] == 'n') {
      out += stem;
    } else if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
      out += '%';
    } else {
      throw HostError("--out: only %n and %% may follow a % (in " + pattern + ")");
    }
    ++i;
  }
  return out;
}

// A name that identifies a file whether or not it exists yet.
std::string Identity(const std::string& path) {
  std::error_code ec;
  const fs::path p = fs::weakly_canonical(fs::absolute(path, ec), ec);
  return ec ? path : p.string();
}

bool SameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  if (fs::equivalent(a, b, ec)) return true;
  return Identity(a) == Identity(b);
}

std::string Clock(double seconds) {
  const long s = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
  char text[32];
  if (s >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
  }
  return text;
}

// The progress bar on standard error: files done of all, the rate and the
// time left, redrawn in place.
class Progress {
 public:
  Progress(bool shown, size_t total) : shown_(shown), total_(total), start_(std::chrono::steady_clock::now()) {}

  void Show(size_t done) {
    if (!shown_) return;
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const double rate = elapsed > 0 ? static_cast<double>(done) / elapsed : 0;
    constexpr int kBar = 24;
    const int filled = total_ ? static_cast<int>(kBar * done / total_) : kBar;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(kBar, '.');
    char text[160];
    if (done == 0 || rate <= 0) {
      std::snprintf(text, sizeof text, "\r[%s] %zu/%zu", bar.c_str(), done, total_);
    } else {
      std::snprintf(text, sizeof text, "\r[%s] %zu/%zu  %.1f files/s  %s left", bar.c_str(), done, total_, rate,
                    Clock(static_cast<double>(total_ - done) / rate).c_str());
    }
    std::string line = text;
    if (line.size() < width_) line.append(width_ - line.size(), ' ');  // cover a longer previous line
    width_ = std::max(width_, std::string(text).size());
    std::cerr << line << std::flush;
  }

  // Clears the bar so that a line of output can be printed in its place.
  void Clear() {
    if (!shown_ || width_ == 0) return;
    std::cerr << "\r" << std::string(width_, ' ') << "\r" << std::flush;
  }

  void Finish(size_t done) {
    if (!shown_) return;
    Show(done);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::cerr << "  done in " << Clock(elapsed) << "\n" << std::flush;
  }

 private:
  bool shown_;
  size_t total_;
  std::chrono::steady_clock::time_point start_;
  size_t width_ = 0;
};

}  // namespace

int Batch(Host& host, const Options& o) {
  if (o.command == "call" && o.arguments.empty()) {
    throw HostError("usage: picturehost call --on FILE|PATTERN ... NAME [ARG ...] [--out PATTERN]");
  }
  if (o.command == "run" && o.arguments.empty()) {
    throw HostError("usage: picturehost run CLASS --on FILE|PATTERN ... [--set P=V ...] [CALL ...] [--out PATTERN]");
  }
  if (o.out && o.out->find("%n") == std::string::npos) {
    throw HostError("--out needs %n (the input's base name) when several pictures are processed: " + *o.out);
  }
  if (o.out) ExpandOutput(*o.out, "check");  // refuses a bad pattern before any work

  // The method or class is checked once, before the first file.
  std::vector<std::string> sidecars;  // memory-block parameters saved as OUT.NAME
  if (o.command == "call") {
    for (const Param& p : FindCallTarget(host, o).method->declaration.params) {
      if (p.type == Type::MemoryBlock) sidecars.push_back(p.name);
    }
  } else {
    const ClassInfo* c = host.FindClass(o.arguments[0]);
    if (!c || c->extension) throw HostError("unknown class " + o.arguments[0]);
  }

  std::vector<std::string> unmatched;
  const std::vector<std::string> files = ExpandInputs(o.inputs, unmatched);
  std::vector<std::string> failures;
  for (const std::string& u : unmatched) failures.push_back(u + ": no file matches this pattern");
  std::vector<std::string> nils;
  std::map<std::string, std::string> written;  // output identity -> the input that made it

  Progress progress(o.progress || isatty(STDERR_FILENO), files.size());
  progress.Show(0);
  for (size_t i = 0; i < files.size(); ++i) {
    const std::string& file = files[i];
    Options one = o;
    one.on = file;
    one.inputs = {file};
    std::ostringstream output;
    std::vector<std::string> outputs;
    try {
      if (o.out) {
        one.out = ExpandOutput(*o.out, file);
        outputs.push_back(*one.out);
        for (const std::string& s : sidecars) outputs.push_back(*one.out + "." + s);
        for (const std::string& out : outputs) {
          for (const std::string& input : files) {
            if (SameFile(out, input)) throw HostError("refusing to overwrite the input file " + input + " with " + out);
          }
          const auto earlier = written.find(Identity(out));
          if (earlier != written.end()) {
            throw HostError("refusing to overwrite " + out + ", the result of " + earlier->second);
          }
        }
      }
      Perform(host, one, output);
      for (const std::string& out : outputs) written[Identity(out)] = file;
    } catch (const NilResult& e) {
      nils.push_back(file + ": " + e.what());
    } catch (const std::exception& e) {
      failures.push_back(file + ": " + e.what());
    }
    // Each result line is printed with the input it belongs to.
    std::istringstream lines(output.str());
    std::string line;
    bool cleared = false;
    while (std::getline(lines, line)) {
      if (!cleared) progress.Clear();
      cleared = true;
      std::cout << file << ": " << line << "\n";
    }
    std::cout << std::flush;
    progress.Show(i + 1);
  }
  progress.Finish(files.size());

  const size_t processed = files.size() - (failures.size() - unmatched.size()) - nils.size();
  if (!nils.empty()) {
    std::cerr << "picturehost: " << nils.size() << " file(s) gave nil:\n";
    for (const std::string& n : nils) std::cerr << "  " << n << "\n";
  }
  if (!failures.empty()) {
    std::cerr << "picturehost: " << failures.size() << " input(s) could not be processed:\n";
    for (const std::string& f : failures) std::cerr << "  " << f << "\n";
  }
  std::cerr << "picturehost: " << processed << " of " << files.size() << " file(s) processed\n";
  if (!failures.empty() || files.empty()) return kExitBadInput;
  return nils.empty() ? kExitOk : kExitNil;
}

}  // namespace ph
