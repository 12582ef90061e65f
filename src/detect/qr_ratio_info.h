#pragma once

#include "scancode.h"  // ZoomInfoResult

// Limits of the zoom suggestion, filled by the entry layer for every frame.
struct QRRatioInfo {
    float minQRRatio;    // carried along; not used
    float maxQRRatio;    // largest code side over the zoomed view's short side
    float minEdgeRatio;  // smallest code-to-edge distance over the zoomed view's short side
};
