// The contact sheet of worst cases, so a failure can be looked at rather
// than only counted.
#include <algorithm>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "evaluation.h"

namespace {

constexpr int kTileSide = 240;
constexpr int kColumns = 6;

}  // namespace

bool Worthy(const std::vector<SheetCase>& worst, double severity) {
    return worst.size() < kSheetCases || severity > worst.back().severity;
}

void Keep(std::vector<SheetCase>& worst, SheetCase c) {
    if (!Worthy(worst, c.severity)) return;
    worst.push_back(std::move(c));
    std::stable_sort(worst.begin(), worst.end(), [](const SheetCase& a, const SheetCase& b) {
        return a.severity > b.severity;
    });
    if (worst.size() > kSheetCases) worst.pop_back();
}

cv::Mat Tile(const cv::Mat& bgr, const std::vector<cv::Rect2f>& truths, const LibraryFrame& library,
             const std::string& label) {
    cv::Rect2f area;
    auto grow = [&](const cv::Rect2f& r) { area = area.empty() ? r : (area | r); };
    for (const cv::Rect2f& r : truths) grow(r);
    for (const cv::Rect2f& r : library.survivors) grow(r);
    if (area.empty()) area = cv::Rect2f(0, 0, float(bgr.cols), float(bgr.rows));
    const float side = std::max({area.width, area.height, 96.0f}) * 1.3f;
    const cv::Point2f c(area.x + area.width / 2, area.y + area.height / 2);
    const cv::Rect crop = cv::Rect(cv::Point(int(c.x - side / 2), int(c.y - side / 2)),
                                   cv::Size(int(side), int(side))) &
                          cv::Rect(0, 0, bgr.cols, bgr.rows);
    cv::Mat out = bgr(crop).clone();
    const int thick = std::max(1, int(side / kTileSide) + 1);
    const cv::Point2f o(float(crop.x), float(crop.y));
    auto draw = [&](const cv::Rect2f& r, const cv::Scalar& colour) {
        cv::rectangle(out, cv::Rect(cv::Point(r.tl() - o), cv::Point(r.br() - o)), colour, thick);
    };
    for (const cv::Rect2f& r : truths) draw(r, {255, 80, 0});
    for (const cv::Rect2f& r : library.survivors) {
        const bool kept =
            std::find(library.kept.begin(), library.kept.end(), r) != library.kept.end();
        draw(r, kept ? cv::Scalar(0, 200, 0) : cv::Scalar(0, 0, 230));
    }
    const double k = double(kTileSide) / std::max(out.cols, out.rows);
    cv::resize(out, out, cv::Size(), k, k, k < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::Mat tile(kTileSide + 16, kTileSide, CV_8UC3, cv::Scalar(40, 40, 40));
    out.copyTo(tile(cv::Rect(0, 16, out.cols, out.rows)));
    cv::putText(tile, label, {2, 12}, cv::FONT_HERSHEY_PLAIN, 0.8, {255, 255, 255}, 1, cv::LINE_AA);
    return tile;
}

void WriteContactSheet(const std::string& path, const std::vector<SheetSection>& sections) {
    std::vector<cv::Mat> rows;
    for (const SheetSection& section : sections) {
        cv::Mat head(22, kColumns * kTileSide, CV_8UC3, cv::Scalar(20, 20, 20));
        cv::putText(head, section.title, {4, 16}, cv::FONT_HERSHEY_PLAIN, 1.1, {255, 255, 255}, 1,
                    cv::LINE_AA);
        rows.push_back(head);
        const std::vector<SheetCase>& list = *section.cases;
        for (size_t i = 0; i < list.size(); i += kColumns) {
            cv::Mat row(kTileSide + 16, kColumns * kTileSide, CV_8UC3, cv::Scalar(40, 40, 40));
            for (size_t j = i; j < std::min(list.size(), i + kColumns); ++j) {
                const cv::Mat& t = list[j].tile;
                t.copyTo(row(cv::Rect(int(j - i) * kTileSide, 0, t.cols, t.rows)));
            }
            rows.push_back(row);
        }
    }
    cv::Mat sheet;
    cv::vconcat(rows, sheet);
    cv::imwrite(path, sheet);
}
