#include "output_names.h"

#include <filesystem>

std::string OutputNames::For(const std::string& frameName) {
    std::string stem = std::filesystem::path(frameName).filename().string();
    for (char& c : stem) {
        if (c == '#' || c == ' ' || c == '/') c = '_';
    }
    if (stem.empty() || stem == "." || stem == "..") stem = "frame";
    std::string name = stem;
    for (int n = 2; !used_.insert(name).second; ++n) name = stem + "-" + std::to_string(n);
    return name;
}
