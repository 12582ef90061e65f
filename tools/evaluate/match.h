// Scoring boxes against truth: one rule for the library and both peers.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

// A code is found when a box has at least this IoU with its truth box.
inline constexpr float kFoundIoU = 0.5f;

float IoU(const cv::Rect2f& a, const cv::Rect2f& b);

// Axis-aligned bounding box of points (a quadrilateral's corners).
cv::Rect2f BoundingRect(const std::vector<cv::Point2f>& points);

// For each truth, the index of the box paired with it, or -1. Pairs with IoU
// >= minIoU are taken in order of decreasing IoU, each box and each truth at
// most once, so one box never counts for two codes and a code goes to the
// box that fits it best.
std::vector<int> MatchBoxes(const std::vector<cv::Rect2f>& truths,
                            const std::vector<cv::Rect2f>& boxes, float minIoU = kFoundIoU);

// Boxes paired with no truth: false boxes.
int CountUnmatched(const std::vector<int>& truthToBox, size_t boxCount);

// Whether one of `boxes` runs code `t` together with another of `truths`:
// it covers at least a quarter of code t and a quarter of another code.
bool RunTogether(const std::vector<cv::Rect2f>& boxes, const std::vector<cv::Rect2f>& truths,
                 size_t t);
