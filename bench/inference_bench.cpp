// The detector's forward pass on every engine the reference adapter can use,
// side by side: each round runs every engine once on the same input, in turn,
// so that a busy machine slows them alike; medians over the rounds of the wall
// and CPU time, the fastest round's wall time (what a quiet machine gives), and
// each over OpenCV dnn's with the same threads and input size.
//
// Where oneDNN was found it is timed too, in float and 8-bit. Debian builds it
// on OpenMP, whose idle workers spin after each layer by default and take the
// core from whichever engine runs next; on a busy machine run the benchmark
// with OMP_WAIT_POLICY=passive.
//
// It also runs each engine over real pictures letterboxed as the library does
// (the sample frames and the photos) and reports the largest difference of the
// 8-bit output codes from dnn's: the engines sum in different orders, so a code
// may sit one step off where a value falls next to a rounding boundary (the
// 8-bit engine's codes, from coarser values, sit much further off).
//
//   inference_bench [--rounds N] [--model FILE] [PICTURE_DIR...]

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <time.h>

#include "engine.h"
#include "model_header.h"
#include "picture_extent.h"
#ifdef SCANCODE_HAVE_ONEDNN
#include "onednn_engine.h"
#endif

namespace {

namespace fs = std::filesystem;
using scanref::Engine;
using scanref::ModelHeader;

constexpr int kSide = 640;

struct Model {
    std::vector<unsigned char> bytes;
    ModelHeader header;
    size_t onnxOffset = 0;
};

bool ReadModel(const std::string& path, Model* m) {
    std::ifstream in(path, std::ios::binary);
    m->bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::string why;
    if (!scanref::ParseModelHeader(m->bytes.data(), m->bytes.size(), &m->header, &m->onnxOffset,
                                   &why)) {
        std::fprintf(stderr, "inference_bench: %s: %s\n", path.c_str(), why.c_str());
        return false;
    }
    return true;
}

// A picture letterboxed into the top-left corner of the 640 x 640 input, as
// the library does, then made the luma blob the adapter hands an engine.
cv::Mat LumaBlob(const cv::Mat& bgr) {
    const double s = std::min(double(kSide) / bgr.cols, double(kSide) / bgr.rows);
    cv::Mat rgb(kSide, kSide, CV_8UC3, cv::Scalar::all(0)), small, luma;
    cv::resize(bgr, small,
               cv::Size(std::max(1, int(bgr.cols * s)), std::max(1, int(bgr.rows * s))));
    cv::cvtColor(small, small, cv::COLOR_BGR2RGB);
    small.copyTo(rgb(cv::Rect(0, 0, small.cols, small.rows)));
    cv::cvtColor(rgb, luma, cv::COLOR_RGB2GRAY);
    const int dims[4] = {1, 1, kSide, kSide};
    return luma.reshape(1, 4, dims).clone();
}

// The blob's picture part, rounded up to the model's crop step, as the adapter runs it.
cv::Mat Cropped(const cv::Mat& blob, int step) {
    const cv::Size e = scanref::PictureExtent(blob.ptr<uint8_t>(), 1, kSide, kSide, step);
    const int dims[4] = {1, 1, e.height, e.width};
    cv::Mat part(4, dims, CV_8U);
    for (int r = 0; r < e.height; ++r)
        std::memcpy(part.ptr<uint8_t>(0, 0, r), blob.ptr<uint8_t>(0, 0, r), e.width);
    return part;
}

using Maker = std::function<std::unique_ptr<Engine>(const ModelHeader&, const unsigned char*, int,
                                                    std::string*)>;

struct Contender {
    std::string name;
    int threads;
    std::unique_ptr<Engine> engine;
};

std::vector<Contender> MakeContenders(const Model& m) {
    std::vector<std::pair<const char*, Maker>> makers = {{"dnn", scanref::MakeDnnEngine},
                                                         {"xnnpack", scanref::MakeXnnpackEngine}};
#ifdef SCANCODE_HAVE_ONEDNN
    makers.emplace_back("onednn", scanref::MakeOnednnEngine);
    // The 8-bit engine's scales come from the sample frames, run as the adapter runs them.
    std::vector<cv::Mat> calibration;
    std::vector<fs::path> samples;
    std::error_code ec;
    for (fs::directory_iterator it(SCANCODE_SOURCE_DIR "/samples", ec), end; !ec && it != end;
         it.increment(ec))
        if (it->path().extension() == ".jpg") samples.push_back(it->path());
    std::sort(samples.begin(), samples.end());
    for (const auto& p : samples) {
        const cv::Mat blob = LumaBlob(cv::imread(p.string(), cv::IMREAD_COLOR));
        calibration.push_back(m.header.cropStep ? Cropped(blob, int(m.header.cropStep)) : blob);
    }
    makers.emplace_back(
        "onednn-int8", [&calibration](const ModelHeader& h, const unsigned char* onnx, int threads,
                                      std::string* why) {
            return scanref::MakeOnednnInt8Engine(h, onnx, threads, calibration, why);
        });
#endif
    std::vector<Contender> all;
    for (int threads : {1, 2}) {
        for (const auto& [name, make] : makers) {
            std::string why;
            auto engine = make(m.header, m.bytes.data() + m.onnxOffset, threads, &why);
            if (engine == nullptr) {
                std::fprintf(stderr, "inference_bench: no %s engine: %s\n", name, why.c_str());
                continue;
            }
            all.push_back({name, threads, std::move(engine)});
        }
    }
    return all;
}

std::vector<uint8_t> Codes(Engine& e, const ModelHeader& h, const cv::Mat& input) {
    std::vector<cv::Mat> out;
    std::string why;
    std::vector<uint8_t> codes;
    if (!e.Run(input, &out, &why)) {
        std::fprintf(stderr, "inference_bench: %s failed: %s\n", e.Name(), why.c_str());
        std::exit(1);
    }
    for (size_t i = 0; i < out.size(); ++i) {
        std::vector<uint8_t> q(out[i].total());
        scanref::QuantizeOutput(out[i].ptr<float>(), q.size(), h.outputs[i], q.data());
        codes.insert(codes.end(), q.begin(), q.end());
    }
    return codes;
}

void CompareCodes(std::vector<Contender>& all, const Model& m,
                  const std::vector<std::string>& dirs) {
    std::vector<fs::path> pictures;
    for (const auto& d : dirs) {
        std::error_code ec;
        for (fs::recursive_directory_iterator it(d, ec), end; !ec && it != end; it.increment(ec))
            if (it->is_regular_file()) pictures.push_back(it->path());
    }
    std::sort(pictures.begin(), pictures.end());
    const int step = static_cast<int>(m.header.cropStep);
    for (auto& c : all) {
        if (c.name == "dnn") continue;
        int largest = 0, frames = 0;
        size_t differing = 0, total = 0;
        for (const auto& p : pictures) {
            const cv::Mat bgr = cv::imread(p.string(), cv::IMREAD_COLOR);
            if (bgr.empty()) continue;
            const cv::Mat blob = LumaBlob(bgr), input = step ? Cropped(blob, step) : blob;
            const auto want = Codes(*all[0].engine, m.header, input),
                       got = Codes(*c.engine, m.header, input);
            for (size_t i = 0; i < want.size(); ++i) {
                const int d = std::abs(int(want[i]) - int(got[i]));
                largest = std::max(largest, d);
                differing += d != 0;
            }
            total += want.size();
            ++frames;
        }
        std::printf(
            "%s, %d thread(s): %d pictures, largest code difference from dnn %d, %zu of %zu codes "
            "differ\n",
            c.name.c_str(), c.threads, frames, largest, differing, total);
    }
}

// Wall time and the whole process's CPU time (every thread's, the pool's
// waiting included) of one run, in milliseconds.
struct Cost {
    double wall, cpu;
};

double CpuMs() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

Cost Measure(Engine& e, const cv::Mat& input, std::vector<cv::Mat>* out) {
    std::string why;
    const double cpu0 = CpuMs();
    const auto t0 = std::chrono::steady_clock::now();
    if (!e.Run(input, out, &why)) {
        std::fprintf(stderr, "inference_bench: %s failed: %s\n", e.Name(), why.c_str());
        std::exit(1);
    }
    const auto t1 = std::chrono::steady_clock::now();
    return {std::chrono::duration<double, std::milli>(t1 - t0).count(), CpuMs() - cpu0};
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void Time(std::vector<Contender>& all, const char* label, const cv::Mat& input, int rounds) {
    std::vector<std::vector<double>> wall(all.size()), cpu(all.size());
    std::vector<cv::Mat> out;
    for (int r = -3; r < rounds; ++r) {  // three rounds of warm-up
        for (size_t i = 0; i < all.size(); ++i) {
            // OpenCV's thread count belongs to the process, not to one dnn engine.
            if (all[i].name == "dnn") cv::setNumThreads(all[i].threads);
            const Cost c = Measure(*all[i].engine, input, &out);
            if (r < 0) continue;
            wall[i].push_back(c.wall);
            cpu[i].push_back(c.cpu);
        }
    }
    std::printf("\n%s (%d x %d), medians of %d interleaved rounds:\n", label, input.size[3],
                input.size[2], rounds);
    std::printf("  %-12s %7s %9s %8s %9s %8s %9s %8s\n", "engine", "threads", "wall ms", "/ dnn",
                "CPU ms", "/ dnn", "best ms", "/ dnn");
    for (size_t i = 0; i < all.size(); ++i) {
        size_t base = i;
        for (size_t j = 0; j < all.size(); ++j)
            if (all[j].name == "dnn" && all[j].threads == all[i].threads) base = j;
        const double best = *std::min_element(wall[i].begin(), wall[i].end());
        const double bestBase = *std::min_element(wall[base].begin(), wall[base].end());
        std::printf("  %-12s %7d %9.3f %8.2f %9.3f %8.2f %9.3f %8.2f\n", all[i].name.c_str(),
                    all[i].threads, Median(wall[i]), Median(wall[i]) / Median(wall[base]),
                    Median(cpu[i]), Median(cpu[i]) / Median(cpu[base]), best, best / bestBase);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string modelPath = SCANCODE_MODEL_FILE;
    int rounds = 200;
    std::vector<std::string> dirs;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--rounds" && i + 1 < argc) {
            rounds = std::max(1, std::atoi(argv[++i]));
        } else if (a == "--model" && i + 1 < argc) {
            modelPath = argv[++i];
        } else if (a.rfind("--", 0) == 0) {
            std::fprintf(stderr,
                         "usage: inference_bench [--rounds N] [--model FILE] [PICTURE_DIR...]\n");
            return 2;
        } else {
            dirs.push_back(a);
        }
    }
    if (dirs.empty())
        dirs = {SCANCODE_SOURCE_DIR "/samples", SCANCODE_SOURCE_DIR "/../shared/data/photos"};
    Model m;
    if (!ReadModel(modelPath, &m)) return 1;
    auto all = MakeContenders(m);
    if (all.empty() || all[0].name != "dnn") return 1;
    for (auto& c : all) {
        std::string why;
        if (!c.engine->Reserve(1, kSide, kSide, &why)) {
            std::fprintf(stderr, "inference_bench: %s: %s\n", c.name.c_str(), why.c_str());
            return 1;
        }
    }
    CompareCodes(all, m, dirs);

    // A 16:9 frame's letterboxed input: the crop is the rows an engine runs.
    cv::Mat frame(720, 1280, CV_8UC3);
    cv::randu(frame, 0, 255);
    const cv::Mat whole = LumaBlob(frame);
    const int step = m.header.cropStep ? static_cast<int>(m.header.cropStep) : kSide;
    Time(all, "16:9 frame, the picture's rows", Cropped(whole, step), rounds);
    Time(all, "whole input", whole, rounds);
    return 0;
}
