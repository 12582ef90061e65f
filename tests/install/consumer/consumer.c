/* Runs one raw NV21 frame through an installed scancode:
 *   consumer FRAME.nv21 WIDTH HEIGHT
 * Exits 0 when Init succeeds and Process finds the frame's code (0 or -2). */
#include <scancode.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: consumer FRAME.nv21 WIDTH HEIGHT\n");
        return 2;
    }
    const int width = atoi(argv[2]), height = atoi(argv[3]);
    const size_t bytes = (size_t)width * height * 3 / 2;
    uint8_t* frame = malloc(bytes);
    uint8_t* returned = malloc(bytes);
    FILE* file = fopen(argv[1], "rb");
    if (!frame || !returned || !file || fread(frame, 1, bytes, file) != bytes) {
        fprintf(stderr, "consumer: cannot read %zu bytes of %s\n", bytes, argv[1]);
        return 2;
    }
    fclose(file);

    void* handle = NULL;
    const int32_t init = Init(&handle);
    ZoomInfoResult zoom = {-1.0f, -1.0f};
    WarpPicInfo pic = {returned, false};
    const int32_t rc =
        init == 0 ? Process(handle, frame, width, height, width, height, &zoom, &pic) : -1;
    const int32_t deinit = DeInit(handle);
    printf("consumer: Init %d, Process %d, bestZoom %.3f, DeInit %d\n", init, rc, zoom.bestZoom,
           deinit);
    free(frame);
    free(returned);
    return init == 0 && (rc == 0 || rc == -2) && deinit == 0 ? 0 : 1;
}
