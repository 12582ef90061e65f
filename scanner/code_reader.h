// Reads the codes the library found, with zxing-cpp (the Scanner's decode
// option).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scancode/scanner.h"

namespace scancode {

// The text of each box's code, empty where none could be read. A box is read
// in the frame the library handed back when there is one (`returnedNv21`,
// where the code is straightened), else, or when that fails, in the box's
// region of the input frame. Only the luma planes are used.
std::vector<std::string> ReadCodes(const uint8_t* nv21, const uint8_t* returnedNv21, int width,
                                   int height, const std::vector<Box>& boxes);

}  // namespace scancode
