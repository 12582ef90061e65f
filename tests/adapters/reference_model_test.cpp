// The committed detector through the reference adapter, fed the records the
// library builds and read back the way the library reads it: the outputs are
// dequantized with the library's fixed parameters, cells below the logit
// threshold dropped and every box touching a better one suppressed. Plain,
// frontal codes must come out as exactly one box each.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qrencode.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Box {
    float x0, y0, x1, y1, score;
};

template <typename T>
void Put(std::vector<unsigned char>& rec, size_t offset, T value) {
    std::memcpy(rec.data() + offset, &value, sizeof(T));
}

std::vector<unsigned char> TensorRecord(const char* name, int index, int h, int w, int c) {
    std::vector<unsigned char> rec(64, 0);
    const int32_t dims[4] = {1, h, w, c};
    std::memcpy(rec.data(), dims, sizeof(dims));
    Put<int32_t>(rec, 20, 4);
    Put<int32_t>(rec, 24, 1);
    Put<const char*>(rec, 32, name);
    Put<int32_t>(rec, 40, index);
    return rec;
}

constexpr int kSide = 640;
constexpr int kGrids[5] = {80, 40, 20, 10, 5};
constexpr int kStrides[5] = {8, 16, 32, 64, 128};
constexpr int kZeroPoints[5] = {-189, -221, -178, -168, -255};
constexpr float kScales[5] = {0.06613318622112274f, 0.15657134354114532f, 0.07030908763408661f,
                              0.07131850719451904f, 0.0829123929142952f};
const char* const kNames[5] = {"outputs", "_306", "_328", "_350", "_372"};

float Overlap(const Box& a, const Box& b) {
    const float iw = std::max(0.0f, std::min(a.x1, b.x1) - std::max(a.x0, b.x0) + 1.0f);
    const float ih = std::max(0.0f, std::min(a.y1, b.y1) - std::max(a.y0, b.y0) + 1.0f);
    const float inter = iw * ih;
    const float uni =
        (a.x1 - a.x0 + 1) * (a.y1 - a.y0 + 1) + (b.x1 - b.x0 + 1) * (b.y1 - b.y0 + 1) - inter;
    return uni > 0 ? inter / uni : 0.0f;
}

float Iou(const Box& a, const Box& b) {
    const float iw = std::max(0.0f, std::min(a.x1, b.x1) - std::max(a.x0, b.x0));
    const float ih = std::max(0.0f, std::min(a.y1, b.y1) - std::max(a.y0, b.y0));
    const float inter = iw * ih;
    return inter / ((a.x1 - a.x0) * (a.y1 - a.y0) + (b.x1 - b.x0) * (b.y1 - b.y0) - inter);
}

// A code of `modules` px per module with a 4-module quiet zone, top-left at (x, y).
Box DrawCode(std::vector<uint8_t>& img, const char* text, int module, int x, int y) {
    QRcode* code = QRcode_encodeString(text, 0, QR_ECLEVEL_M, QR_MODE_8, 1);
    EXPECT_NE(code, nullptr);
    const int n = code->width;
    const int quiet = 4 * module;
    const int side = n * module + 2 * quiet;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) {
            const int mr = (r - quiet) / module, mc = (c - quiet) / module;
            const bool inside = r >= quiet && c >= quiet && mr < n && mc < n;
            const bool dark = inside && (code->data[mr * n + mc] & 1);
            uint8_t* px = &img[3 * ((y + r) * kSide + x + c)];
            px[0] = px[1] = px[2] = dark ? 30 : 225;
        }
    }
    QRcode_free(code);
    const float x0 = float(x + quiet), y0 = float(y + quiet);
    return {x0, y0, x0 + n * module, y0 + n * module, 0};
}

class ReferenceModelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        lib = dlopen(SCANREF_ADAPTER_PATH, RTLD_NOW);
        ASSERT_NE(lib, nullptr) << dlerror();
        std::ifstream in(SCANREF_MODEL_PATH, std::ios::binary);
        std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(in),
                                         std::istreambuf_iterator<char>()};
        ASSERT_FALSE(bytes.empty()) << SCANREF_MODEL_PATH;

        std::vector<unsigned char> config(64, 0);
        Put<int32_t>(config, 32, 1);
        Put<int32_t>(config, 40, 1);
        manager = Fn<void* (*)(const void*)>("NNModelManagerCreateWithConfig")(config.data());
        ASSERT_NE(manager, nullptr);

        // Like the library: every descriptor pointer names one record, the last output's.
        auto last = TensorRecord("_372", 4, 5, 5, 6);
        auto input = TensorRecord("inputs", 0, kSide, kSide, 3);
        void* ins[1] = {input.data()};
        void* outs[5] = {last.data(), last.data(), last.data(), last.data(), last.data()};
        std::vector<unsigned char> desc(128, 0);
        Put<const char*>(desc, 0, "codeDetect");
        Put<const void*>(desc, 8, bytes.data());
        Put<int32_t>(desc, 16, static_cast<int32_t>(bytes.size()));
        Put<int32_t>(desc, 24, 0x43414645);
        Put<int32_t>(desc, 28, 1);
        Put<int32_t>(desc, 32, 2);
        Put<int32_t>(desc, 56, 1);
        Put<int32_t>(desc, 60, 5);
        Put<void**>(desc, 64, ins);
        Put<void**>(desc, 72, outs);
        ASSERT_EQ(
            Fn<int (*)(void*, const void*, int)>("NNModelLoadFromBuffer")(manager, desc.data(), 1),
            0);

        auto create = Fn<void* (*)(void*, const void*)>("NNTensorBufferCreateWithConfig");
        input = TensorRecord("inputs", 0, kSide, kSide, 3);
        inTensor = create(manager, input.data());
        ASSERT_NE(inTensor, nullptr);
        for (int i = 0; i < 5; ++i) {
            auto rec = TensorRecord(kNames[i], i, kGrids[i], kGrids[i], 6);
            outTensors[i] = create(manager, rec.data());
            ASSERT_NE(outTensors[i], nullptr) << kNames[i];
        }
    }

    void TearDown() override {
        auto destroy = Fn<void (*)(void*)>("NNTensorBufferDestroy");
        destroy(inTensor);
        for (void* t : outTensors) destroy(t);
        if (manager != nullptr) {
            Fn<int (*)(void*)>("NNModelUnload")(manager);
            Fn<void (*)(void*)>("NNModelManagerDestroy")(manager);
        }
        if (lib != nullptr) dlclose(lib);
    }

    template <typename F>
    F Fn(const char* name) {
        void* f = dlsym(lib, name);
        EXPECT_NE(f, nullptr) << name;
        return reinterpret_cast<F>(f);
    }

    // Runs the model on a 640 x 640 RGB input and decodes it as the library does.
    std::vector<Box> Detect(const std::vector<uint8_t>& img) {
        auto getData = Fn<void* (*)(void*)>("NNTensorBufferGetData");
        std::memcpy(getData(inTensor), img.data(), img.size());
        void* ins[1] = {inTensor};
        EXPECT_EQ(Fn<int (*)(void*, const char*, void**, int, void**, int, int)>("NNModelRun")(
                      manager, "codeDetect", ins, 1, outTensors, 5, 1000),
                  0);
        std::vector<Box> cands;
        for (int h = 0; h < 5; ++h) {
            const auto* q = static_cast<const uint8_t*>(getData(outTensors[h]));
            const int g = kGrids[h], half = kStrides[h] / 2;
            for (int cell = 0; cell < g * g; ++cell) {
                float v[5];
                for (int k = 0; k < 5; ++k)
                    v[k] = float(q[cell * 6 + k] + kZeroPoints[h]) * kScales[h];
                if (double(v[4]) < -0.8473) continue;
                const float cx = float(half + (cell % g) * kStrides[h]);
                const float cy = float(half + (cell / g) * kStrides[h]);
                cands.push_back({cx - std::exp(v[0]), cy - std::exp(v[1]), cx + std::exp(v[2]),
                                 cy + std::exp(v[3]), v[4]});
            }
        }
        std::stable_sort(cands.begin(), cands.end(),
                         [](const Box& a, const Box& b) { return a.score > b.score; });
        std::vector<Box> kept;
        for (const Box& b : cands) {
            bool touches = false;
            for (const Box& k : kept) touches = touches || Overlap(b, k) > 0.0f;
            if (!touches) kept.push_back(b);
        }
        return kept;
    }

    void* lib = nullptr;
    void* manager = nullptr;
    void* inTensor = nullptr;
    void* outTensors[5] = {};
};

// A 16:9 frame as the library letterboxes it: 640 x 360 of picture, black below.
std::vector<uint8_t> Scene() {
    std::vector<uint8_t> img(kSide * kSide * 3, 0);
    std::fill(img.begin(), img.begin() + 360 * kSide * 3, uint8_t(110));
    return img;
}

TEST_F(ReferenceModelTest, AnEmptySceneGivesNoBox) {
    EXPECT_TRUE(Detect(Scene()).empty());
}

TEST_F(ReferenceModelTest, EachPlainCodeGivesExactlyOneBoxOnIt) {
    const struct {
        const char* what;
        std::vector<std::tuple<const char*, int, int, int>> codes;  // text, module px, x, y
    } cases[] = {
        {"small", {{"scancode", 3, 250, 120}}},
        {"medium", {{"https://example.org/a", 5, 200, 80}}},
        {"large", {{"https://example.org/some/longer/path?q=1", 7, 150, 20}}},
        {"two apart", {{"left", 4, 60, 100}, {"right", 4, 400, 100}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto img = Scene();
        std::vector<Box> truth;
        for (const auto& [text, module, x, y] : c.codes)
            truth.push_back(DrawCode(img, text, module, x, y));
        auto found = Detect(img);
        ASSERT_EQ(found.size(), truth.size());
        for (const Box& t : truth) {
            float best = 0;
            for (const Box& f : found) best = std::max(best, Iou(t, f));
            EXPECT_GE(best, 0.5f) << "code at " << t.x0 << "," << t.y0;
        }
    }
}

}  // namespace
