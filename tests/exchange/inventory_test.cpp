// The whole REALbasic-visible API, written out here as the host must receive
// it: seven classes with their properties and methods, the graphics and
// Picture extensions, and the twenty global methods, in registration order.
// `picturehost list` must print exactly these lines.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/host_fixture.h"

namespace {

void Add(std::vector<std::string>& lines, const std::string& line) { lines.push_back(line); }

void Properties(std::vector<std::string>& lines, const std::vector<std::string>& names,
                const std::string& type) {
  for (const std::string& n : names) lines.push_back("  property " + n + " as " + type);
}

void Method(std::vector<std::string>& lines, const std::string& declaration, bool setter = false) {
  lines.push_back("  method " + declaration);
  if (setter) lines.push_back("    setter " + declaration);
}

std::vector<std::string> ExpectedInventory() {
  std::vector<std::string> l;
  const std::vector<std::string> rectangle = {"MaxX", "MinX", "MaxY", "MinY"};

  Add(l, "class PictureSepiaQVT");
  Properties(l, {"SourcePicture", "DestinationPicture"}, "Picture");
  Properties(l, rectangle, "Integer");
  Properties(l, {"SepiaRed", "SepiaGreen", "SepiaBlue"}, "Integer");
  Properties(l, {"FactorRed", "FactorBlue", "FactorGreen"}, "Double");
  Method(l, "Close");
  Method(l, "Run as boolean");

  Add(l, "class PictureConvolutionQVT");
  Properties(l, {"SourcePicture", "DestinationPicture"}, "Picture");
  Properties(l, {"ValueCount"}, "Integer");
  Method(l, "Close");
  Method(l, "Run(channels as integer) as boolean");
  Method(l, "Ver(index as integer) as double", true);
  Method(l, "Hor(index as integer) as double", true);

  Add(l, "class PictureLut3DQVT");
  Properties(l, {"SourcePicture", "DestinationPicture"}, "Picture");
  Properties(l, rectangle, "Integer");
  Method(l, "Close");
  Method(l, "Run as boolean");
  Method(l, "Table(r as integer, g as integer, b as integer, x as integer) as double", true);

  Add(l, "class PaletteQVT");
  Properties(l, {"Count"}, "Integer");
  Method(l, "Col(i as integer) as color", true);
  Method(l, "Mem as Memoryblock");
  Method(l, "CountColors as integer");
  Method(l, "Close");
  Method(l, "NewPicture(width as integer,height as integer) as picture");

  Add(l, "class PictureMatrixQVT");
  Properties(l, {"SourcePicture", "DestinationPicture"}, "Picture");
  Properties(l, {"Displacement"}, "Integer");
  Properties(l, {"ScaleFactor"}, "Double");
  Properties(l, rectangle, "Integer");
  Method(l, "Close");
  Method(l, "Run as boolean");
  Method(l, "RunRGB(red as boolean, green as boolean, blue as boolean) as boolean");
  Method(l, "Matrix(x as integer, y as integer) as integer", true);

  Add(l, "class PictureMatrix3DQVT");
  Properties(l, {"SourcePicture", "DestinationPicture"}, "Picture");
  Properties(l, rectangle, "Integer");
  Method(l, "Close");
  Method(l, "Run as boolean");
  Method(l, "Matrix(x as integer, y as integer) as double", true);

  Add(l, "extension graphics");
  Method(l, "PaintDesktopQVT");

  Add(l, "extension Picture");
  for (const char* d : {
           "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
           "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
           "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean",
           "HasMaskQVT as boolean",
           "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture",
           "ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture",
           "ChangeBrightnessAbsoluteQVT(x as double) as picture",
           "ChangeBrightnessLinearQVT(x as double) as picture",
           "ChangeCustomQVT(a as double, b as double) as picture",
           "ChangeContrastQVT(x as double) as picture",
           "ChangeContrastQVT(xr as double, xg as double, xb as double) as picture"}) {
    Method(l, d);
  }
  Method(l, "PaletteQVT as PaletteQVT", true);
  for (const char* d : {
           "DataTypeQVT as integer",
           "DataHandleQVT as integer",
           "MakeHBITMAPQVT as integer",
           "InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture",
           "Rotate90QVT as picture",
           "Rotate180QVT as picture",
           "Rotate270QVT as picture",
           "RotateQVT(angle as double,background as color) as picture",
           "VMirrorQVT as picture",
           "HMirrorQVT as picture",
           "CloneQVT as picture",
           "BitmapQVT as picture",
           "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture"}) {
    Method(l, d);
  }
  Method(l, "EmbeddedMaskQVT(swap as boolean) as picture", true);
  for (const char* d : {
           "PicHandleQVT as picture",
           "AutoLevelQVT as picture",
           "PicHandleDataQVT as string",
           "CountColorQVT(col as color) as integer",
           "CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)",
           "TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture",
           "CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean",
           "CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean",
           "CopyRtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean",
           "CopyGtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean",
           "CopyBtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean"}) {
    Method(l, d);
  }

  for (const char* d : {
           "MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture",
           "MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture",
           "MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture",
           "BuildPictureWithPicHandleDataQVT(data as string) as picture",
           "BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture",
           "NewGrayPaletteQVT as PaletteQVT",
           "NewWebPaletteQVT as PaletteQVT",
           "NewRedPaletteQVT as PaletteQVT",
           "NewGreenPaletteQVT as PaletteQVT",
           "NewBluePaletteQVT as PaletteQVT",
           "NewSystemPaletteQVT as PaletteQVT",
           "NewWindowsPaletteQVT as PaletteQVT",
           "NewPalmPaletteQVT as PaletteQVT",
           "NewPaletteQVT(count as integer) as PaletteQVT",
           "BinaryStringtoPictureQVT(data as String) as Picture",
           "PicturetoBinaryStringQVT(p as picture) as string",
           "CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture",
           "BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture",
           "BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture",
           "TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture"}) {
    Add(l, std::string("global ") + d);
  }

  Add(l, "class PictureMinMaxQVT");
  for (const char* group : {"Red", "Green", "Blue", "Sum"}) {
    const std::string g = group;
    Properties(l, {g + "MaxX", g + "MaxY", g + "Max", g + "MinX", g + "MinY", g + "Min"}, "Integer");
  }
  for (const char* find : {"FindAll", "FindRed", "FindGreen", "FindBlue", "FindSum", "FindMinRed",
                           "FindMinGreen", "FindMinBlue", "FindMinSum", "FindMinAll", "FindMaxRed",
                           "FindMaxGreen", "FindMaxBlue", "FindMaxSum", "FindMaxAll"}) {
    Method(l, std::string(find) + "(p as picture) as boolean");
  }
  Method(l, "Close");
  return l;
}

std::vector<std::string> ProgramOutput(const std::string& command, int* status) {
  std::vector<std::string> lines;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    *status = -1;
    return lines;
  }
  std::string line;
  for (int c; (c = std::fgetc(pipe)) != EOF;) {
    if (c == '\n') {
      lines.push_back(line);
      line.clear();
    } else {
      line.push_back(static_cast<char>(c));
    }
  }
  if (!line.empty()) lines.push_back(line);
  *status = pclose(pipe);
  return lines;
}

