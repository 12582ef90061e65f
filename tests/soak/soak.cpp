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
    std::vector<FrameKind> kinds(3);

    kinds[0].name = "no code";
    kinds[0].nv21 = GreyNV21(size.width, size.height, 90);
    kinds[0].warps = false;
    kinds[0].codes = 0;

    const SceneWithCode scene =
        MakeScene(size, ViewedSquare({960, 540}, 320, 8, 48, 0), "soak", 8, 0.8, 3.0);
    kinds[1].name = "one code, straightened";
    kinds[1].nv21 = ToNV21(scene.frame);
    kinds[1].maps.Place(2, ToInput(scene.box, size.width, size.height));
    kinds[1].warps = true;
    kinds[1].codes = 1;

    kinds[2].name = "two codes";
    kinds[2].nv21 = GreyNV21(size.width, size.height, 90);
    kinds[2].maps.Place(2, ToInput({500, 400, 120, 160}, size.width, size.height));
    kinds[2].maps.Place(2, ToInput({1300, 450, 120, 160}, size.width, size.height));
    kinds[2].warps = false;
    kinds[2].codes = 2;
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

// Growth from the sample at the end of warm-up to the last sample.
struct Samples {
    const char* phase;
    long warm = 0;
    long last = 0;
    void Take(int step, bool warmedUp) {
        last = ResidentKiB();
        if (!warmedUp) warm = last;
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

    // Frames: warm-up is the first tenth, where images and caches settle.
    Samples frameRss{"frame"};
    const int frameWarm = std::max(1, frames / 10);
    const int frameEvery = std::max(1, frames / 20);
    void* handle = nullptr;
    if (Init(&handle) != 0) return 1;
    int warped = 0;
    for (int f = 0; f < frames && ok; ++f) {
        const FrameKind& kind = kinds[f % kinds.size()];
        ok = RunFrame(handle, kind, out);
        warped += kind.warps;
        if (f + 1 == frameWarm || (f + 1) % frameEvery == 0 || f + 1 == frames) {
            frameRss.Take(f + 1, f + 1 > frameWarm);
        }
    }
    if (DeInit(handle) != 0) ok = false;

    // Sessions of two users, each with one frame so that the frame image is
    // allocated and released every time.
    Samples cycleRss{"cycle"};
    const int cycleWarm = std::max(1, cycles / 10);
    const int cycleEvery = std::max(1, cycles / 20);
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
        if (c + 1 == cycleWarm || (c + 1) % cycleEvery == 0 || c + 1 == cycles) {
            cycleRss.Take(c + 1, c + 1 > cycleWarm);
        }
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
