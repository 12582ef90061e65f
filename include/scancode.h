/*
 * scancode: finds QR codes in NV21 camera preview frames, suggests a zoom that
 * keeps them whole and clear of the edges, and straightens a code seen at an
 * angle in place.
 *
 *   void* handle = NULL;
 *   Init(&handle);                                   // once per user
 *   ZoomInfoResult zoom = {1.0f, 0.0f};
 *   WarpPicInfo out = {nv21_out, false};             // nv21_out: width*height*3/2 bytes
 *   int32_t rc = Process(handle, nv21, width, height, width, height, &zoom, &out);
 *   // rc 0: zoom suggestion in `zoom` (or not exactly one code),
 *   //    -1: nothing usable found or bad input, -2: one code but no zoom fits.
 *   // out.sendWarpPic: nv21_out holds the frame with the code straightened.
 *   DeInit(handle);                                  // once per Init
 *
 * Calls to Process must not overlap. Usable from C and C++.
 */
#ifndef SCANCODE_H
#define SCANCODE_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#define SCANCODE_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Zoom suggestion, written only when a zoom fits. */
typedef struct ZoomInfoResult {
    float bestZoom;     /* share of the frame's width and height to show, centred; 1.0 = no zoom */
    float maxEdgeRatio; /* largest code-to-view-edge distance over the zoomed view's short side */
} ZoomInfoResult;

/* The host's output record; only these two fields are touched. */
typedef struct WarpPicInfo {
    /* Receives the whole frame as NV21 when a code was straightened:
     * width * height * 3 / 2 bytes for even heights; an odd height needs
     * width * (height + (height + 1) / 2) bytes (chroma for the last row). */
    uint8_t* nv21Data;
    bool sendWarpPic; /* 1 when nv21Data was filled this frame */
} WarpPicInfo;

/* Loads the model (first user) and hands out the library's one handle. */
SCANCODE_API int32_t Init(void** handle);

/* Runs one tightly packed NV21 frame of width x height. inputWidth and
 * inputHeight are only checked to be at least 1. */
SCANCODE_API int32_t Process(void* handle, const uint8_t* frameData, int32_t inputWidth,
                             int32_t inputHeight, int32_t width, int32_t height,
                             ZoomInfoResult* zoomResult, WarpPicInfo* warpPic);

/* Releases one user; the last one unloads the model. */
SCANCODE_API int32_t DeInit(void* handle);

/* Flags a host may set. */
SCANCODE_API extern bool isDebug;     /* draw boxes into the library's debug frame copy */
SCANCODE_API extern bool g_cancelRun; /* end the current and later frames with -1 after inference */

#ifdef __cplusplus
}
#endif

#endif /* SCANCODE_H */
