// The reference adapter driven exactly as the library drives it: opened with
// dlopen, its eight functions looked up by name and fed hand-built records;
// every case once on each engine the adapter was built with.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

// The adapter's eight functions, as the library declares them.
struct Adapter {
    void* lib = nullptr;
    void* (*createManager)(const void*) = nullptr;
    int (*load)(void*, const void*, int) = nullptr;
    void (*destroyManager)(void*) = nullptr;
    int (*unload)(void*) = nullptr;
    void* (*createTensor)(void*, const void*) = nullptr;
    void* (*getData)(void*) = nullptr;
    int (*run)(void*, const char*, void**, int, void**, int, int) = nullptr;
    void (*destroyTensor)(void*) = nullptr;
};

template <typename T>
void Put(std::vector<unsigned char>& rec, size_t offset, T value) {
    std::memcpy(rec.data() + offset, &value, sizeof(T));
}

// The 64-byte tensor configuration record: N, H, W, C; 0, 4, 1; name; index.
std::vector<unsigned char> TensorRecord(const char* name, int index, int n, int h, int w, int c) {
    std::vector<unsigned char> rec(64, 0xAB);  // bytes the library leaves unwritten hold junk
    const int32_t fields[] = {n, h, w, c, 0, 4, 1};
    for (int i = 0; i < 7; ++i) Put<int32_t>(rec, 4 * i, fields[i]);
    Put<const char*>(rec, 32, name);
    Put<int32_t>(rec, 40, index);
    std::memset(rec.data() + 44, 0, 20);
    return rec;
}

// The 128-byte model descriptor, with the library's fixed fields.
std::vector<unsigned char> ModelDescriptor(const char* name, const void* bytes, int32_t size,
                                           void** inputs, void** outputs, int outputCount) {
    std::vector<unsigned char> rec(128, 0);
    Put<const char*>(rec, 0, name);
    Put<const void*>(rec, 8, bytes);
    Put<int32_t>(rec, 16, size);
    for (auto [offset, value] :
         {std::pair{24, 0x43414645}, {28, 1}, {32, 2}, {56, 1}, {60, outputCount}})
        Put<int32_t>(rec, offset, value);
    Put<void**>(rec, 64, inputs);
    Put<void**>(rec, 72, outputs);
    return rec;
}

std::vector<unsigned char> ManagerConfig() {
    std::vector<unsigned char> rec(64, 0);
    Put<int32_t>(rec, 32, 1);
    Put<int32_t>(rec, 40, 1);
    return rec;
}

std::vector<unsigned char> ReadAll(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The engines a load may pick; the adapter reads the choice when it loads.
const char* const kEngines[] = {
    "dnn",
#ifdef SCANREF_HAVE_XNNPACK
    "xnnpack",
#endif
};

class ReferenceAdapterTest : public ::testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        setenv("SCANREF_ENGINE", GetParam(), 1);
        a.lib = dlopen(SCANREF_ADAPTER_PATH, RTLD_NOW);
        ASSERT_NE(a.lib, nullptr) << dlerror();
        Sym(a.createManager, "NNModelManagerCreateWithConfig");
        Sym(a.load, "NNModelLoadFromBuffer");
        Sym(a.destroyManager, "NNModelManagerDestroy");
        Sym(a.unload, "NNModelUnload");
        Sym(a.createTensor, "NNTensorBufferCreateWithConfig");
        Sym(a.getData, "NNTensorBufferGetData");
        Sym(a.run, "NNModelRun");
        Sym(a.destroyTensor, "NNTensorBufferDestroy");
        model = ReadAll(TINY_MODEL_PATH);
        ASSERT_GT(model.size(), 40u);
        auto config = ManagerConfig();
        manager = a.createManager(config.data());
        ASSERT_NE(manager, nullptr);
    }

    void TearDown() override {
        for (void* t : tensors) a.destroyTensor(t);
        if (manager != nullptr) {
            a.unload(manager);
            a.destroyManager(manager);
        }
        if (a.lib != nullptr) dlclose(a.lib);
        unsetenv("SCANREF_ENGINE");
    }

    template <typename Fn>
    void Sym(Fn& fn, const char* name) {
        fn = reinterpret_cast<Fn>(dlsym(a.lib, name));
        EXPECT_NE(fn, nullptr) << name;
    }

    int Load(const std::vector<unsigned char>& bytes, const char* name = "codeDetect") {
        auto desc = ModelDescriptor(name, bytes.data(), static_cast<int32_t>(bytes.size()), nullptr,
                                    nullptr, 2);
        return a.load(manager, desc.data(), 1);
    }

    void* Tensor(const char* name, int index, int h, int w, int c) {
        auto rec = TensorRecord(name, index, 1, h, w, c);
        void* t = a.createTensor(manager, rec.data());
        if (t != nullptr) tensors.push_back(t);
        return t;
    }

    Adapter a;
    void* manager = nullptr;
    std::vector<unsigned char> model;
    std::vector<void*> tensors;
};