// Line-by-line comparison that names the first difference.
void ExpectSameLines(const std::vector<std::string>& actual, const std::vector<std::string>& expected) {
  const size_t n = std::min(actual.size(), expected.size());
  for (size_t i = 0; i < n; ++i) {
    ASSERT_EQ(actual[i], expected[i]) << "first difference at line " << i + 1;
  }
  if (actual.size() > n) FAIL() << "unexpected line " << n + 1 << ": " << actual[n];
  if (expected.size() > n) FAIL() << "missing line " << n + 1 << ": " << expected[n];
}

TEST(Inventory, CountsOfTheExpectedList) {
  // A check on the list above: 7 classes, 2 extensions, 37 + 1 extension
  // methods and 20 globals.
  const std::vector<std::string> l = ExpectedInventory();
  int classes = 0, globals = 0, pictureMethods = 0;
  bool inPicture = false;
  for (const std::string& line : l) {
    if (line.rfind("class ", 0) == 0) ++classes;
    if (line.rfind("global ", 0) == 0) ++globals;
    if (line.rfind("extension ", 0) == 0 || line.rfind("class ", 0) == 0 || line.rfind("global ", 0) == 0) {
      inPicture = line == "extension Picture";
    }
    if (inPicture && line.rfind("  method ", 0) == 0) ++pictureMethods;
  }
  EXPECT_EQ(classes, 7);
  EXPECT_EQ(globals, 20);
  EXPECT_EQ(pictureMethods, 37);
}

TEST(Inventory, HostReceivesExactlyTheWholeApi) {
  ExpectSameLines(SharedHost().ListLines(), ExpectedInventory());
}

TEST(Inventory, PicturehostListPrintsExactlyTheWholeApi) {
  int status = 0;
  const std::vector<std::string> lines = ProgramOutput(
      std::string("'") + PICTUREHOST_PATH + "' list --plugin '" + PluginPath() + "'", &status);
  EXPECT_EQ(status, 0);
  ExpectSameLines(lines, ExpectedInventory());
}

}  // namespace
