#include "frame_source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace fs = std::filesystem;

namespace {

// The library's conversions work in 16-pixel steps over pairs of rows.
constexpr int kWidthStep = 16;

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

// Why `path` gives no picture; empty when it does (`frame` then holds it).
std::string ReadPicture(const std::string& path, Frame& frame) {
    std::error_code ec;
    const auto size = fs::file_size(path, ec);
    if (ec) return path + ": cannot read (" + ec.message() + ")";
    if (size == 0) return path + ": empty file";
    if (FILE* file = fopen(path.c_str(), "rb")) {
        fclose(file);
    } else {
        return path + ": cannot read (" + strerror(errno) + ")";
    }
    const cv::Mat bgr = cv::imread(path, cv::IMREAD_COLOR);
    if (bgr.empty()) return path + ": not a picture that can be decoded";
    if (!ToNV21Frame(bgr, frame)) {
        return path + ": picture too small (" + std::to_string(bgr.cols) + "x" +
               std::to_string(bgr.rows) + ")";
    }
    frame.name = path;
    return {};
}

class PictureList : public FrameSource {
  public:
    explicit PictureList(std::vector<std::string> files) : files_(std::move(files)) {}
    NextStatus Next(Frame& frame, std::string& error) override {
        if (next_ >= files_.size()) return NextStatus::kEnd;
        error = ReadPicture(files_[next_++], frame);
        return error.empty() ? NextStatus::kFrame : NextStatus::kFailed;
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
    NextStatus Next(Frame& frame, std::string& error) override {
        cv::Mat bgr;
        if (!capture_.read(bgr)) {
            if (index_ > 0) return NextStatus::kEnd;
            error = path_ + ": no frame could be read from the video";
            ++index_;  // reported once
            return NextStatus::kFailed;
        }
        const std::string name = path_ + "#" + std::to_string(index_++);
        if (!ToNV21Frame(bgr, frame)) {
            error = name + ": frame too small";
            return NextStatus::kFailed;
        }
        frame.name = name;
        return NextStatus::kFrame;
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
    NextStatus Next(Frame& frame, std::string& error) override {
        if (index_ >= frames_) return NextStatus::kEnd;
        frame.width = size_.width;
        frame.height = size_.height;
        frame.nv21.resize(static_cast<size_t>(size_.area()) * 3 / 2);
        frame.name = path_ + "#" + std::to_string(index_++);
        if (!in_.read(reinterpret_cast<char*>(frame.nv21.data()), frame.nv21.size())) {
            error = frame.name + ": read failed";
            index_ = frames_;  // the rest cannot be read either
            return NextStatus::kFailed;
        }
        return NextStatus::kFrame;
    }
    int Count() const override { return static_cast<int>(frames_); }

  private:
    std::string path_;
    std::ifstream in_;
    cv::Size size_;
    size_t frames_;
    size_t index_ = 0;
};

std::unique_ptr<FrameSource> OpenRaw(const std::string& path, cv::Size size, std::string& error) {
    if (size.width == 0 && size.height == 0) {
        error = path + ": raw NV21 needs --size WxH";
        return nullptr;
    }
    if (const std::string why = CheckFrameSize(size); !why.empty()) {
        error = path + ": " + why;
        return nullptr;
    }
    const size_t frameBytes = static_cast<size_t>(size.area()) * 3 / 2;
    std::error_code ec;
    const size_t bytes = fs::file_size(path, ec);
    if (ec || bytes == 0 || bytes % frameBytes != 0) {
        error = path + ": " +
                (ec ? "cannot read (" + ec.message() + ")" : std::to_string(bytes) + " bytes") +
                ", not a whole number of " + std::to_string(size.width) + "x" +
                std::to_string(size.height) + " NV21 frames of " + std::to_string(frameBytes) +
                " bytes";
        return nullptr;
    }
    return std::make_unique<RawFile>(path, size, bytes / frameBytes);
}

}  // namespace

std::string CheckFrameSize(cv::Size size) {
    if (size.width <= 0 || size.height <= 0) return "frame size must be positive";
    if (size.width % kWidthStep != 0) {
        return "frame width must be a multiple of " + std::to_string(kWidthStep);
    }
    if (size.height % 2 != 0) return "frame height must be even";
    return {};
}

bool ToNV21Frame(const cv::Mat& bgr, Frame& frame) {
    const int width = bgr.cols / kWidthStep * kWidthStep;
    const int height = bgr.rows / 2 * 2;
    if (width < kWidthStep || height < 2) return false;
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
    const fs::file_status status = fs::status(path, ec);
    if (ec || !fs::exists(status)) {
        error = path + ": no such file or folder";
        return nullptr;
    }
    if (fs::is_directory(status)) {
        // Every picture of the folder is tried, so that one that cannot be
        // read is reported rather than left out.
        std::vector<std::string> files;
        for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec)) {
            if (!it->is_directory(ec) && IsPicture(it->path())) files.push_back(it->path());
        }
        if (ec) {
            error = path + ": cannot list (" + ec.message() + ")";
            return nullptr;
        }
        std::sort(files.begin(), files.end());
        if (files.empty()) error = path + ": no pictures in the folder";
        return files.empty() ? nullptr : std::make_unique<PictureList>(std::move(files));
    }
    if (!fs::is_regular_file(status)) {
        error = path + ": not a regular file";
        return nullptr;
    }
    if (IsRaw(path)) return OpenRaw(path, rawSize, error);
    if (IsPicture(path)) return std::make_unique<PictureList>(std::vector<std::string>{path});
    if (fs::file_size(path, ec) == 0) {
        error = path + ": empty file";
        return nullptr;
    }
    // FFmpeg first: it reads every common container, and trying the other
    // back ends on a file it cannot read only adds their complaints.
    cv::VideoCapture capture(path, cv::CAP_FFMPEG);
    if (!capture.isOpened()) capture.open(path, cv::CAP_ANY);
    if (!capture.isOpened()) {
        error = path + ": not a picture, raw NV21 (.nv21, .yuv) or video that can be read";
        return nullptr;
    }
    return std::make_unique<Video>(path, std::move(capture));
}