// Pixels (R, G, B) of the 2 x 2 input and the codes worked out by hand from the
// tiny model: "outputs" = (R, -G) with scale 3, zero point -20, so
// q = clamp(round(y / 3) + 20); "_306" = B with scale 0.5, zero point 0, q = clamp(2B).
struct PixelCase {
    uint8_t r, g, b;
    uint8_t q0, q1, q2;
};
const PixelCase kPixels[4] = {
    {0, 0, 0, 20, 20, 0},          // zero sits on the zero point
    {100, 30, 200, 53, 10, 255},   // 2 x 200 clamps at the top
    {255, 31, 127, 105, 10, 254},  // -31 / 3 = -10.33 rounds to -10
    {7, 255, 1, 22, 0, 2},         // -255 / 3 + 20 = -65 clamps at the bottom
};

TEST_P(ReferenceAdapterTest, RunsTheModelAndQuantizesEachOutputWithItsOwnParameters) {
    // The library frees its model bytes right after the load: the adapter must have copied them.
    std::vector<unsigned char> bytes = model;
    ASSERT_EQ(Load(bytes), 0);
    std::fill(bytes.begin(), bytes.end(), 0);
    bytes.clear();
    bytes.shrink_to_fit();

    void* in = Tensor("inputs", 0, 2, 2, 3);
    void* out0 = Tensor("outputs", 0, 2, 2, 2);
    void* out1 = Tensor("_306", 1, 2, 2, 1);
    ASSERT_TRUE(in && out0 && out1);
    auto* px = static_cast<uint8_t*>(a.getData(in));
    for (int i = 0; i < 4; ++i) {
        px[3 * i] = kPixels[i].r;
        px[3 * i + 1] = kPixels[i].g;
        px[3 * i + 2] = kPixels[i].b;
    }
    void* ins[] = {in};
    void* outs[] = {out0, out1};
    ASSERT_EQ(a.run(manager, "codeDetect", ins, 1, outs, 2, 1000), 0);

    const auto* q0 = static_cast<const uint8_t*>(a.getData(out0));
    const auto* q1 = static_cast<const uint8_t*>(a.getData(out1));
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(q0[2 * i], kPixels[i].q0);
        EXPECT_EQ(q0[2 * i + 1], kPixels[i].q1);
        EXPECT_EQ(q1[i], kPixels[i].q2);
    }
}

// A model that reads luma gets OpenCV's 8-bit RGB-to-grey of the library's RGB
// tensor; its one output is 255 x luma with scale 1, so each code is the luma.
// The three primaries tell a swapped channel order apart.
TEST_P(ReferenceAdapterTest, HandsALumaModelTheLumaOfTheRgbTensor) {
    ASSERT_EQ(Load(ReadAll(TINY_LUMA_MODEL_PATH)), 0);
    EXPECT_EQ(Tensor("inputs", 0, 2, 2, 1), nullptr) << "luma is taken from RGB only";
    void* in = Tensor("inputs", 0, 2, 2, 3);
    void* out = Tensor("outputs", 0, 2, 2, 1);
    ASSERT_TRUE(in && out);
    const uint8_t rgb[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {100, 30, 200}};
    const uint8_t luma[4] = {76, 150, 29, 70};
    std::memcpy(a.getData(in), rgb, sizeof(rgb));
    void* ins[] = {in};
    void* outs[] = {out};
    ASSERT_EQ(a.run(manager, "codeDetect", ins, 1, outs, 1, 1000), 0);
    const auto* q = static_cast<const uint8_t*>(a.getData(out));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], luma[i]) << "pixel " << i;
}

