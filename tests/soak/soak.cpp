// Soak run of the shared library as a host drives it: many 1920 x 1080 frames
// through Process (no code, one tilted code that gets straightened, two
// codes), then many sessions of two users opening and closing it, with the
// resident memory sampled along the way. Prints the samples and the growth;
// fails when a frame does not come out as its kind should, or, with
// --max-growth-kib, when memory grows by more than that after warm-up.
//
//   soak [--frames N] [--cycles N] [--max-growth-kib K]
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "e2e_support.h"
#include "host_shim.h"
#include "qr_render.h"
#include "scancode.h"

namespace {

using namespace scancode_test;

long ResidentKiB() {
    long pages = 0, resident = 0;
    if (FILE* f = fopen("/proc/self/statm", "r")) {
        if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct FrameKind {
    const char* name;
    std::vector<uint8_t> nv21;
    OutputMaps maps;
    bool warps;  // the frame must come back straightened
    int codes;   // boxes the network reports
};

std::vector<FrameKind> MakeKinds() {
    const cv::Size size(1920, 1080);
    const SceneWithCode scene =
        MakeScene(size, ViewedSquare({960, 540}, 320, 8, 48, 0), "soak", 8, 0.8, 3.0);
    std::vector<FrameKind> kinds = {
        {"no code", GreyNV21(size.width, size.height, 90), {}, false, 0},
        {"one code, straightened", ToNV21(scene.frame), {}, true, 1},
        {"two codes", GreyNV21(size.width, size.height, 90), {}, false, 2},
    };
    kinds[1].maps.Place(2, ToInput(scene.box, size.width, size.height));
    kinds[2].maps.Place(2, ToInput({500, 400, 120, 160}, size.width, size.height));
    kinds[2].maps.Place(2, ToInput({1300, 450, 120, 160}, size.width, size.height));
    return kinds;
}

bool RunFrame(void* handle, const FrameKind& kind, std::vector<uint8_t>& out) {
    kind.maps.Serve();
    ZoomInfoResult zoom{1.0f, 0.0f};
    WarpPicInfo pic{out.data(), false};
    const int rc = Process(handle, kind.nv21.data(), 1920, 1080, 1920, 1080, &zoom, &pic);
    // The adapter records every call; a long run must not keep them.
    ScriptedAdapterClearCalls();
    const bool rcOk = kind.codes == 0 ? rc == -1 : (rc == 0 || rc == -2);
    if (!rcOk || pic.sendWarpPic != kind.warps) {
        fprintf(stderr, "soak: frame '%s' gave %d, sendWarpPic %d\n", kind.name, rc,
                pic.sendWarpPic);
        return false;
    }
    return true;
}

// Resident memory at the end of warm-up (the first tenth of `total` steps),
// every twentieth of the run and at its end; growth is from warm-up's end.
struct Samples {
    const char* phase;
    int total;
    long warm = 0;
    long last = 0;
    void At(int step) {
        const int warmEnd = std::max(1, total / 10);
        if (step != warmEnd && step % std::max(1, total / 20) != 0 && step != total) return;
        last = ResidentKiB();
        if (step <= warmEnd) warm = last;
        printf("%s %6d  rss %8ld KiB\n", phase, step, last);
        fflush(stdout);
    }
    long Growth() const { return last - warm; }
};

}  // namespace

int main(int argc, char** argv) {
    int frames = 10000;
    int cycles = 1000;
    long maxGrowth = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!strcmp(argv[i], "--frames")) {
            frames = atoi(argv[i + 1]);
        } else if (!strcmp(argv[i], "--cycles")) {
            cycles = atoi(argv[i + 1]);
        } else if (!strcmp(argv[i], "--max-growth-kib")) {
            maxGrowth = atol(argv[i + 1]);
        } else {
            fprintf(stderr, "usage: soak [--frames N] [--cycles N] [--max-growth-kib K]\n");
            return 2;
        }
    }
    // A frame's info lines would dominate the run.
    ScanHostSetLogSink([](int, const char*, const char*, void*) {}, nullptr);
    const std::vector<FrameKind> kinds = MakeKinds();
    std::vector<uint8_t> out(1920 * 1080 * 3 / 2);
    bool ok = true;

    // Frames: warm-up is where images and caches settle.
    Samples frameRss{"frame", frames};
    void* handle = nullptr;
    if (Init(&handle) != 0) return 1;
    int warped = 0;
    for (int f = 0; f < frames && ok; ++f) {
        const FrameKind& kind = kinds[f % kinds.size()];
        ok = RunFrame(handle, kind, out);
        warped += kind.warps;
        frameRss.At(f + 1);
    }
    if (DeInit(handle) != 0) ok = false;

    // Sessions of two users, each with one frame so that the frame image is
    // allocated and released every time.
    Samples cycleRss{"cycle", cycles};
    for (int c = 0; c < cycles && ok; ++c) {
        void* first = nullptr;
        void* second = nullptr;
        ok = Init(&first) == 0 && Init(&second) == 0;
        ok = ok && RunFrame(first, kinds[c % kinds.size()], out);
        ok = ok && DeInit(first) == 0 && DeInit(second) == 0;
        if (ok && (ScriptedAdapterLiveManagers() != 0 || ScriptedAdapterLiveTensors() != 0)) {
            fprintf(stderr, "soak: the adapter holds objects after the last DeInit\n");
            ok = false;
        }
        cycleRss.At(c + 1);
    }

    printf("frames %d (%d straightened): rss growth after warm-up %ld KiB\n", frames, warped,
           frameRss.Growth());
    printf("cycles %d: rss growth after warm-up %ld KiB\n", cycles, cycleRss.Growth());
    if (maxGrowth > 0 && (frameRss.Growth() > maxGrowth || cycleRss.Growth() > maxGrowth)) {
        fprintf(stderr, "soak: resident memory grew by more than %ld KiB\n", maxGrowth);
        ok = false;
    }
    return ok ? 0 : 1;
}
