// What `picturehost demo` records of each call it makes, and the two views
// made from the records: the HTML page (demo_page.cpp) and the contact sheet
// of picture results (gallery.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cli/options.h"
#include "host/host.h"

namespace ph {

// `picturehost demo`: runs the calls and writes the page and the gallery into
// --out-dir (out/demo); the exit status.
int Demo(Host& host, const Options& o);

// One thing a demo call produced that the page shows.
struct DemoShown {
  enum class Kind {
    Picture,    // an image file: `file`, `width` × `height`
    Text,       // `label` = `text`
    Table,      // `rows` of name and value (an instance's properties)
    Histogram,  // 256 counters in `values`, bars in `colour`
    Palette,    // colours in `values`
    Markers,    // positions in `marks` on the image `file`
    Bytes,      // a memory block or string of `size` bytes, saved as `file`; `text` its first bytes
  } kind = Kind::Text;
  std::string label;
  std::string text;
  std::string file;  // relative to the demo's directory
  int32_t width = 0, height = 0;
  int64_t size = 0;
  std::vector<uint32_t> values;
  uint32_t colour = 0x808080;
  std::vector<std::pair<std::string, std::string>> rows;
  struct Mark {
    std::string name;  // the property: RedMax, SumMin, …
    int32_t value = 0;
    int32_t x = 0, y = 0;
    uint32_t colour = 0;
    bool maximum = true;
  };
  std::vector<Mark> marks;
};

// One registered thing the page has a section for: a method of an extension,
// a global method or a class.
struct DemoEntity {
  std::string key;    // "Picture:DECLARATION", "graphics:…", "global:…", "class:NAME"
  std::string group;  // "Picture", "graphics", "global", "class"
  std::string title;  // the declaration, or the class name
  bool setter = false;
  std::vector<std::string> members;  // for a class: "property …", "method …" lines
};

// One line of the demo: a call or a run, with what it gave.
struct DemoItem {
  bool added = false;                     // made by the demo for something no listed line covers
  std::string stem;                       // file name stem, unique in the directory
  std::string title;                      // readable form: RotateQVT(30, &cFFFFFF)
  std::string command;                    // the picturehost command line that does the same
  std::string subject;                    // key of the entity this line is chiefly about
  std::vector<std::string> covers;        // keys of every entity it exercises
  std::vector<std::string> declarations;  // every declaration it calls, in order
  std::string status = "ok";              // ok, nil or "error: …"
  double milliseconds = 0;                // time spent in the plug-in's handlers
  std::string summary;                    // the result in one line
  std::vector<DemoShown> shown;
};

struct DemoReport {
  std::string input;  // as given: a file or sample:WxH
  int32_t width = 0, height = 0;
  std::string inputFile = "input.png";
  std::vector<DemoEntity> entities;
  std::vector<DemoItem> items;
  double totalSeconds = 0;
  std::string gallery;  // file name, empty when none was made
  int32_t galleryWidth = 0, galleryHeight = 0;
};

// index.html of the demo's directory.
void WriteDemoPage(const DemoReport& report, const std::string& path);

struct Thumbnail {
  std::string file;   // an image file
  std::string label;  // drawn under the thumbnail
};

// A contact sheet of labelled thumbnails, drawn with GDK and Pango and saved
// as PNG. False with a message when it cannot be made.
bool WriteContactSheet(const std::vector<Thumbnail>& thumbnails, const std::string& title, const std::string& path,
                       int32_t* width, int32_t* height, std::string* error);

}  // namespace ph
