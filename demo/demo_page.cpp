// index.html of `picturehost demo`: one section per registered method,
// global method and class, in registration order, with every demo call that
// is chiefly about it: the declaration, the equivalent picturehost command,
// the time spent in the plug-in, and what the call gave (pictures, numbers,
// histograms as bar charts, palettes as swatches, positions marked on the
// picture). The page needs no network and no script to show; a short script
// only marks images that fail to load.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "demo/demo.h"
#include "host/host_state.h"

namespace ph {

namespace {

std::string Escape(const std::string& text) {
  std::string out;
  for (char ch : text) {
    switch (ch) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += ch;
    }
  }
  return out;
}

std::string Hex(uint32_t rgb) {
  char text[8];
  std::snprintf(text, sizeof text, "#%06X", rgb & 0xFFFFFF);
  return text;
}

std::string Number(double v, const char* format = "%.2f") {
  char text[32];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

constexpr const char* kStyle = R"(
body { font-family: "DejaVu Sans", sans-serif; margin: 0 2em 3em; color: #222; background: #fafaf7; font-size: 14px; }
h1 { margin-top: 0.6em; }
h2 { border-bottom: 2px solid #ccc; padding-bottom: 0.2em; margin-top: 2em; }
h3 { margin: 0 0 0.4em; font-size: 15px; }
code { font-family: "DejaVu Sans Mono", monospace; font-size: 13px; }
nav a { margin-right: 1em; }
.entity { background: #fff; border: 1px solid #ddd; border-radius: 6px; padding: 0.8em 1em; margin: 1em 0; }
.entity.unreached { border-color: #c33; }
.members { columns: 2; font-size: 13px; margin: 0.2em 0 0.6em; }
.item { border-top: 1px dashed #ddd; padding-top: 0.6em; margin-top: 0.6em; }
.command { background: #f2f2ee; padding: 0.3em 0.5em; border-radius: 4px; overflow-x: auto; white-space: nowrap; }
.meta { color: #666; font-size: 12px; }
.status-error { color: #b00; font-weight: bold; }
.status-nil { color: #a60; }
.shown { display: flex; flex-wrap: wrap; gap: 1em; align-items: flex-start; }
figure { margin: 0; }
figure img { max-width: 360px; height: auto; border: 1px solid #ccc; background: repeating-conic-gradient(#eee 0 25%, #fff 0 50%) 0 0 / 16px 16px; }
figcaption { font-size: 12px; color: #555; }
table.values { border-collapse: collapse; font-size: 13px; }
table.values th { text-align: left; padding-right: 1em; font-weight: normal; color: #555; }
.marked { position: relative; }
.marked svg { position: absolute; left: 0; top: 0; overflow: visible; }
img.missing { outline: 4px solid red; }
.gallery img { max-width: 100%; border: 1px solid #ccc; }
)";

// What one call gave, as HTML.
void WriteShown(std::ostream& out, const DemoShown& s) {
  switch (s.kind) {
    case DemoShown::Kind::Picture:
      out << "<figure><a href=\"" << Escape(s.file) << "\"><img src=\"" << Escape(s.file) << "\" width=\"" << s.width
          << "\" height=\"" << s.height << "\" alt=\"" << Escape(s.label) << "\"></a><figcaption>" << Escape(s.label)
          << " · " << s.width << " × " << s.height << "</figcaption></figure>\n";
      break;
    case DemoShown::Kind::Text:
      out << "<table class=\"values\"><tr><th>" << Escape(s.label) << "</th><td><code>" << Escape(s.text)
          << "</code></td></tr></table>\n";
      break;
    case DemoShown::Kind::Table:
      out << "<table class=\"values\"><caption>" << Escape(s.label) << "</caption>\n";
      for (const auto& [name, value] : s.rows) {
        out << "<tr><th>" << Escape(name) << "</th><td><code>" << Escape(value) << "</code></td></tr>\n";
      }
      out << "</table>\n";
      break;
    case DemoShown::Kind::Histogram: {
      uint64_t total = 0;
      uint32_t most = 1;
      for (uint32_t v : s.values) {
        total += v;
        most = std::max(most, v);
      }
      constexpr int kHeight = 80;
      out << "<figure><svg class=\"histogram\" data-channel=\"" << Escape(s.label) << "\" data-total=\"" << total
          << "\" width=\"256\" height=\"" << kHeight << "\" viewBox=\"0 0 256 " << kHeight
          << "\" role=\"img\"><rect width=\"256\" height=\"" << kHeight << "\" fill=\"#f6f6f2\"/>";
      for (size_t k = 0; k < s.values.size(); ++k) {
        if (!s.values[k]) continue;
        const double h = std::max(1.0, static_cast<double>(s.values[k]) * (kHeight - 2) / most);
        out << "<rect x=\"" << k << "\" y=\"" << Number(kHeight - h) << "\" width=\"1\" height=\"" << Number(h)
            << "\" fill=\"" << Hex(s.colour) << "\"><title>" << k << ": " << s.values[k] << "</title></rect>";
      }
      out << "</svg><figcaption>" << Escape(s.label) << " histogram, levels 0–255 · " << total
          << " pixels</figcaption></figure>\n";
      break;
    }
    case DemoShown::Kind::Palette: {
      constexpr int kSwatch = 14, kPerRow = 16;
      const int rows = std::max<int>(1, (static_cast<int>(s.values.size()) + kPerRow - 1) / kPerRow);
      out << "<figure><svg class=\"palette\" data-count=\"" << s.values.size() << "\" width=\"" << kPerRow * kSwatch
          << "\" height=\"" << rows * kSwatch << "\" role=\"img\">";
      for (size_t i = 0; i < s.values.size(); ++i) {
        out << "<rect class=\"swatch\" data-index=\"" << i << "\" data-colour=\"" << Hex(s.values[i]) << "\" x=\""
            << (i % kPerRow) * kSwatch << "\" y=\"" << (i / kPerRow) * kSwatch << "\" width=\"" << kSwatch
            << "\" height=\"" << kSwatch << "\" fill=\"" << Hex(s.values[i]) << "\" stroke=\"#fff\"><title>" << i
            << ": " << Hex(s.values[i]) << "</title></rect>";
      }
      out << "</svg><figcaption>palette, " << Escape(s.label) << "</figcaption></figure>\n";
      break;
    }
    case DemoShown::Kind::Markers: {
      out << "<figure><div class=\"marked\" style=\"width:" << s.width << "px;height:" << s.height << "px\"><img src=\""
          << Escape(s.file) << "\" width=\"" << s.width << "\" height=\"" << s.height
          << "\" alt=\"positions\"><svg width=\"" << s.width << "\" height=\"" << s.height << "\" viewBox=\"0 0 "
          << s.width << " " << s.height << "\">";
      for (const DemoShown::Mark& m : s.marks) {
        const double cx = m.x + 0.5, cy = m.y + 0.5;
        out << "<g class=\"mark\" data-name=\"" << Escape(m.name) << "\" data-x=\"" << m.x << "\" data-y=\"" << m.y
            << "\" data-value=\"" << m.value << "\"><title>" << Escape(m.name) << " " << m.value << " at (" << m.x
            << ", " << m.y << ")</title>";
        // Each mark twice: a wide white line under the coloured one, so that
        // it shows on dark and light pixels alike.
        for (const auto& [colour, width] : {std::pair<std::string, int>{"#FFFFFF", 5}, {Hex(m.colour), 2}}) {
          if (m.maximum) {
            out << "<circle cx=\"" << cx << "\" cy=\"" << cy << "\" r=\"8\" fill=\"none\" stroke=\"" << colour
                << "\" stroke-width=\"" << width << "\"/>";
          } else {
            out << "<rect x=\"" << cx - 7 << "\" y=\"" << cy - 7
                << "\" width=\"14\" height=\"14\" fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"" << width
                << "\"/>";
          }
        }
        out << "</g>";
      }
      out << "</svg></div><figcaption>positions: circles the maxima, squares the minima</figcaption>"
          << "<table class=\"values\">";
      for (const DemoShown::Mark& m : s.marks) {
        out << "<tr><th><span style=\"color:" << Hex(m.colour) << "\">" << (m.maximum ? "●" : "■") << "</span> "
            << Escape(m.name) << "</th><td>" << m.value << " at (" << m.x << ", " << m.y << ")</td></tr>";
      }
      out << "</table></figure>\n";
      break;
    }
    case DemoShown::Kind::Bytes:
      out << "<table class=\"values\"><tr><th>" << Escape(s.label) << "</th><td>" << s.size << " bytes, <a href=\""
          << Escape(s.file) << "\">" << Escape(s.file) << "</a><br><code>" << Escape(s.text)
          << "</code></td></tr></table>\n";
      break;
  }
}

void WriteItem(std::ostream& out, const DemoItem& item) {
  const std::string statusClass = item.status == "ok" ? "ok" : item.status == "nil" ? "nil" : "error";
  out << "<div class=\"item\" id=\"" << Escape(item.stem) << "\" data-status=\"" << statusClass << "\">\n";
  out << "<p><b>" << Escape(item.title) << "</b>" << (item.added ? " <i>(call made up by the demo)</i>" : "")
      << "</p>\n";
  if (!item.command.empty()) out << "<p class=\"command\"><code>" << Escape(item.command) << "</code></p>\n";
  out << "<p class=\"meta\"><span class=\"status-" << statusClass << "\">" << Escape(item.status) << "</span> · "
      << Number(item.milliseconds) << " ms in the plug-in";
  if (item.declarations.size() > 1) {
    out << " · calls";
    for (const std::string& d : item.declarations) out << " <code>" << Escape(d) << "</code>";
  }
  if (!item.summary.empty()) out << " · " << Escape(item.summary);
  out << "</p>\n<div class=\"shown\">\n";
  for (const DemoShown& s : item.shown) WriteShown(out, s);
  out << "</div>\n</div>\n";
}

struct Group {
  const char* key;
  const char* heading;
  const char* intro;
};

constexpr Group kGroups[] = {
    {"Picture", "Picture methods", "Methods of the host class <code>Picture</code>, called on the input picture."},
    {"graphics", "graphics methods",
     "Methods of the host class <code>graphics</code>, called on the graphics of the input picture."},
    {"global", "Global methods", "Methods called without a receiver."},
    {"class", "Classes", "Classes of the plug-in: made, given properties, and called."},
};

}  // namespace

void WriteDemoPage(const DemoReport& report, const std::string& path) {
  std::map<std::string, std::vector<const DemoItem*>> bySubject, byCover;
  std::vector<const DemoItem*> loose;
  std::map<std::string, bool> known;
  for (const DemoEntity& e : report.entities) known[e.key] = true;
  for (const DemoItem& item : report.items) {
    if (known.count(item.subject)) {
      bySubject[item.subject].push_back(&item);
    } else {
      loose.push_back(&item);
    }
    for (const std::string& k : item.covers) {
      if (k != item.subject) byCover[k].push_back(&item);
    }
  }
  int pictures = 0, nils = 0, errors = 0;
  double handlers = 0;
  for (const DemoItem& item : report.items) {
    for (const DemoShown& s : item.shown) pictures += s.kind == DemoShown::Kind::Picture;
    nils += item.status == "nil";
    errors += item.status.rfind("error", 0) == 0;
    handlers += item.milliseconds;
  }

  std::ostringstream out;
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      << "<title>Picture plug-in: every method on " << Escape(report.input) << "</title>\n<style>" << kStyle
      << "</style>\n</head>\n<body data-missing-images=\"unchecked\">\n";
  out << "<h1>Picture plug-in: every registered method</h1>\n";
  out << "<p>Input <code>" << Escape(report.input) << "</code>, " << report.width << " × " << report.height
      << " pixels. " << report.items.size() << " calls, " << pictures << " pictures, " << nils << " nil results, "
      << errors << " errors. Time in the plug-in's handlers " << Number(handlers) << " ms; the whole demo took "
      << Number(report.totalSeconds) << " s.</p>\n";
  out << "<figure><img src=\"" << Escape(report.inputFile) << "\" width=\"" << report.width << "\" height=\""
      << report.height << "\" alt=\"input\"><figcaption>the input picture</figcaption></figure>\n";
  out << "<nav>";
  for (const Group& g : kGroups) out << "<a href=\"#group-" << g.key << "\">" << g.heading << "</a>";
  if (!report.gallery.empty()) out << "<a href=\"#gallery\">Gallery</a>";
  out << "</nav>\n";

  int index = 0;
  for (const Group& g : kGroups) {
    out << "<h2 id=\"group-" << g.key << "\">" << g.heading << "</h2>\n<p>" << g.intro << "</p>\n";
    for (const DemoEntity& e : report.entities) {
      if (e.group != g.key) continue;
      const auto own = bySubject.find(e.key);
      const auto other = byCover.find(e.key);
      const size_t results =
          (own == bySubject.end() ? 0 : own->second.size()) + (other == byCover.end() ? 0 : other->second.size());
      out << "<section class=\"entity" << (results ? "" : " unreached") << "\" id=\"e" << ++index << "\" data-key=\""
          << Escape(e.key) << "\" data-results=\"" << results << "\">\n<h3>" << (e.group == "class" ? "class " : "")
          << "<code>" << Escape(e.title) << "</code>" << (e.setter ? " <small>(also assignable)</small>" : "")
          << "</h3>\n";
      if (!e.members.empty()) {
        out << "<ul class=\"members\">";
        for (const std::string& m : e.members) out << "<li><code>" << Escape(m) << "</code></li>";
        out << "</ul>\n";
      }
      if (own != bySubject.end()) {
        for (const DemoItem* item : own->second) WriteItem(out, *item);
      }
      if (other != byCover.end()) {
        out << "<p class=\"meta\">Also used in:";
        for (const DemoItem* item : other->second) {
          out << " <a href=\"#" << Escape(item->stem) << "\">" << Escape(item->title) << "</a>";
        }
        out << "</p>\n";
      }
      if (!results) out << "<p class=\"status-error\">No demo call reached this.</p>\n";
      out << "</section>\n";
    }
  }
  if (!loose.empty()) {
    out << "<h2 id=\"group-other\">Other calls</h2>\n<section class=\"entity\">\n";
    for (const DemoItem* item : loose) WriteItem(out, *item);
    out << "</section>\n";
  }
  if (!report.gallery.empty()) {
    out << "<h2 id=\"gallery\">Gallery</h2>\n<p class=\"gallery\"><a href=\"" << Escape(report.gallery)
        << "\"><img src=\"" << Escape(report.gallery) << "\" width=\"" << report.galleryWidth << "\" height=\""
        << report.galleryHeight << "\" alt=\"contact sheet of every picture result\"></a></p>\n";
  }
  // Marks images that did not load and counts them on the body element, so
  // that a headless browser can report them.
  out << "<script>\nwindow.addEventListener('load', function () {\n"
      << "  var missing = 0;\n"
      << "  document.querySelectorAll('img').forEach(function (img) {\n"
      << "    if (!img.complete || img.naturalWidth === 0) { missing++; img.classList.add('missing'); }\n"
      << "  });\n"
      << "  document.body.setAttribute('data-missing-images', String(missing));\n"
      << "});\n</script>\n</body>\n</html>\n";

  std::ofstream file(path, std::ios::binary);
  file << out.str();
  if (!file) throw HostError("cannot write " + path);
}

}  // namespace ph
