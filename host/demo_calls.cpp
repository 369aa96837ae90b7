#include "host/demo_calls.h"

namespace ph {

const std::vector<std::vector<std::string>> kDemoCalls = {
    // Pixel access
    {"call", "CloneQVT"},
    {"call", "BitmapQVT"},
    // Geometry
    {"call", "Rotate90QVT"},
    {"call", "Rotate180QVT"},
    {"call", "Rotate270QVT"},
    {"call", "HMirrorQVT"},
    {"call", "VMirrorQVT"},
    {"call", "RotateQVT", "30", "&cFFFFFF"},
    {"call", "RotateQVT", "-100.5", "&c336699"},
    {"call", "ScaleQVT", "80", "60", "true"},
    {"call", "ScaleQVT", "480", "360", "true"},
    {"call", "ScaleQVT", "480", "360", "false"},
    {"call", "ScrollHorizontalQVT", "5", "true", "false"},
    {"call", "ScrollVerticalQVT", "5", "true", "false"},
    {"call", "ScrollQVT", "3", "0", "false", "true"},
    // Tone and colour
    {"call", "HasMaskQVT"},
    {"call", "ChangeBrightnessAbsoluteQVT", "40", "0", "-40"},
    {"call", "ChangeBrightnessAbsoluteQVT", "-60.5"},
    {"call", "ChangeBrightnessLinearQVT", "80", "-80", "0"},
    {"call", "ChangeBrightnessLinearQVT", "120"},
    {"call", "ChangeCustomQVT", "-1", "255"},
    {"call", "ChangeContrastQVT", "0.8"},
    {"call", "ChangeContrastQVT", "1", "0", "-0.5"},
    {"call", "InvertQVT", "8", "6", "32", "24"},
    {"call", "EmbeddedMaskQVT", "false"},
    {"call", "EmbeddedMaskQVT", "true"},
    {"call", "AutoLevelQVT"},
    {"call", "CountColorQVT", "&c000000"},
    {"call", "CountColorsQVT", "zeros:0", "zeros:0", "zeros:0", "0"},
    {"call", "TransformColorsQVT", "tests/tone/data/invert.table", "zeros:256", "tests/tone/data/invert.table"},
    {"call", "CombinePicturesQVT", "$SAMPLE", "$SAMPLE", "$SAMPLE"},
    {"call", "BlendPicturesQVT", "$SAMPLE", "0.3", "$SAMPLE", "0.7"},
    {"call", "BlendPicturesWithMaskQVT", "$SAMPLE", "$SAMPLE", "$SAMPLE"},
    {"call", "TintPictureQVT", "$SAMPLE", "&c4D961C", "&cFFC080"},
};

}  // namespace ph
