#include "frame_report.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

namespace {

constexpr int kEdgeBand = 80;  // the library ignores codes this close to the frame edge

std::string Format(const char* fmt, double a, double b = 0, double c = 0, double d = 0) {
    char buf[160];
    snprintf(buf, sizeof buf, fmt, a, b, c, d);
    return buf;
}

// Floats as the few digits they carry, not their binary expansion.
double Rounded(double value, double step) {
    return std::round(value / step) * step;
}

}  // namespace

void ReadBoxes(const std::vector<std::string>& lines, FrameResult& result) {
    for (const std::string& line : lines) {
        float x, y, w, h;
        if (sscanf(line.c_str(), "x = %f, y = %f, w = %f, h = %f", &x, &y, &w, &h) != 4) continue;
        const bool listed = x >= kEdgeBand && y >= kEdgeBand && x + w <= result.width - kEdgeBand &&
                            y + h <= result.height - kEdgeBand;
        result.boxes.push_back({{x, y, w, h}, listed, {}});
    }
}

std::string ToText(const FrameResult& r) {
    std::string s = r.name + ": rc " + std::to_string(r.rc) + ", " +
                    std::to_string(r.boxes.size()) + " box(es)";
    for (const DetectedBox& b : r.boxes) {
        s += Format(" [%.0f,%.0f %.0fx%.0f", b.rect.x, b.rect.y, b.rect.width, b.rect.height);
        s += b.listed ? "]" : " edge]";
        if (r.decoded) s += b.text.empty() ? " (not read)" : " \"" + b.text + "\"";
    }
    s += r.zoomWritten
             ? Format(", bestZoom %.2f maxEdgeRatio %.3f", r.zoom.bestZoom, r.zoom.maxEdgeRatio)
             : std::string(", no zoom");
    s += r.sentWarp ? ", straightened code sent" : "";
    s += Format(", %.1f ms", r.ms);
    return s;
}

std::string ToJson(const FrameResult& r) {
    nlohmann::json boxes = nlohmann::json::array();
    for (const DetectedBox& b : r.boxes) {
        nlohmann::json box = {{"x", Rounded(b.rect.x, 1e-3)},
                              {"y", Rounded(b.rect.y, 1e-3)},
                              {"w", Rounded(b.rect.width, 1e-3)},
                              {"h", Rounded(b.rect.height, 1e-3)},
                              {"listed", b.listed}};
        if (r.decoded) box["text"] = b.text.empty() ? nlohmann::json() : nlohmann::json(b.text);
        boxes.push_back(std::move(box));
    }
    nlohmann::json j = {{"frame", r.name},
                        {"width", r.width},
                        {"height", r.height},
                        {"rc", r.rc},
                        {"boxes", boxes}};
    j["zoom"] = r.zoomWritten ? nlohmann::json{{"bestZoom", Rounded(r.zoom.bestZoom, 1e-4)},
                                               {"maxEdgeRatio", Rounded(r.zoom.maxEdgeRatio, 1e-4)}}
                              : nlohmann::json();
    j["sentWarp"] = r.sentWarp;
    j["ms"] = Rounded(r.ms, 1e-3);
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

cv::Mat Annotate(const cv::Mat& bgr, const FrameResult& r) {
    cv::Mat out = bgr.clone();
    for (const DetectedBox& b : r.boxes) {
        cv::rectangle(out, b.rect, b.listed ? cv::Scalar(0, 200, 0) : cv::Scalar(0, 0, 230), 3);
    }
    if (r.zoomWritten) {
        const float z = r.zoom.bestZoom;
        const cv::Rect2f view((1 - z) / 2 * r.width, (1 - z) / 2 * r.height, z * r.width,
                              z * r.height);
        cv::rectangle(out, view, cv::Scalar(0, 220, 255), 2);
    }
    return out;
}
