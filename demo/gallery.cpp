// The demo's contact sheet: every picture result as a thumbnail in a grid,
// each labelled with its call. Drawn on a GDK pixmap, the labels laid out by
// Pango (through GDK's Pango renderer) in DejaVu Sans, then read back into a
// pixbuf and saved as PNG.
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>
#include <pango/pango.h>

#include <algorithm>
#include <string>

#include "demo/demo.h"
#include "host/host.h"

namespace ph {

namespace {

constexpr int kThumbWidth = 160;
constexpr int kThumbHeight = 120;
constexpr int kLabelHeight = 34;  // two lines of the label font
constexpr int kGap = 12;
constexpr int kColumns = 6;
constexpr int kTitleHeight = 44;
constexpr const char* kLabelFont = "DejaVu Sans 8";
constexpr const char* kTitleFont = "DejaVu Sans Bold 13";

void SetColour(GdkGC* gc, uint32_t rgb) {
  GdkColor c{};
  c.red = static_cast<guint16>(((rgb >> 16) & 0xFF) * 257);
  c.green = static_cast<guint16>(((rgb >> 8) & 0xFF) * 257);
  c.blue = static_cast<guint16>((rgb & 0xFF) * 257);
  gdk_gc_set_rgb_fg_color(gc, &c);
}

PangoLayout* Layout(PangoContext* context, const std::string& text, const char* font, int width, int lines) {
  PangoLayout* layout = pango_layout_new(context);
  PangoFontDescription* description = pango_font_description_from_string(font);
  pango_layout_set_font_description(layout, description);
  pango_font_description_free(description);
  pango_layout_set_width(layout, width * PANGO_SCALE);
  pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
  pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
  pango_layout_set_height(layout, -lines);  // at most this many lines, the last one ellipsized
  pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
  pango_layout_set_text(layout, text.c_str(), -1);
  return layout;
}

}  // namespace

bool WriteContactSheet(const std::vector<Thumbnail>& thumbnails, const std::string& title, const std::string& path,
                       int32_t* width, int32_t* height, std::string* error) {
  if (!EnsureDisplay(error)) return false;
  const int count = static_cast<int>(thumbnails.size());
  const int columns = std::clamp(count, 1, kColumns);
  const int rows = std::max(1, (count + columns - 1) / columns);
  const int cellWidth = kThumbWidth + kGap, cellHeight = kThumbHeight + kLabelHeight + kGap;
  const int w = kGap + columns * cellWidth, h = kTitleHeight + rows * cellHeight + kGap / 2;

  GdkColormap* colormap = gdk_screen_get_system_colormap(gdk_screen_get_default());
  GdkPixmap* sheet = gdk_pixmap_new(nullptr, w, h, gdk_colormap_get_visual(colormap)->depth);
  if (!sheet) {
    *error = "cannot make a pixmap of " + std::to_string(w) + "x" + std::to_string(h);
    return false;
  }
  gdk_drawable_set_colormap(sheet, colormap);
  GdkGC* gc = gdk_gc_new(sheet);
  SetColour(gc, 0xF4F4F0);
  gdk_draw_rectangle(sheet, gc, TRUE, 0, 0, w, h);

  PangoContext* context = gdk_pango_context_get();
  PangoLayout* heading = Layout(context, title, kTitleFont, w - 2 * kGap, 1);
  SetColour(gc, 0x202020);
  gdk_draw_layout(sheet, gc, kGap, 12, heading);
  g_object_unref(heading);

  bool ok = true;
  for (int i = 0; i < count; ++i) {
    const int x = kGap + (i % columns) * cellWidth, y = kTitleHeight + (i / columns) * cellHeight;
    // The cell: a light frame with the thumbnail centred in it.
    SetColour(gc, 0xFFFFFF);
    gdk_draw_rectangle(sheet, gc, TRUE, x, y, kThumbWidth, kThumbHeight);
    GError* gerror = nullptr;
    GdkPixbuf* thumb =
        gdk_pixbuf_new_from_file_at_scale(thumbnails[i].file.c_str(), kThumbWidth - 4, kThumbHeight - 4, TRUE, &gerror);
    if (thumb) {
      const int tw = gdk_pixbuf_get_width(thumb), th = gdk_pixbuf_get_height(thumb);
      gdk_draw_pixbuf(sheet, gc, thumb, 0, 0, x + (kThumbWidth - tw) / 2, y + (kThumbHeight - th) / 2, tw, th,
                      GDK_RGB_DITHER_NONE, 0, 0);
      g_object_unref(thumb);
    } else {
      ok = false;
      *error = "cannot read " + thumbnails[i].file + (gerror ? std::string(": ") + gerror->message : "");
    }
    if (gerror) g_error_free(gerror);
    SetColour(gc, 0xC8C8C0);
    gdk_draw_rectangle(sheet, gc, FALSE, x, y, kThumbWidth - 1, kThumbHeight - 1);
    PangoLayout* label = Layout(context, thumbnails[i].label, kLabelFont, kThumbWidth, 2);
    SetColour(gc, 0x303030);
    gdk_draw_layout(sheet, gc, x, y + kThumbHeight + 3, label);
    g_object_unref(label);
  }
  g_object_unref(context);

  GdkPixbuf* pixbuf = gdk_pixbuf_get_from_drawable(nullptr, sheet, colormap, 0, 0, 0, 0, w, h);
  g_object_unref(gc);
  g_object_unref(sheet);
  if (!pixbuf) {
    *error = "cannot read the sheet back";
    return false;
  }
  GError* gerror = nullptr;
  if (!gdk_pixbuf_save(pixbuf, path.c_str(), "png", &gerror, nullptr)) {
    *error = "cannot write " + path + (gerror ? std::string(": ") + gerror->message : "");
    ok = false;
  }
  if (gerror) g_error_free(gerror);
  g_object_unref(pixbuf);
  *width = w;
  *height = h;
  return ok;
}

}  // namespace ph
