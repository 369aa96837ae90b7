#include "host/demo_calls.h"

namespace ph {

const std::vector<std::vector<std::string>> kDemoCalls = {
    // Pixel access
    {"call", "CloneQVT"},
    {"call", "BitmapQVT"},
};

}  // namespace ph
