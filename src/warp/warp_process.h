// Straightening the codes of one frame: the boxes seen at an angle are cropped
// out, rectified, and the square pictures pasted back over their boxes.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "warp/warp_types.h"

namespace scancode {

// Straightens every clearly non-square box of `frame` in place; sets
// warpInfo.hasWarp when a picture was pasted and appends each rectified
// code's corners, in frame coordinates, to `qrInfos`. Returns 0.
int warpQRProcess(cv::Mat& frame, const std::vector<cv::Rect>& boxes, WarpInfo& warpInfo,
                  std::vector<QRInformation>& qrInfos);

// Rectifies each crop: one result and one geometry record per crop, in crop
// coordinates. Returns 0.
int warpAlgo(std::vector<cv::Mat>& crops, std::vector<WarpResult>& results,
             std::vector<QRInformation>& qrInfos);

}  // namespace scancode
