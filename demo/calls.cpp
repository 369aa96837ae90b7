#include "demo/calls.h"

#include <sstream>

namespace ph {

namespace {

// One call a line: [LABEL:] [shown] [address] call|run WORDS...
constexpr const char* kCalls = R"(
# Pixel access
shown call --on sample:64x48 CloneQVT --out OUT
shown call --on sample:37x23 BitmapQVT --out OUT
# Geometry
shown call --on sample:37x23 Rotate90QVT --out OUT
rot180: shown call --on sample:64x48 Rotate180QVT --out OUT
shown call --on sample:37x23 Rotate270QVT --out OUT
hmirror: shown call --on sample:64x48 HMirrorQVT --out OUT
vmirror: shown call --on sample:64x48 VMirrorQVT --out OUT
shown call --on sample:64x48 RotateQVT 30 &cFFFFFF --out OUT
shown call --on sample:64x48 RotateQVT -100.5 &c336699 --out OUT
call --on sample:37x23 RotateQVT 45 &c000000 --out OUT
call --on sample:37x23 RotateQVT 179.99 &c808080 --out OUT
call --on sample:64x48 RotateQVT 1e-7 &cFF00FF --out OUT
call --on sample:37x23 RotateQVT 723.25 &h12345678 --out OUT
shown call --on sample:64x48 ScaleQVT 80 60 true --out OUT
shown call --on sample:320x240 ScaleQVT 480 360 true --out OUT
shown call --on sample:320x240 ScaleQVT 480 360 false --out OUT
call --on sample:64x48 ScaleQVT 23 17 true --out OUT
call --on sample:37x23 ScaleQVT 101 7 true --out OUT
call --on sample:64x48 ScaleQVT 150 110 false --out OUT
call --on sample:37x23 ScaleQVT 5 40 false --out OUT
shown call --on sample:64x48 ScrollHorizontalQVT 5 true false --out OUT
shown call --on sample:320x240 ScrollVerticalQVT 5 true false --out OUT
call --on sample:64x48 ScrollVerticalQVT -7 false false --out OUT
shown call --on sample:320x240 ScrollQVT 3 0 false true --out OUT
call --on sample:64x48 --mask sample:64x48 ScrollQVT 3 -2 true true --out OUT
# Tone and colour
shown call --on sample:64x48 HasMaskQVT
call --on sample:64x48 --mask sample:64x48 HasMaskQVT
shown call --on sample:320x240 ChangeBrightnessAbsoluteQVT 40 0 -40 --out OUT
call --on sample:64x48 ChangeBrightnessAbsoluteQVT 40.5 0 -40.25 --out OUT
shown call --on sample:37x23 ChangeBrightnessAbsoluteQVT -60.5 --out OUT
shown call --on sample:320x240 ChangeBrightnessLinearQVT 80 -80 0 --out OUT
call --on sample:64x48 ChangeBrightnessLinearQVT 80.3 -80.7 0.1 --out OUT
shown call --on sample:320x240 ChangeBrightnessLinearQVT 120 --out OUT
call --on sample:37x23 ChangeBrightnessLinearQVT 120.9 --out OUT
shown call --on sample:320x240 ChangeCustomQVT -1 255 --out OUT
call --on sample:64x48 ChangeCustomQVT -1.3 255.7 --out OUT
call --on sample:37x23 ChangeCustomQVT 0.333 17.1 --out OUT
shown call --on sample:64x48 ChangeContrastQVT 0.8 --out OUT
call --on sample:37x23 ChangeContrastQVT 1.7 --out OUT
shown call --on sample:64x48 ChangeContrastQVT 1 0 -0.5 --out OUT
shown call --on sample:64x48 InvertQVT 8 6 32 24 --out OUT
call --on sample:37x23 InvertQVT -5 -5 100 100 --out OUT
shown call --on sample:320x240 EmbeddedMaskQVT false --out OUT
shown call --on sample:320x240 EmbeddedMaskQVT true --out OUT
call --on sample:64x48 --mask sample:64x48 EmbeddedMaskQVT false --out OUT
call --on sample:64x48 --mask sample:64x48 EmbeddedMaskQVT true --out OUT
shown call --on sample:64x48 AutoLevelQVT --out OUT
call --on sample:37x23 AutoLevelQVT --out OUT
shown call --on sample:64x48 CountColorQVT &c000000
call --on sample:64x48 CountColorQVT &cFFFFFF
shown call --on sample:64x48 CountColorsQVT zeros:0 zeros:0 zeros:0 0 --out OUT
shown call --on sample:320x240 TransformColorsQVT @invert zeros:256 @invert --out OUT
call --on sample:37x23 TransformColorsQVT @invert @table @invert --out OUT
shown call --on sample:320x240 CombinePicturesQVT %i %i %i --out OUT
call CombinePicturesQVT sample:64x48 @rot180 @hmirror --out OUT
shown call --on sample:320x240 BlendPicturesQVT %i 0.3 %i 0.7 --out OUT
call BlendPicturesQVT sample:64x48 0.3 @vmirror 0.7 --out OUT
call BlendPicturesQVT sample:64x48 1.37 @rot180 -0.21 --out OUT
shown call --on sample:320x240 BlendPicturesWithMaskQVT %i %i %i --out OUT
call BlendPicturesWithMaskQVT sample:64x48 @rot180 @hmirror --out OUT
shown call --on sample:64x48 TintPictureQVT %i &c4D961C &cFFC080 --out OUT
call TintPictureQVT sample:37x23 &c102030 &cFF0000 --out OUT
# Filter classes
shown run PictureMatrixQVT --on sample:64x48 --set Matrix(2,2)=1 Run --out OUT
shown run PictureMatrixQVT --on sample:320x240 --set Matrix(1,2)=-1 --set Matrix(2,1)=-1 --set Matrix(2,2)=5 --set Matrix(3,2)=-1 --set Matrix(2,3)=-1 RunRGB(true,false,true) --out OUT
run PictureMatrixQVT --set SourcePicture=sample:64x48 --set Matrix(1,2)=-1 --set Matrix(2,1)=-1 --set Matrix(2,2)=5 --set Matrix(3,2)=-1 --set Matrix(2,3)=-1 RunRGB(true,false,true) Matrix(2,2) Matrix(5,0) --out OUT
shown run PictureMatrixQVT --on sample:320x240 --set Matrix(1,1)=1 --set Matrix(3,3)=-1 --set Displacement=128 --set ScaleFactor=0.5 Run --out OUT
run PictureMatrixQVT --set SourcePicture=sample:37x23 --set Matrix(0,0)=3 --set Matrix(4,4)=-2 --set Matrix(1,3)=300 --set Displacement=17 --set ScaleFactor=0.37 --set MinX=3 --set MaxY=20 Run --out OUT
run PictureMatrixQVT --set SourcePicture=sample:64x48 Close
shown run PictureConvolutionQVT --on sample:64x48 --set Hor(0)=0.25 --set Hor(1)=0.5 --set Hor(2)=0.25 --set Ver(0)=0.25 --set Ver(1)=0.5 --set Ver(2)=0.25 Run(7) --out OUT
shown run PictureConvolutionQVT --on sample:320x240 --set ValueCount=5 --set Hor(0)=0.2 --set Hor(1)=0.2 --set Hor(2)=0.2 --set Hor(3)=0.2 --set Hor(4)=0.2 --set Ver(2)=1 Run(1) --out OUT
run PictureConvolutionQVT --set SourcePicture=sample:37x23 --set ValueCount=5 --set Hor(0)=0.1 --set Hor(1)=0.3 --set Hor(2)=0.21 --set Hor(3)=0.3 --set Hor(4)=0.1 --set Ver(1)=-0.7 --set Ver(2)=1.9 --set Ver(3)=-0.1 Run(5) Hor(2) Ver(20) --out OUT
run PictureConvolutionQVT --set SourcePicture=sample:64x48 --set ValueCount=4 --set Hor(0)=0.3333 --set Hor(3)=0.6667 --set Ver(1)=1 Run(2) Close
shown run PictureMatrix3DQVT --on sample:64x48 --set Matrix(2,0)=1 --set Matrix(1,1)=1 --set Matrix(0,2)=1 Run --out OUT
shown run PictureMatrix3DQVT --on sample:320x240 --set Matrix(0,0)=0.393 --set Matrix(1,0)=0.769 --set Matrix(2,0)=0.189 --set Matrix(0,1)=0.349 --set Matrix(1,1)=0.686 --set Matrix(2,1)=0.168 --set Matrix(0,2)=0.272 --set Matrix(1,2)=0.534 --set Matrix(2,2)=0.131 --set MinX=8 Run --out OUT
run PictureMatrix3DQVT --set SourcePicture=sample:64x48 --set Matrix(0,0)=0.393 --set Matrix(1,0)=0.769 --set Matrix(2,0)=0.189 --set Matrix(0,1)=0.349 --set Matrix(1,1)=0.686 --set Matrix(2,1)=0.168 --set Matrix(0,2)=0.272 --set Matrix(1,2)=0.534 --set Matrix(2,2)=0.131 --set MinX=8 Run Matrix(1,1) --out OUT
run PictureMatrix3DQVT --set SourcePicture=sample:37x23 --set Matrix(0,0)=1.1 --set Matrix(1,1)=0.9 --set Matrix(2,2)=1 --set Matrix(3,0)=-12.5 --set Matrix(3,2)=7.3 --set Matrix(0,3)=3.7 --set Matrix(2,3)=-20.2 --set MaxX=30 --set MinY=2 Run Close
shown run PictureLut3DQVT --on sample:64x48 --set Table(15,0,0,0)=255 --set Table(0,15,0,1)=255 --set Table(0,0,15,2)=255 --set Table(15,15,15,0)=255 --set Table(15,15,15,1)=255 --set Table(15,15,15,2)=255 Run --out OUT
run PictureLut3DQVT --set SourcePicture=sample:37x23 --set Table(1,0,0,0)=17.5 --set Table(1,1,0,1)=40.25 --set Table(0,1,1,2)=99.9 --set Table(2,3,4,0)=300 --set Table(15,15,15,0)=255 --set Table(15,15,15,1)=127.3 --set Table(15,15,15,2)=63.7 --set Table(7,8,9,1)=-50 Table(7,8,9,1) Table(18,0,0,0) Run --out OUT
run PictureLut3DQVT --set SourcePicture=sample:64x48 --set MinX=10 --set MinY=5 --set MaxX=40 --set MaxY=30 --set Table(15,15,15,1)=200.5 Run Close
shown run PictureSepiaQVT --on sample:64x48 --set SepiaRed=40 --set SepiaGreen=20 --set SepiaBlue=-20 Run --out OUT
run PictureSepiaQVT --set SourcePicture=sample:37x23 --set FactorRed=0.35 --set FactorBlue=0.5 --set FactorGreen=0.2 --set SepiaRed=10 --set MinX=2 --set MaxX=30 --set MinY=1 Run --out OUT
run PictureSepiaQVT --set SourcePicture=sample:64x48 --set FactorRed=-0.4 --set FactorBlue=1.3 --set FactorGreen=0.001 Run Close
shown run PictureMinMaxQVT --on sample:320x240 FindAll(%i)
run PictureMinMaxQVT FindAll(sample:64x48) FindMaxAll(sample:37x23)
run PictureMinMaxQVT FindMinAll(sample:64x48) FindRed(sample:37x23) FindGreen(sample:37x23)
run PictureMinMaxQVT FindBlue(sample:64x48) FindSum(sample:37x23) FindMinRed(sample:64x48)
run PictureMinMaxQVT FindMinGreen(sample:37x23) FindMinBlue(sample:64x48) FindMinSum(sample:37x23)
run PictureMinMaxQVT FindMaxRed(sample:64x48) FindMaxGreen(sample:37x23) FindMaxBlue(sample:37x23) FindMaxSum(sample:64x48) Close
# Palettes and data exchange
shown run PaletteQVT --set Count=3 --set Col(1)=&cFF0000 --set Col(2)=&c0000FF Col(1) Col(257) Mem CountColors NewPicture(16,16) Close
shown run PaletteQVT --from NewGrayPaletteQVT Col(128) CountColors
run PaletteQVT --from NewGrayPaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewRedPaletteQVT Col(255) CountColors
run PaletteQVT --from NewRedPaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewGreenPaletteQVT Col(255) CountColors
run PaletteQVT --from NewGreenPaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewBluePaletteQVT Col(255) CountColors
run PaletteQVT --from NewBluePaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewWebPaletteQVT Col(5) CountColors NewPicture(16,16)
run PaletteQVT --from NewWebPaletteQVT ALLCOLOURS CountColors NewPicture(16,16)
shown run PaletteQVT --from NewWindowsPaletteQVT Col(-1) CountColors
run PaletteQVT --from NewWindowsPaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewPalmPaletteQVT Col(125) CountColors
run PaletteQVT --from NewPalmPaletteQVT ALLCOLOURS CountColors
run PaletteQVT --from NewSystemPaletteQVT ALLCOLOURS CountColors
shown run PaletteQVT --from NewPaletteQVT(300) CountColors
run PaletteQVT --from NewPaletteQVT(3) Col(0) Col(2) CountColors NewPicture(5,5)
call NewPaletteQVT 300
shown call NewSystemPaletteQVT
shown call --on sample:64x48 PaletteQVT
shown call --on sample:320x240 CopyRGBtoMemoryblockQVT zeros:230400 0 --out OUT
shown call --on sample:320x240 CopyARGBtoMemoryblockQVT zeros:307200 0 true 255 --out OUT
shown call --on sample:320x240 CopyARGBtoMemoryblockQVT zeros:307200 0 false -1 --out OUT
shown call --on sample:320x240 CopyRtoMemoryblockQVT zeros:76800 0 1 --out OUT
shown call --on sample:320x240 CopyGtoMemoryblockQVT zeros:307200 1 4 --out OUT
shown call --on sample:320x240 CopyBtoMemoryblockQVT zeros:230400 2 3 --out OUT
call --on sample:64x48 CopyRGBtoMemoryblockQVT zeros:9216 0 --out OUT
call --on sample:37x23 CopyRGBtoMemoryblockQVT zeros:2600 5 --out OUT
call --on sample:64x48 CopyARGBtoMemoryblockQVT zeros:12288 0 true 255 --out OUT
call --on sample:37x23 CopyARGBtoMemoryblockQVT zeros:3500 3 false -1 --out OUT
call --on sample:64x48 CopyRtoMemoryblockQVT zeros:3072 0 1 --out OUT
call --on sample:37x23 CopyGtoMemoryblockQVT zeros:3404 1 4 --out OUT
call --on sample:64x48 CopyBtoMemoryblockQVT zeros:9216 2 3 --out OUT
shown call --on sample:64x48 CopyRGBtoMemoryblockQVT zeros:100 0 --out OUT
shown call MemoryblockRGBtoPictureQVT zeros:3072 0 32 32 --out OUT
shown call MemoryblockARGBtoPictureQVT zeros:4096 0 32 32 true --out OUT
shown call MemoryblockGrayToPictureQVT zeros:2047 0 32 32 2 --out OUT
shown call MemoryblockGrayToPictureQVT zeros:2046 0 32 32 2 --out OUT
call MemoryblockRGBtoPictureQVT @rgb 3 32 32 --out OUT
call MemoryblockARGBtoPictureQVT @argb 4 32 32 true --out OUT
call MemoryblockARGBtoPictureQVT @argb 1 31 33 false --out OUT
call MemoryblockGrayToPictureQVT @grey 0 32 32 2 --out OUT
call MemoryblockGrayToPictureQVT @grey 7 40 50 1 --out OUT
# The binary string form, written and read back
ppic: shown call --on sample:37x23 PicturetoBinaryStringQVT %i --out OUT
shown call BinaryStringtoPictureQVT @ppic --out OUT
# Platform handles
shown call --on sample:64x48 DataTypeQVT
shown address call --on sample:64x48 DataHandleQVT
shown call --on sample:64x48 MakeHBITMAPQVT
shown call --on sample:64x48 PicHandleQVT --out OUT
shown call --on sample:64x48 PicHandleDataQVT --out OUT
shown call BuildPictureWithPicHandleDataQVT @ppic --out OUT
shown call BuildPictureWithGWorldHandleQVT 0 false --out OUT
call --on sample:64x48 PaintDesktopQVT --out OUT
)";

// SIZE bytes, byte i = (STEP * i + 31 * (i / 97)) mod 256: a ramp that
// shifts every 97 bytes, so that no two neighbouring rows of a picture read
// from it are alike.
std::vector<uint8_t> Pattern(size_t size, size_t step) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(step * i + 31 * (i / 97));
  return bytes;
}

