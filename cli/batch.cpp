// Batch mode of `picturehost call` and `picturehost run`: the same command
// over several input pictures, given as several --on options or as glob(3)
// patterns, with results named by an output pattern (%n = the input's base
// name without its extension). A file that cannot be processed is reported at
// the end and the others still are; no input file is ever overwritten.
#include <glob.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "cli/batch.h"
#include "cli/call.h"
#include "cli/cli.h"
#include "cli/output.h"

extern char** environ;

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

// The words of a single-file command line for one input of the batch: what
// a worker process runs.
std::vector<std::string> WorkerWords(const Options& o, const std::string& file, const std::optional<std::string>& out) {
  std::vector<std::string> w = {o.command};
  w.insert(w.end(), o.arguments.begin(), o.arguments.end());
  w.insert(w.end(), {"--on", file, "--force", "--host-version", FormatDouble(o.version)});
  if (out) w.insert(w.end(), {"--out", *out});
  for (const auto& [name, value] : {std::pair{"--mask", o.mask}, {"--from", o.from}, {"--plugin", o.plugin}}) {
    if (value) w.insert(w.end(), {name, *value});
  }
  for (const std::string& s : o.sets) w.insert(w.end(), {"--set", s});
  for (const std::string& g : o.gets) w.insert(w.end(), {"--get", g});
  for (const std::string& n : o.without) w.insert(w.end(), {"--without", n});
  if (o.json) w.push_back("--json");
  if (o.quality > 0) w.insert(w.end(), {"--quality", std::to_string(o.quality)});
  if (o.fit) w.insert(w.end(), {"--fit", std::to_string(o.fit->first) + "x" + std::to_string(o.fit->second)});
  return w;
}

struct Outcome {
  int status = 0;
  std::string out, err;
};

std::string ReadBack(FILE* f) {
  std::string text;
  std::rewind(f);
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) text.append(buffer, n);
  std::fclose(f);
  return text;
}

