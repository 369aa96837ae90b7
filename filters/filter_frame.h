// The frame shared by the picture-making filter classes.
//
// Every filter instance starts with its two pictures (the source it reads and
// the result it made last), most of them followed by a rectangle. A run
// releases the previous result (at once or only when a new one is stored,
// depending on the class), checks the source, opens a reader on it and a
// zero-filled writer of the source's full size, clips the rectangle, lets the
// class fill the writer, renders the writer into DestinationPicture and closes
// the reader. The classes supply only the filling.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "pixels/picture_access.h"

// Instance data lies wherever the host put it, which may be only 4-aligned:
// doubles in it are read through this type, never through a plain double*.
typedef double PackedDouble __attribute__((aligned(4)));

#pragma pack(push, 4)
// The first two fields of every filter instance. The instance holds one host
// reference to each non-nil picture.
struct FilterPictures {
  REALpictureStruct* source;
  REALpictureStruct* destination;
};

// The rectangle properties: MinX, MinY and the exclusive MaxX, MaxY.
struct FilterRectangle {
  int32_t minX;
  int32_t minY;
  int32_t maxX;
  int32_t maxY;
};
#pragma pack(pop)

// When a run lets go of the picture it made before.
enum class ResultRelease {
  kBeforeChecks,  // first of all: after a failed run DestinationPicture is nil
  kOnNewResult,   // only when a new result is stored: a failed run keeps it
};

// The pixels a run computes: left <= x < right, top <= y < bottom. Empty when
// right <= left or bottom <= top.
struct FilterRegion {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};

// Clips a rectangle to a width x height picture. A negative MinX or MinY is
// taken as 0; a MaxX that is not above MinX or not below the width means the
// right edge, and likewise for MaxY. No rectangle means the whole picture.
FilterRegion ClipFilterRectangle(const FilterRectangle* rectangle, int32_t width, int32_t height);

// Fills the writer from the reader within the region. Its answer is the run's
// result; the writer is rendered into DestinationPicture either way.
using FilterFill = bool (*)(void* context, const PictureReader& reader, PictureWriter& writer,
                            const FilterRegion& region);

bool RunFilterFrame(FilterPictures& pictures, const FilterRectangle* rectangle, ResultRelease release, FilterFill fill,
                    void* context);

// The same, with any callable (reader, writer, region) -> bool as the filling.
template <typename Fill>
bool RunFilter(FilterPictures& pictures, const FilterRectangle* rectangle, ResultRelease release, Fill&& fill) {
  using F = std::remove_reference_t<Fill>;
  return RunFilterFrame(
      pictures, rectangle, release,
      [](void* context, const PictureReader& reader, PictureWriter& writer, const FilterRegion& region) -> bool {
        return (*static_cast<F*>(context))(reader, writer, region);
      },
      &fill);
}

// The same where the filling is `row(src, dst, count)` on every row of the
// region: src the reader's pixel at its left edge, dst the writer's, count
// its width.
template <typename Row>
bool RunRowFilter(FilterPictures& pictures, const FilterRectangle* rectangle, ResultRelease release, Row row) {
  return RunFilter(pictures, rectangle, release,
                   [&row](const PictureReader& reader, PictureWriter& writer, const FilterRegion& region) {
                     if (region.right <= region.left) return true;
                     for (int32_t y = region.top; y < region.bottom; ++y) {
                       row(ReaderRow(reader, y) + 3 * region.left, WriterRow(writer, y) + region.left,
                           region.right - region.left);
                     }
                     return true;
                   });
}

// Close and the destructor of every filter class: releases the source, then
// the result, each only when set, and clears the fields. Harmless twice.
void CloseFilterPictures(FilterPictures& pictures);

// A property the host reads and writes itself at `offset` in the instance data.
#define FILTER_FIELD(name, type, offset)                                     \
  {                                                                          \
    nullptr, name, type, 0, kStandardAccessor, kStandardAccessor, offset, {} \
  }

// The property records every filter class starts with, and those of the
// rectangle (in the order MaxX, MinX, MaxY, MinY), for the instance data type
// `Data` with the members `pictures` and `rectangle`.
#define FILTER_PICTURE_PROPERTIES(Data)                                      \
  FILTER_FIELD("SourcePicture", "Picture", offsetof(Data, pictures.source)), \
      FILTER_FIELD("DestinationPicture", "Picture", offsetof(Data, pictures.destination))
#define FILTER_RECTANGLE_PROPERTIES(Data)                              \
  FILTER_FIELD("MaxX", "Integer", offsetof(Data, rectangle.maxX)),     \
      FILTER_FIELD("MinX", "Integer", offsetof(Data, rectangle.minX)), \
      FILTER_FIELD("MaxY", "Integer", offsetof(Data, rectangle.maxY)), \
      FILTER_FIELD("MinY", "Integer", offsetof(Data, rectangle.minY))

// Colour channel selection bits.
constexpr uint32_t kChannelRed = 1;
constexpr uint32_t kChannelGreen = 2;
constexpr uint32_t kChannelBlue = 4;
constexpr uint32_t kChannelsAll = 7;
