// Choosing the codes to straighten, cropping them out of the frame,
// straightening each crop and pasting the square pictures back.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "platform/log.h"
#include "warp/line.h"
#include "warp/rectify.h"
#include "warp/warp_process.h"

namespace {

// A box whose longer side exceeds its shorter by more than 14 % holds a code
// seen at an angle; a nearly square one is taken to be head-on.
constexpr double kSkewedBoxRatio = 1.14;
// The crop reaches a quarter of the box's size beyond each side.
constexpr float kCropMargin = 0.25f;
constexpr float kCropScale = 1.5f;

bool isSkewedBox(const cv::Rect& box) {
    const float ratio = static_cast<float>(std::max(box.width, box.height)) /
                        static_cast<float>(std::min(box.width, box.height));
    return static_cast<double>(ratio) > kSkewedBoxRatio;
}

// Half a box side larger in each dimension, centred on the box, shifted
// rather than shrunk at the top and left edges and cut at the right and
// bottom ones.
cv::Rect enlargedCropRect(const cv::Rect& box, const cv::Mat& frame) {
    const float w = static_cast<float>(box.width);
    const float h = static_cast<float>(box.height);
    const int left = scancode::truncToInt(std::max(0.0f, box.x - kCropMargin * w));
    const int top = scancode::truncToInt(std::max(0.0f, box.y - kCropMargin * h));
    const float width = kCropScale * w;
    const float height = kCropScale * h;
    const int cutWidth = static_cast<float>(frame.cols) < width + static_cast<float>(left)
                             ? frame.cols - left
                             : scancode::truncToInt(width);
    const int cutHeight = static_cast<float>(frame.rows) < height + static_cast<float>(top)
                              ? frame.rows - top
                              : scancode::truncToInt(height);
    return {left, top, cutWidth, cutHeight};
}

bool isInside(const cv::Rect& r, const cv::Mat& frame) {
    return r.width > 0 && r.height > 0 && (r & cv::Rect(0, 0, frame.cols, frame.rows)) == r;
}

// The skewed boxes' crops: each picture (shrunk when the code is big), where
// it was cut from the frame and the scale it was shrunk by.
struct Crops {
    std::vector<cv::Mat> images;
    std::vector<cv::Rect> rects;
    std::vector<float> ratios;
};

// Codes taller than half the frame are scaled down before the classical
// vision runs on them; the frame height is the only limit. False when the
// scaled crop would be empty.
bool ShrinkBigCrop(const cv::Rect& box, int frameRows, cv::Mat& crop, float& ratio) {
    ratio = 1.0f;
    const int half = frameRows / 2;
    const int longer = std::max(box.width, box.height);
    if (static_cast<float>(longer) <= static_cast<float>(half)) return true;
    LOGD("tmp Width is %d, tmp Height is %d", crop.cols, crop.rows);
    LOGD("QRCode too big ,need to resize");
    ratio = static_cast<float>(half) / static_cast<float>(longer);
    LOGD("tempRatio is %f", static_cast<double>(ratio));
    const int resizeWidth = scancode::truncToInt(ratio * static_cast<float>(crop.cols));
    const int resizeHeight = scancode::truncToInt(ratio * static_cast<float>(crop.rows));
    LOGD("resizeWidth is %d, resizeHeight is %d", resizeWidth, resizeHeight);
    if (resizeWidth < 1 || resizeHeight < 1) return false;
    cv::Mat scaled;
    cv::resize(crop, scaled, cv::Size(resizeWidth, resizeHeight), 0, 0, cv::INTER_LINEAR);
    crop = scaled;
    return true;
}

void CropSkewedBoxes(cv::Mat& frame, const std::vector<cv::Rect>& boxes, Crops& crops) {
    for (const cv::Rect& box : boxes) {
        if (!isSkewedBox(box)) continue;
        const cv::Rect cropRect = enlargedCropRect(box, frame);
        // A box reaching outside the frame has no crop; detection never
        // hands one over, but a view over it would throw.
        if (!isInside(cropRect, frame)) continue;
        LOGD("process enlarge");
        cv::Mat crop = frame(cropRect);
        float ratio = 1.0f;
        if (!ShrinkBigCrop(box, frame.rows, crop, ratio)) continue;
        crops.images.push_back(crop);
        crops.rects.push_back(cropRect);
        crops.ratios.push_back(ratio);
    }
}

// The records from `firstInfo` on are in their crops' pixels; this puts them
// in the frame's.
void MapInfosToFrame(const Crops& crops, size_t firstInfo, std::vector<QRInformation>& qrInfos) {
    for (size_t k = firstInfo; k < qrInfos.size(); ++k) {
        const size_t i = k - firstInfo;
        const float ratio = crops.ratios[i];
        LOGD("QRRatio is %f", static_cast<double>(ratio));
        QRInformation& info = qrInfos[k];
        info.qrSize = scancode::truncToInt(static_cast<float>(info.qrSize) / ratio);
        const cv::Point2f origin(static_cast<float>(crops.rects[i].x),
                                 static_cast<float>(crops.rects[i].y));
        for (cv::Point2f* corner :
             {&info.topLeft, &info.topRight, &info.bottomRight, &info.bottomLeft}) {
            *corner = cv::Point2f(corner->x / ratio, corner->y / ratio) + origin;
        }
    }
}

// Pastes a straightened picture centred on `anchor`, made square and cut to
// the frame; false when nothing of it fits.
bool PasteResult(cv::Mat& frame, const cv::Rect& anchor, cv::Mat& picture) {
    const int cx = anchor.x + anchor.width / 2;
    const int cy = anchor.y + anchor.height / 2;
    const int left = cx > picture.cols / 2 ? cx - picture.cols / 2 : 0;
    const int top = cy > picture.rows / 2 ? cy - picture.rows / 2 : 0;
    const int tempWidth = left + picture.cols <= frame.cols ? picture.cols : frame.cols - left;
    const int tempHeight = top + picture.rows <= frame.rows ? picture.rows : frame.rows - top;
    LOGD("the output col  is %d", picture.cols);
    LOGD("the output rows  is %d", picture.rows);
    LOGD("the tempWidth  is %d", tempWidth);
    LOGD("the tempHeight  is %d", tempHeight);

    int side = tempWidth;
    if (tempWidth != tempHeight) {
        LOGI("tempWidth != tempHeight");
        side = std::min(tempWidth, tempHeight);
        if (side < 1) return false;
        cv::resize(picture, picture, cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
    }
    const cv::Rect target(left, top, side, side);
    if (!isInside(target, frame)) return false;
    // When the picture was cut equally at the right and the bottom it is
    // larger than the view; copyTo then gives the view a buffer of its own
    // and the frame keeps its pixels.
    cv::Mat view = frame(target);
    picture.copyTo(view);
    return true;
}

}  // namespace

int scancode::warpQRProcess(cv::Mat& frame, const std::vector<cv::Rect>& boxes, WarpInfo& warpInfo,
                            std::vector<QRInformation>& qrInfos) {
    Crops crops;
    CropSkewedBoxes(frame, boxes, crops);

    // Records already in the list before this call are left alone.
    const size_t firstInfo = qrInfos.size();
    std::vector<WarpResult> results;
    warpAlgo(crops.images, results, qrInfos);
    MapInfosToFrame(crops, firstInfo, qrInfos);

    const int outputs = static_cast<int>(results.size());
    LOGD("the size of outputs is %d", outputs);
    for (int j = 0; j < outputs; ++j) {
        LOGD("inner the size of outputs is %d", outputs);
        LOGD("the num of outputs process is %d", j);
        if (!results[j].isValid) continue;
        // Result j goes to the centre of the j-th input box, which is not its
        // own box when an earlier box was passed over.
        if (PasteResult(frame, boxes[j], results[j].warpImg)) warpInfo.hasWarp = true;
    }
    return 0;
}

int scancode::warpAlgo(std::vector<cv::Mat>& crops, std::vector<WarpResult>& results,
                       std::vector<QRInformation>& qrInfos) {
    const timeval start = TimeMark();
    for (const cv::Mat& crop : crops) {
        const float edgeRatio = static_cast<float>(std::max(crop.rows, crop.cols)) /
                                static_cast<float>(std::min(crop.rows, crop.cols));
        LOGD("ratio of QRedge is %f", static_cast<double>(edgeRatio));
        QRInformation info{false, 0, {0.0f, 0.0f}, {0.0f, 0.0f}, {0.0f, 0.0f}, {0.0f, 0.0f}};
        cv::Mat picture = rectifyQrcodeImg(crop, info);
        WarpResult result;
        result.isValid = !picture.empty();
        if (result.isValid) result.warpImg = picture;
        results.push_back(result);
        qrInfos.push_back(info);
    }
    LogSyncTime("Total rectifyQrcodeImg Time", start);
    return 0;
}