// A model with a crop step runs on the picture's part of the input only: the
// rows and columns up to the last non-black one, plus one step, rounded up to
// the step. Its output is the luma plus 10 (zero point -10), so a computed black
// cell reads 10 and a skipped one 0.
TEST_P(ReferenceAdapterTest, RunsACroppableModelOnThePicturesPartOnly) {
    ASSERT_EQ(Load(ReadAll(TINY_CROP_MODEL_PATH)), 0);
    constexpr int kSide = 8;
    void* in = Tensor("inputs", 0, kSide, kSide, 3);
    void* out = Tensor("outputs", 0, kSide, kSide, 1);
    ASSERT_TRUE(in && out);
    const struct {
        const char* what;
        int rows, cols;  // the picture: grey 100 (luma 100) in the top-left corner
        int keptRows, keptCols;
    } cases[] = {
        {"landscape: top rows", 2, 8, 4, 8},
        {"rounded up to the step", 1, 3, 4, 6},
        {"portrait: left columns", 8, 2, 8, 4},
        {"whole input", 8, 8, 8, 8},
        {"all black: one step still runs", 0, 0, 2, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto* px = static_cast<uint8_t*>(a.getData(in));
        std::memset(px, 0, kSide * kSide * 3);
        for (int r = 0; r < c.rows; ++r)
            for (int col = 0; col < c.cols; ++col) std::memset(px + (r * kSide + col) * 3, 100, 3);
        void* ins[] = {in};
        void* outs[] = {out};
        ASSERT_EQ(a.run(manager, "codeDetect", ins, 1, outs, 1, 1000), 0);
        const auto* q = static_cast<const uint8_t*>(a.getData(out));
        for (int r = 0; r < kSide; ++r) {
            for (int col = 0; col < kSide; ++col) {
                const bool picture = r < c.rows && col < c.cols;
                const bool kept = r < c.keptRows && col < c.keptCols;
                EXPECT_EQ(q[r * kSide + col], kept ? (picture ? 110 : 10) : 0)
                    << "cell " << r << "," << col;
            }
        }
    }
}

TEST_P(ReferenceAdapterTest, RejectsBadModelBytes) {
    auto withByte = [&](size_t offset, unsigned char value) {
        auto m = model;
        m[offset] = value;
        return m;
    };
    auto truncated = [&](size_t n) {
        return std::vector<unsigned char>(model.begin(), model.begin() + n);
    };
    auto junkGraph = model;
    std::fill(junkGraph.begin() + 40 + 2 * 24, junkGraph.end(), 0x5A);
    auto noNul = model;
    std::memset(noNul.data() + 40, 'x', 16);  // first output name fills its field, no terminator

    const struct {
        const char* what;
        std::vector<unsigned char> bytes;
    } cases[] = {
        {"empty", {}},
        {"shorter than the fixed header", truncated(20)},
        {"bad magic", withByte(0, 'X')},
        {"unknown version", withByte(4, 3)},
        {"unknown input form", withByte(32, 2)},
        {"crop step not a power of two", withByte(36, 3)},
        {"crop step too large", withByte(37, 8)},
        {"no outputs", withByte(8, 0)},
        {"too many outputs", withByte(8, 200)},
        {"graph cut short", truncated(model.size() - 10)},
        {"output table cut short", truncated(44)},
        {"unterminated output name", noNul},
        {"graph is not ONNX", junkGraph},
        {"output the graph lacks", withByte(40, 'z')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto desc = ModelDescriptor("codeDetect", c.bytes.empty() ? nullptr : c.bytes.data(),
                                    static_cast<int32_t>(c.bytes.size()), nullptr, nullptr, 2);
        EXPECT_NE(a.load(manager, desc.data(), 1), 0);
        EXPECT_EQ(Tensor("inputs", 0, 2, 2, 3), nullptr)
            << "no model may be loaded after a failure";
    }
}

TEST_P(ReferenceAdapterTest, RejectsUnknownOrMalformedTensors) {
    ASSERT_EQ(Load(model), 0);
    const struct {
        const char* what;
        std::vector<unsigned char> rec;
    } cases[] = {
        {"unknown name", TensorRecord("_328", 2, 1, 2, 2, 1)},
        {"output with another output's index", TensorRecord("_306", 0, 1, 2, 2, 1)},
        {"output index out of range", TensorRecord("outputs", 7, 1, 2, 2, 2)},
        {"input with a non-zero index", TensorRecord("inputs", 1, 1, 2, 2, 3)},
        {"zero dimension", TensorRecord("inputs", 0, 1, 0, 2, 3)},
        {"negative dimension", TensorRecord("inputs", 0, 1, 2, -2, 3)},
        {"absurd size", TensorRecord("inputs", 0, 1, 65536, 65536, 3)},
        {"input with more channels than a picture", TensorRecord("inputs", 0, 1, 2, 2, 600)},
        {"null name", TensorRecord(nullptr, 0, 1, 2, 2, 3)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(a.createTensor(manager, c.rec.data()), nullptr);
    }
    auto rank3 = TensorRecord("inputs", 0, 1, 2, 2, 3);
    Put<int32_t>(rank3, 20, 3);
    EXPECT_EQ(a.createTensor(manager, rank3.data()), nullptr);
}

// The engines sum in different orders, so a code may sit one step off where a
// value falls next to a rounding boundary; never more, and rarely.
TEST_P(ReferenceAdapterTest, AgreesWithOpenCvDnnOnTheTrainedDetector) {
    if (std::string(GetParam()) == "dnn") GTEST_SKIP() << "dnn is the yardstick";
    const auto detector = ReadAll(SCANCODE_MODEL_FILE);
    const cv::Mat picture = cv::imread(SCANCODE_SAMPLE_PICTURE, cv::IMREAD_COLOR);
    ASSERT_FALSE(picture.empty());
    constexpr int kSide = 640;
    cv::Mat rgb(kSide, kSide, CV_8UC3, cv::Scalar::all(0)), part;
    cv::resize(picture, part, cv::Size(kSide, kSide * picture.rows / picture.cols));
    cv::cvtColor(part, rgb(cv::Rect(0, 0, part.cols, part.rows)), cv::COLOR_BGR2RGB);

    const struct {
        const char* name;
        int side;
    } heads[] = {{"outputs", 80}, {"_306", 40}, {"_328", 20}, {"_350", 10}, {"_372", 5}};
    std::vector<std::vector<uint8_t>> codes[2];
    const char* engines[2] = {"dnn", GetParam()};
    for (int e = 0; e < 2; ++e) {
        const char* engine = engines[e];
        setenv("SCANREF_ENGINE", engine, 1);
        ASSERT_EQ(Load(detector), 0) << engine;
        void* in = Tensor("inputs", 0, kSide, kSide, 3);
        std::vector<void*> outs;
        for (int i = 0; i < 5; ++i)
            outs.push_back(Tensor(heads[i].name, i, heads[i].side, heads[i].side, 6));
        std::memcpy(a.getData(in), rgb.data, rgb.total() * 3);
        void* ins[] = {in};
        ASSERT_EQ(a.run(manager, "codeDetect", ins, 1, outs.data(), 5, 1000), 0) << engine;
        auto& mine = codes[e];
        for (int i = 0; i < 5; ++i) {
            const auto* q = static_cast<const uint8_t*>(a.getData(outs[i]));
            mine.emplace_back(q, q + heads[i].side * heads[i].side * 6);
        }
        for (void* t : tensors) a.destroyTensor(t);
        tensors.clear();
        ASSERT_EQ(a.unload(manager), 0);
    }
    size_t differing = 0, total = 0;
    for (int i = 0; i < 5; ++i) {
        for (size_t k = 0; k < codes[0][i].size(); ++k) {
            ASSERT_LE(std::abs(codes[0][i][k] - codes[1][i][k]), 1)
                << heads[i].name << " value " << k;
            differing += codes[0][i][k] != codes[1][i][k];
        }
        total += codes[0][i].size();
    }
    EXPECT_LE(differing * 1000, total) << differing << " of " << total << " codes differ";
}

INSTANTIATE_TEST_SUITE_P(Engines, ReferenceAdapterTest, ::testing::ValuesIn(kEngines),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });

// Which engine runs a model: the fast one where it can, dnn for any other
// graph, and a named engine or none.
TEST(ReferenceAdapterEngines, PicksAnEngineThatRunsTheGraphOrFailsTheLoad) {
    struct Case {
        const char* what;
        const char* engine;  // SCANREF_ENGINE, or null for unset
        const char* model;
        bool loads;
    };
    std::vector<Case> cases = {
        {"a graph only dnn reads, no choice", nullptr, TINY_SCALE_MODEL_PATH, true},
        {"an empty choice is no choice", "", TINY_SCALE_MODEL_PATH, true},
        {"a graph only dnn reads, dnn named", "dnn", TINY_SCALE_MODEL_PATH, true},
        {"an unknown engine", "tpu", TINY_LUMA_MODEL_PATH, false},
#ifdef SCANREF_HAVE_XNNPACK
        {"a graph only dnn reads, xnnpack named", "xnnpack", TINY_SCALE_MODEL_PATH, false},
        {"a convolution, xnnpack named", "xnnpack", TINY_LUMA_MODEL_PATH, true},
#else
        {"xnnpack named, but not built in", "xnnpack", TINY_LUMA_MODEL_PATH, false},
#endif
    };
    void* lib = dlopen(SCANREF_ADAPTER_PATH, RTLD_NOW);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto create =
        reinterpret_cast<void* (*)(const void*)>(dlsym(lib, "NNModelManagerCreateWithConfig"));
    auto load =
        reinterpret_cast<int (*)(void*, const void*, int)>(dlsym(lib, "NNModelLoadFromBuffer"));
    auto destroy = reinterpret_cast<void (*)(void*)>(dlsym(lib, "NNModelManagerDestroy"));
    ASSERT_TRUE(create && load && destroy);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.engine == nullptr) {
            unsetenv("SCANREF_ENGINE");
        } else {
            setenv("SCANREF_ENGINE", c.engine, 1);
        }
        const auto bytes = ReadAll(c.model);
        auto config = ManagerConfig();
        void* manager = create(config.data());
        auto desc = ModelDescriptor("codeDetect", bytes.data(), static_cast<int32_t>(bytes.size()),
                                    nullptr, nullptr, 1);
        EXPECT_EQ(load(manager, desc.data(), 1) == 0, c.loads);
        destroy(manager);
    }
    unsetenv("SCANREF_ENGINE");
    dlclose(lib);
}

}  // namespace
