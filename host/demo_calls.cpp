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
};

}  // namespace ph
