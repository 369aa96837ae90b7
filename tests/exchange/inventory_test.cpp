// The whole REALbasic-visible API as the host must receive it: seven classes
// with their properties and methods, the graphics and Picture extensions, and
// the twenty global methods, in registration order. `picturehost list` must
// print exactly these lines.
#include <sstream>

#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"

namespace {

// In short: "  TYPE: A B" stands for the properties A and B of that type, in
// order, a method declaration ending in " =" has a setter, "  A | B" stands
// for the lines "  A" and "  B", and "A{x,y}B" for the lines AxB and AyB.
const char* const kInventory = R"(class PictureSepiaQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY SepiaRed SepiaGreen SepiaBlue
  Double: FactorRed FactorBlue FactorGreen
  Close | Run as boolean
class PictureConvolutionQVT
  Picture: SourcePicture DestinationPicture
  Integer: ValueCount
  Close | Run(channels as integer) as boolean
  Ver(index as integer) as double = | Hor(index as integer) as double =
class PictureLut3DQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY
  Close | Run as boolean
  Table(r as integer, g as integer, b as integer, x as integer) as double =
class PaletteQVT
  Integer: Count
  Col(i as integer) as color = | Mem as Memoryblock | CountColors as integer | Close
  NewPicture(width as integer,height as integer) as picture
class PictureMatrixQVT
  Picture: SourcePicture DestinationPicture
  Integer: Displacement
  Double: ScaleFactor
  Integer: MaxX MinX MaxY MinY
  Close | Run as boolean
  RunRGB(red as boolean, green as boolean, blue as boolean) as boolean
  Matrix(x as integer, y as integer) as integer =
class PictureMatrix3DQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY
  Close | Run as boolean | Matrix(x as integer, y as integer) as double =
extension graphics
  PaintDesktopQVT
extension Picture
  ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean
  ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean
  ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean
  HasMaskQVT as boolean
  ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture
  ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture
  ChangeBrightnessAbsoluteQVT(x as double) as picture | ChangeBrightnessLinearQVT(x as double) as picture
  ChangeCustomQVT(a as double, b as double) as picture | ChangeContrastQVT(x as double) as picture
  ChangeContrastQVT(xr as double, xg as double, xb as double) as picture
  PaletteQVT as PaletteQVT = | DataTypeQVT as integer | DataHandleQVT as integer | MakeHBITMAPQVT as integer
  InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture
  Rotate{90,180,270}QVT as picture
  RotateQVT(angle as double,background as color) as picture
  VMirrorQVT as picture | HMirrorQVT as picture | CloneQVT as picture | BitmapQVT as picture
  ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture
  EmbeddedMaskQVT(swap as boolean) as picture =
  PicHandleQVT as picture | AutoLevelQVT as picture | PicHandleDataQVT as string | CountColorQVT(col as color) as integer
  CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)
  TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture
  CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean
  CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean
  Copy{R,G,B}toMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean
global MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture
global MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture
global MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture
global BuildPictureWithPicHandleDataQVT(data as string) as picture
global BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture
global New{Gray,Web,Red,Green,Blue,System,Windows,Palm}PaletteQVT as PaletteQVT
global NewPaletteQVT(count as integer) as PaletteQVT
global BinaryStringtoPictureQVT(data as String) as Picture
global PicturetoBinaryStringQVT(p as picture) as string
global CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture
global BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture
global BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture
global TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture
class PictureMinMaxQVT
  Integer: RedMaxX RedMaxY RedMax RedMinX RedMinY RedMin GreenMaxX GreenMaxY GreenMax GreenMinX GreenMinY GreenMin
  Integer: BlueMaxX BlueMaxY BlueMax BlueMinX BlueMinY BlueMin SumMaxX SumMaxY SumMax SumMinX SumMinY SumMin
  Find{All,Red,Green,Blue,Sum,MinRed,MinGreen,MinBlue,MinSum,MinAll,MaxRed,MaxGreen,MaxBlue,MaxSum,MaxAll}(p as picture) as boolean
  Close
)";

// The lines a line of the inventory stands for ("  A | B", "A{x,y}B").
std::vector<std::string> Expanded(const std::string& line) {
  if (const size_t bar = line.find(" | "); bar != std::string::npos) {
    std::vector<std::string> lines = Expanded(line.substr(0, bar));
    for (const std::string& rest : Expanded("  " + line.substr(bar + 3))) lines.push_back(rest);
    return lines;
  }
  const size_t open = line.find('{'), close = line.find('}');
  if (open == std::string::npos) return {line};
  std::vector<std::string> lines;
  std::istringstream parts(line.substr(open + 1, close - open - 1));
  for (std::string part; std::getline(parts, part, ',');) lines.push_back(line.substr(0, open) + part + line.substr(close + 1));
  return lines;
}

std::vector<std::string> ExpectedInventory() {
  std::vector<std::string> lines;
  std::istringstream in(kInventory);
  std::vector<std::string> compact;
  for (std::string line; std::getline(in, line);)
    for (const std::string& one : Expanded(line)) compact.push_back(one);
  for (const std::string& line : compact) {
    const size_t colon = line.find(": ");
    if (line.rfind("  ", 0) != 0) {
      lines.push_back(line);
    } else if (colon != std::string::npos) {
      std::istringstream names(line.substr(colon + 2));
      for (std::string name; names >> name;) lines.push_back("  property " + name + " as " + line.substr(2, colon - 2));
    } else {
      const bool setter = line.ends_with(" =");
      const std::string declaration = line.substr(2, line.size() - (setter ? 4 : 2));
      lines.push_back("  method " + declaration);
      if (setter) lines.push_back("    setter " + declaration);
    }
  }
  return lines;
}

TEST(Inventory, PicturehostListPrintsExactlyTheWholeApi) {
  const Outcome run = Picturehost({"list"});
  EXPECT_EQ(run.status, 0) << run.err;
  std::vector<std::string> lines;
  std::istringstream out(run.out);
  for (std::string line; std::getline(out, line);) lines.push_back(line);
  const std::vector<std::string> expected = ExpectedInventory();
  lines.resize(std::max(lines.size(), expected.size()), "(no line)");
  for (size_t i = 0; i < lines.size(); ++i) {  // the first difference, named
    ASSERT_EQ(lines[i], i < expected.size() ? expected[i] : "(no line)") << "line " << i + 1;
  }
}

}  // namespace