std::vector<ListedCall> Parse() {
  std::vector<ListedCall> calls;
  std::istringstream lines(kCalls);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    ListedCall call;
    std::istringstream words(line);
    std::string w;
    while (words >> w) {
      if (call.words.empty() && w.back() == ':') {
        call.label = w.substr(0, w.size() - 1);
      } else if (call.words.empty() && (w == "shown" || w == "address")) {
        (w == "shown" ? call.shown : call.address) = true;
      } else if (w == "ALLCOLOURS") {
        for (int i = 0; i < 256; ++i) call.words.push_back("Col(" + std::to_string(i) + ")");
      } else {
        call.words.push_back(w);
      }
    }
    call.text = line.substr(line.find(call.words[0] == "call" ? "call " : "run "));
    calls.push_back(std::move(call));
  }
  return calls;
}

}  // namespace

const std::vector<ListedCall>& ListedCalls() {
  static const std::vector<ListedCall> calls = Parse();
  return calls;
}

std::vector<std::pair<std::string, std::vector<uint8_t>>> ListedInputs() {
  std::vector<uint8_t> invert(256);
  for (size_t i = 0; i < invert.size(); ++i) invert[i] = static_cast<uint8_t>(255 - i);
  return {{"rgb", Pattern(3075, 7)},
          {"argb", Pattern(4100, 13)},
          {"grey", Pattern(2100, 5)},
          {"table", Pattern(256, 37)},
          {"invert", invert}};
}

}  // namespace ph
