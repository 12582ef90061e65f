#include "frame_source.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <opencv2/videoio.hpp>

#include "scancode/scanner.h"

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

// Why `path` gives no picture; empty when it does (`frame` then holds it).
std::string ReadPicture(const std::string& path, Frame& frame) {
    std::error_code ec;
    const auto size = fs::file_size(path, ec);
    if (ec) return path + ": cannot read (" + ec.message() + ")";
    if (size == 0) return path + ": empty file";
    cv::Mat bgr;
    try {
        bgr = scancode::ReadPicture(path);
    } catch (const scancode::Error& e) {
        return path + ": " + e.what();
    }
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
        if (!Read(bgr)) {
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
        try {
            return std::max(0, static_cast<int>(capture_.get(cv::CAP_PROP_FRAME_COUNT)));
        } catch (const cv::Exception&) {
            return 0;
        }
    }

  private:
    // A damaged stream may make a reader throw; that ends the video.
    bool Read(cv::Mat& bgr) {
        try {
            return capture_.read(bgr) && !bgr.empty();
        } catch (const cv::Exception&) {
            return false;
        }
    }
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
    if (const std::string why = scancode::CheckFrameSize(size.width, size.height); !why.empty()) {
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

bool ToNV21Frame(const cv::Mat& bgr, Frame& frame) {
    try {
        cv::Size size;
        frame.nv21 = scancode::ToNv21(bgr, size);
        frame.width = size.width;
        frame.height = size.height;
        return true;
    } catch (const scancode::Error&) {
        return false;
    }
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
    cv::VideoCapture capture;
    try {
        if (!capture.open(path, cv::CAP_FFMPEG)) capture.open(path, cv::CAP_ANY);
    } catch (const cv::Exception&) {
        capture.release();
    }
    if (!capture.isOpened()) {
        error = path + ": not a picture, raw NV21 (.nv21, .yuv) or video that can be read";
        return nullptr;
    }
    return std::make_unique<Video>(path, std::move(capture));
}