// Runs the files in worker processes of this very program, `jobs` at a time,
// all on the display this process opened; `done(i, outcome)` is called as
// each ends.
template <typename Done>
void RunWorkers(const Options& o, const std::vector<std::string>& files,
                const std::vector<std::optional<std::string>>& outs, const std::vector<bool>& todo, Done done) {
  struct Worker {
    size_t index;
    FILE* out;
    FILE* err;
  };
  std::map<pid_t, Worker> running;
  size_t next = 0;
  while (true) {
    while (running.size() < static_cast<size_t>(o.jobs) && next < files.size()) {
      const size_t i = next++;
      if (!todo[i]) continue;
      std::vector<std::string> words = WorkerWords(o, files[i], outs[i]);
      std::vector<char*> argv = {const_cast<char*>("picturehost")};
      for (std::string& w : words) argv.push_back(w.data());
      argv.push_back(nullptr);
      Worker w{i, std::tmpfile(), std::tmpfile()};
      if (!w.out || !w.err) throw HostError("cannot make a temporary file for a worker");
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_adddup2(&actions, fileno(w.out), STDOUT_FILENO);
      posix_spawn_file_actions_adddup2(&actions, fileno(w.err), STDERR_FILENO);
      pid_t pid = 0;
      const int rc = posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
      posix_spawn_file_actions_destroy(&actions);
      if (rc != 0) throw HostError(std::string("cannot start a worker: ") + std::strerror(rc));
      AddChild(pid);
      running[pid] = w;
    }
    if (running.empty()) return;
    int status = 0;
    const pid_t pid = waitpid(-1, &status, 0);
    if (pid < 0 && errno == EINTR) continue;
    const auto it = running.find(pid);
    if (it == running.end()) continue;
    RemoveChild(pid);
    Outcome outcome;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    outcome.out = ReadBack(it->second.out);
    outcome.err = ReadBack(it->second.err);
    const size_t index = it->second.index;
    running.erase(it);
    done(index, outcome);
  }
}

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
  bool picture = o.command == "run";
  if (o.command == "call") {
    const Target target = FindCallTarget(host, o);
    for (const Param& p : target.method->declaration.params) {
      if (p.type == Type::MemoryBlock) sidecars.push_back(p.name);
    }
    picture = target.method->declaration.result == Type::Picture || target.owner == Owner::Graphics;
  } else {
    const ClassInfo* c = host.FindClass(o.arguments[0]);
    if (!c || c->extension) throw HostError("unknown class " + o.arguments[0]);
  }
  if (o.out && picture && !IsImageName(*o.out)) {
    throw HostError("--out " + *o.out + ": the name must end in " + ImageFormats());
  }

  std::vector<std::string> unmatched;
  const std::vector<std::string> files = ExpandInputs(o.inputs, unmatched);
  std::vector<std::string> failures;
  for (const std::string& u : unmatched) failures.push_back(u + ": no file matches this pattern");
  std::vector<std::string> nils;

  // Every output is named and checked, and its folder made, before any work:
  // an input file or an earlier input's result is never overwritten.
  std::vector<std::optional<std::string>> outs(files.size());
  std::vector<bool> todo(files.size(), true);
  std::map<std::string, std::string> claimed;  // output identity -> the input that makes it
  std::set<std::string> folders;
  size_t skipped = 0, refused = 0;
  for (size_t i = 0; i < files.size() && o.out; ++i) {
    const std::string& file = files[i];
    outs[i] = ExpandOutput(*o.out, file);
    std::vector<std::string> outputs = {*outs[i]};
    for (const std::string& s : sidecars) outputs.push_back(*outs[i] + "." + s);
    try {
      for (const std::string& out : outputs) {
        for (const std::string& input : files) {
          if (SameFile(out, input)) throw HostError("refusing to overwrite the input file " + input + " with " + out);
        }
        const auto earlier = claimed.find(Identity(out));
        if (earlier != claimed.end()) {
          throw HostError("refusing to overwrite " + out + ", the result of " + earlier->second);
        }
      }
    } catch (const HostError& e) {
      failures.push_back(file + ": " + e.what());
      todo[i] = false;
      ++refused;
      continue;
    }
    for (const std::string& out : outputs) claimed[Identity(out)] = file;
    if (o.skipExisting && fs::exists(*outs[i])) {
      todo[i] = false;
      ++skipped;
      continue;
    }
    folders.insert(fs::path(*outs[i]).parent_path().string());
  }
  for (const std::string& folder : folders) {
    std::error_code ec;
    if (!folder.empty() && !fs::create_directories(folder, ec) && ec && !fs::is_directory(folder)) {
      throw HostError("cannot make the output folder " + folder + ": " + ec.message());
    }
  }

  Progress progress(o.progress || isatty(STDERR_FILENO), files.size());
  progress.Show(skipped + refused);
  size_t finished = skipped + refused;
  // Each result line is printed with the input it belongs to (JSON objects
  // name it themselves).
  auto report = [&](const std::string& file, const std::string& output) {
    std::istringstream lines(output);
    std::string line;
    bool cleared = false;
    while (std::getline(lines, line)) {
      if (!cleared) progress.Clear();
      cleared = true;
      std::cout << (o.json ? "" : file + ": ") << line << "\n";
    }
    std::cout << std::flush;
    progress.Show(++finished);
  };
  if (o.jobs <= 1) {
    for (size_t i = 0; i < files.size(); ++i) {
      if (!todo[i]) continue;
      Options one = o;
      one.on = files[i];
      one.inputs = {files[i]};
      one.out = outs[i];
      std::ostringstream output;
      try {
        Perform(host, one, output);
      } catch (const NilResult& e) {
        nils.push_back(files[i] + ": " + e.what());
      } catch (const std::exception& e) {
        failures.push_back(files[i] + ": " + e.what());
      }
      report(files[i], output.str());
    }
  } else {
    std::vector<std::optional<Outcome>> outcomes(files.size());
    size_t printed = 0;
    RunWorkers(o, files, outs, todo, [&](size_t index, const Outcome& outcome) {
      outcomes[index] = outcome;
      // In the order of the inputs, as one process would print them.
      for (; printed < files.size() && (!todo[printed] || outcomes[printed]); ++printed) {
        if (!todo[printed]) continue;
        const Outcome& r = *outcomes[printed];
        std::string err = r.err;
        while (!err.empty() && err.back() == '\n') err.pop_back();
        if (err.rfind("picturehost: ", 0) == 0) err.erase(0, 13);
        if (r.status == kExitNil) {
          nils.push_back(files[printed] + ": " + err);
        } else if (r.status != kExitOk) {
          failures.push_back(files[printed] + ": " + (err.empty() ? "status " + std::to_string(r.status) : err));
        } else if (!err.empty()) {
          progress.Clear();
          std::cerr << r.err;  // warnings
        }
        report(files[printed], r.out);
      }
    });
  }
  progress.Finish(finished);

  const size_t processed = files.size() - (failures.size() - unmatched.size()) - nils.size() - skipped;
  if (!nils.empty()) {
    std::cerr << "picturehost: " << nils.size() << " file(s) gave nil:\n";
    for (const std::string& n : nils) std::cerr << "  " << n << "\n";
  }
  if (!failures.empty()) {
    std::cerr << "picturehost: " << failures.size() << " input(s) could not be processed:\n";
    for (const std::string& f : failures) std::cerr << "  " << f << "\n";
  }
  std::cerr << "picturehost: " << processed << " of " << files.size() << " file(s) processed";
  if (skipped) std::cerr << ", " << skipped << " skipped (their result exists)";
  std::cerr << "\n";
  if (!failures.empty() || files.empty()) return kExitBadInput;
  return nils.empty() ? kExitOk : kExitNil;
}

}  // namespace ph
