#include "frame_report.h"

#include <cstdio>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int kEdgeBand = 80;  // the library ignores codes this close to the frame edge

std::string Escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

std::string Format(const char* fmt, double a, double b = 0, double c = 0, double d = 0) {
    char buf[160];
    snprintf(buf, sizeof buf, fmt, a, b, c, d);
    return buf;
}

}  // namespace

void ReadBoxes(const std::vector<std::string>& lines, FrameResult& result) {
    for (const std::string& line : lines) {
        float x, y, w, h;
        if (sscanf(line.c_str(), "x = %f, y = %f, w = %f, h = %f", &x, &y, &w, &h) != 4) continue;
        const bool listed = x >= kEdgeBand && y >= kEdgeBand && x + w <= result.width - kEdgeBand &&
                            y + h <= result.height - kEdgeBand;
        result.boxes.push_back({{x, y, w, h}, listed});
    }
}

std::string ToText(const FrameResult& r) {
    std::string s = r.name + ": rc " + std::to_string(r.rc) + ", " +
                    std::to_string(r.boxes.size()) + " box(es)";
    for (const DetectedBox& b : r.boxes) {
        s += Format(" [%.0f,%.0f %.0fx%.0f", b.rect.x, b.rect.y, b.rect.width, b.rect.height);
        s += b.listed ? "]" : " edge]";
    }
    s += r.zoomWritten
             ? Format(", bestZoom %.2f maxEdgeRatio %.3f", r.zoom.bestZoom, r.zoom.maxEdgeRatio)
             : std::string(", no zoom");
    s += r.sentWarp ? ", straightened code sent" : "";
    s += Format(", %.1f ms", r.ms);
    return s;
}

std::string ToJson(const FrameResult& r) {
    std::string s = "{\"frame\":\"" + Escape(r.name) + "\",\"width\":" + std::to_string(r.width) +
                    ",\"height\":" + std::to_string(r.height) + ",\"rc\":" + std::to_string(r.rc) +
                    ",\"boxes\":[";
    for (size_t i = 0; i < r.boxes.size(); ++i) {
        const DetectedBox& b = r.boxes[i];
        s += i ? "," : "";
        s += Format("{\"x\":%.3f,\"y\":%.3f,\"w\":%.3f,\"h\":%.3f", b.rect.x, b.rect.y,
                    b.rect.width, b.rect.height);
        s += b.listed ? ",\"listed\":true}" : ",\"listed\":false}";
    }
    s += "],\"zoom\":";
    s += r.zoomWritten ? Format("{\"bestZoom\":%.4f,\"maxEdgeRatio\":%.4f}", r.zoom.bestZoom,
                                r.zoom.maxEdgeRatio)
                       : std::string("null");
    s += r.sentWarp ? ",\"sentWarp\":true" : ",\"sentWarp\":false";
    s += Format(",\"ms\":%.3f}", r.ms);
    return s;
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
