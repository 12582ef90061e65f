#include "frame_report.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

namespace {

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

std::string ToText(const std::string& name, const scancode::Result& r) {
    std::string s = name + ": rc " + std::to_string(r.code) + ", " +
                    std::to_string(r.boxes.size()) + " box(es)";
    for (const scancode::Box& b : r.boxes) {
        s += Format(" [%.0f,%.0f %.0fx%.0f", b.rect.x, b.rect.y, b.rect.width, b.rect.height);
        s += b.listed ? "]" : " edge]";
        if (r.decoded) s += b.text.empty() ? " (not read)" : " \"" + b.text + "\"";
    }
    s += r.zoom
             ? Format(", bestZoom %.2f maxEdgeRatio %.3f", r.zoom->bestZoom, r.zoom->maxEdgeRatio)
             : std::string(", no zoom");
    s += r.straightened.empty() ? "" : ", straightened code sent";
    s += Format(", %.1f ms", r.ms);
    return s;
}

std::string ToJson(const std::string& name, const scancode::Result& r) {
    nlohmann::json boxes = nlohmann::json::array();
    for (const scancode::Box& b : r.boxes) {
        nlohmann::json box = {{"x", Rounded(b.rect.x, 1e-3)},
                              {"y", Rounded(b.rect.y, 1e-3)},
                              {"w", Rounded(b.rect.width, 1e-3)},
                              {"h", Rounded(b.rect.height, 1e-3)},
                              {"listed", b.listed}};
        if (r.decoded) box["text"] = b.text.empty() ? nlohmann::json() : nlohmann::json(b.text);
        boxes.push_back(std::move(box));
    }
    nlohmann::json j = {{"frame", name},
                        {"width", r.width},
                        {"height", r.height},
                        {"rc", r.code},
                        {"boxes", boxes}};
    j["zoom"] = r.zoom ? nlohmann::json{{"bestZoom", Rounded(r.zoom->bestZoom, 1e-4)},
                                        {"maxEdgeRatio", Rounded(r.zoom->maxEdgeRatio, 1e-4)}}
                       : nlohmann::json();
    j["sentWarp"] = !r.straightened.empty();
    j["ms"] = Rounded(r.ms, 1e-3);
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

cv::Mat Annotate(const cv::Mat& bgr, const scancode::Result& r) {
    cv::Mat out = bgr.clone();
    for (const scancode::Box& b : r.boxes) {
        cv::rectangle(out, b.rect, b.listed ? cv::Scalar(0, 200, 0) : cv::Scalar(0, 0, 230), 3);
    }
    if (r.zoom) {
        const float z = r.zoom->bestZoom;
        const cv::Rect2f view((1 - z) / 2 * r.width, (1 - z) / 2 * r.height, z * r.width,
                              z * r.height);
        cv::rectangle(out, view, cv::Scalar(0, 220, 255), 2);
    }
    return out;
}
