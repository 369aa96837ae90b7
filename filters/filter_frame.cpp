#include "filters/filter_frame.h"

#include "plugin/host_calls.h"

namespace {

void ReleasePicture(REALpictureStruct*& field) {
  if (field) {
    REALUnlockObject(reinterpret_cast<REALobjectStruct*>(field));
    field = nullptr;
  }
}

}  // namespace

FilterRegion ClipFilterRectangle(const FilterRectangle* rectangle, int32_t width, int32_t height) {
  FilterRegion region{0, 0, width, height};
  if (!rectangle) return region;
  // A left edge below 0 is 0 (nothing outside the picture is ever read); one
  // beyond the picture leaves nothing to compute.
  region.left = rectangle->minX < 0 ? 0 : rectangle->minX > width ? width : rectangle->minX;
  region.top = rectangle->minY < 0 ? 0 : rectangle->minY > height ? height : rectangle->minY;
  if (rectangle->maxX < width && rectangle->maxX > region.left) region.right = rectangle->maxX;
  if (rectangle->maxY < height && rectangle->maxY > region.top) region.bottom = rectangle->maxY;
  return region;
}

bool RunFilterFrame(FilterPictures& pictures, const FilterRectangle* rectangle, ResultRelease release, FilterFill fill,
                    void* context) {
  if (release == ResultRelease::kBeforeChecks) ReleasePicture(pictures.destination);
  if (!pictures.source) return false;

  PictureReader reader;
  if (!GetPictureReader(reader, pictures.source)) return false;
  PictureWriter writer;
  if (!NewPictureWriter(writer, reader.width, reader.height)) return false;

  const FilterRegion region = ClipFilterRectangle(rectangle, reader.width, reader.height);
  bool result = fill(context, reader, writer, region);
  reader.Release();  // the source's copy is not needed while the host builds

  // Pixels the filling did not write are still black from the writer.
  REALpictureStruct* made = RenderPictureWriter(writer);
  if (made) {
    ReleasePicture(pictures.destination);
    pictures.destination = made;
  } else {
    result = false;  // the host made no picture: the previous result stands
  }
  return result;
}

void CloseFilterPictures(FilterPictures& pictures) {
  ReleasePicture(pictures.source);
  ReleasePicture(pictures.destination);
}
