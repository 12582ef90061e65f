#include "frame_source.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

bool IsPicture(const fs::path& p) {
    static const char* const kExt[] = {".png", ".jpg", ".jpeg", ".bmp", ".tif", ".tiff", ".webp"};
    const std::string ext = Lower(p.extension().string());
    return std::find(std::begin(kExt), std::end(kExt), ext) != std::end(kExt);
}

bool IsRaw(const fs::path& p) {
    const std::string ext = Lower(p.extension().string());
    return ext == ".nv21" || ext == ".yuv";
}

class PictureList : public FrameSource {
  public:
    explicit PictureList(std::vector<std::string> files) : files_(std::move(files)) {}
    bool Next(Frame& frame) override {
        while (next_ < files_.size()) {
            const std::string& file = files_[next_++];
            const cv::Mat bgr = cv::imread(file, cv::IMREAD_COLOR);
            if (bgr.empty() || !ToNV21Frame(bgr, frame)) continue;  // unreadable or too small
            frame.name = file;
            return true;
        }
        return false;
    }
    int Count() const override { return static_cast<int>(files_.size()); }

  private:
    std::vector<std::string> files_;
    size_t next_ = 0;
};

class Video : public FrameSource {
  public:
    Video(const std::string& path, cv::VideoCapture capture)
        : path_(path), capture_(std::move(capture)) {}
    bool Next(Frame& frame) override {
        cv::Mat bgr;
        if (!capture_.read(bgr) || !ToNV21Frame(bgr, frame)) return false;
        frame.name = path_ + "#" + std::to_string(index_++);
        return true;
    }
    int Count() const override {
        return std::max(0, static_cast<int>(capture_.get(cv::CAP_PROP_FRAME_COUNT)));
    }

  private:
    std::string path_;
    mutable cv::VideoCapture capture_;
    int index_ = 0;
};

class RawFile : public FrameSource {
  public:
    RawFile(const std::string& path, cv::Size size, size_t frames)
        : path_(path), in_(path, std::ios::binary), size_(size), frames_(frames) {}
    bool Next(Frame& frame) override {
        if (index_ >= frames_) return false;
        frame.width = size_.width;
        frame.height = size_.height;
        frame.nv21.resize(static_cast<size_t>(size_.area()) * 3 / 2);
        if (!in_.read(reinterpret_cast<char*>(frame.nv21.data()), frame.nv21.size())) return false;
        frame.name = path_ + "#" + std::to_string(index_++);
        return true;
    }
    int Count() const override { return static_cast<int>(frames_); }

  private:
    std::string path_;
    std::ifstream in_;
    cv::Size size_;
    size_t frames_;
    size_t index_ = 0;
};

}  // namespace

bool ToNV21Frame(const cv::Mat& bgr, Frame& frame) {
    const int width = bgr.cols / 16 * 16;
    const int height = bgr.rows / 2 * 2;
    if (width < 16 || height < 2) return false;
    cv::Mat i420;
    cv::cvtColor(bgr(cv::Rect(0, 0, width, height)), i420, cv::COLOR_BGR2YUV_I420);
    const size_t luma = static_cast<size_t>(width) * height;
    frame.width = width;
    frame.height = height;
    frame.nv21.resize(luma * 3 / 2);
    const uint8_t* y = i420.ptr<uint8_t>();
    const uint8_t* u = y + luma;
    const uint8_t* v = u + luma / 4;
    std::copy(y, y + luma, frame.nv21.begin());
    for (size_t i = 0; i < luma / 4; ++i) {
        frame.nv21[luma + 2 * i] = v[i];
        frame.nv21[luma + 2 * i + 1] = u[i];
    }
    return true;
}

cv::Mat FromNV21(const uint8_t* nv21, int width, int height) {
    cv::Mat bgr;
    cv::cvtColor(cv::Mat(height * 3 / 2, width, CV_8UC1, const_cast<uint8_t*>(nv21)), bgr,
                 cv::COLOR_YUV2BGR_NV21);
    return bgr;
}

std::unique_ptr<FrameSource> OpenFrameSource(const std::string& path, cv::Size rawSize,
                                             std::string& error) {
    std::error_code ec;
    if (fs::is_directory(path, ec)) {
        std::vector<std::string> files;
        for (const auto& entry : fs::directory_iterator(path, ec)) {
            if (entry.is_regular_file() && IsPicture(entry.path())) files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        if (files.empty()) error = "no pictures in " + path;
        return files.empty() ? nullptr : std::make_unique<PictureList>(std::move(files));
    }
    if (!fs::is_regular_file(path, ec)) {
        error = "cannot read " + path;
        return nullptr;
    }
    if (IsPicture(path)) return std::make_unique<PictureList>(std::vector<std::string>{path});
    if (IsRaw(path)) {
        if (rawSize.width < 16 || rawSize.width % 16 != 0 || rawSize.height < 2 ||
            rawSize.height % 2 != 0) {
            error =
                "raw NV21 needs --size WxH with a width that is a multiple of 16 and an even "
                "height";
            return nullptr;
        }
        const size_t frameBytes = static_cast<size_t>(rawSize.area()) * 3 / 2;
        const size_t frames = fs::file_size(path, ec) / frameBytes;
        if (frames == 0) error = path + " holds no whole frame of that size";
        return frames == 0 ? nullptr : std::make_unique<RawFile>(path, rawSize, frames);
    }
    cv::VideoCapture capture(path);
    if (!capture.isOpened()) {
        error = "cannot open " + path + " as a picture, raw NV21 or video";
        return nullptr;
    }
    return std::make_unique<Video>(path, std::move(capture));
}
