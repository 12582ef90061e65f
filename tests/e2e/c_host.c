/* A host written in C: opens the library, runs one grey frame and closes it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "scancode.h"

int main(void) {
    enum { kWidth = 640, kHeight = 480 };
    static uint8_t frame[kWidth * kHeight * 3 / 2];
    static uint8_t out[kWidth * kHeight * 3 / 2];
    memset(frame, 128, sizeof frame);
    memset(out, 0xAB, sizeof out);

    void* handle = NULL;
    if (Init(&handle) != 0 || handle == NULL) return 1;
    ZoomInfoResult zoom = {1.0f, 0.0f};
    WarpPicInfo pic = {out, true};
    /* Nothing to find in a grey frame: -1, and nothing handed back. */
    const int32_t rc = Process(handle, frame, kWidth, kHeight, kWidth, kHeight, &zoom, &pic);
    if (rc != -1 || pic.sendWarpPic || out[0] != 0xAB) {
        fprintf(stderr, "unexpected result %d, sendWarpPic %d\n", rc, pic.sendWarpPic);
        return 1;
    }
    return DeInit(handle) == 0 ? 0 : 1;
}
