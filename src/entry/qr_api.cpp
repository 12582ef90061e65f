// The exported entry functions and the library-wide globals. The globals are
// defined here, in this order, so that they are built in it at load and torn
// down in reverse at unload. The manager (detect/, which deletes the detector)
// is built before any of them and outlives the images frames are decoded into
// (the object order in CMakeLists.txt).
#include "entry/qr_api.h"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <string>

#include <opencv2/imgproc.hpp>

#include "detect/postprocess_calculator.h"
#include "detect/qr_code_manager.h"
#include "entry/color_convert.h"
#include "platform/log.h"

std::vector<cv::Rect> rect2;
cv::Mat gOutFrame;
cv::Mat rgbImg;

bool isFirstProcess = false;
bool isDebug = false;
int32_t gFrameCount = 0;
bool g_cancelRun = false;
unsigned char mask[128] = {};

namespace {

std::atomic<int32_t> gUserCount{0};

// Several hosts may open and close the library at once. Init re-creates the
// manager's images and the last DeInit releases them, so the two are
// serialised; frames are not (Process calls must never overlap anyway).
std::mutex gLifecycleMutex;

const char* const kDebugImageDir = "/data/vendor/camera/img/";

void DrawQuad(cv::Mat& img, const cv::Point (&p)[4]) {
    const cv::Scalar red(0, 0, 255);
    for (int i = 0; i < 4; ++i) {
        cv::line(img, p[i], p[(i + 1) % 4], red, 2, 8, 0);
    }
}

cv::Point RoundPoint(const cv::Point2f& p) {
    return cv::Point(cvRound(p.x), cvRound(p.y));
}

// Draws the boxes' common rectangle and each straightened code's outline on
// the debug copy. Picture dumps are switched off: the file names are formed
// as they always were, but nothing is written.
void DrawDebugFrame(const std::vector<cv::Rect>& boxes, ZoomInfoResult& zoom,
                    const std::vector<QRInformation>& qrInfos) {
    const cv::Rect all = CommonBox(boxes);
    const cv::Point outline[4] = {{all.x, all.y},
                                  {all.x + all.width, all.y},
                                  {all.x + all.width, all.y + all.height},
                                  {all.x, all.y + all.height}};
    DrawQuad(gOutFrame, outline);
    const std::string dumpName = kDebugImageDir + std::to_string(rand()) + ".jpg";
    (void)dumpName;

    if (zoom.bestZoom == 0.0f) {
        zoom.bestZoom = 1.0f;
    }
    const float z = zoom.bestZoom;
    const float shift = fmaf(-z, 0.5f, 0.5f);
    const int cols = rgbImg.cols;
    const int rows = rgbImg.rows;
    const cv::Rect crop(static_cast<int>(shift * static_cast<float>(cols)),
                        static_cast<int>(shift * static_cast<float>(rows)),
                        static_cast<int>(z * static_cast<float>(cols)),
                        static_cast<int>(z * static_cast<float>(rows)));
    LOGI("the crop_X is: %d, crop_Y is: %d, crop_Width is %d, crop_Height is %d", crop.x, crop.y,
         crop.width, crop.height);
    // A host record holding a zoom above 1 would put the view outside the
    // frame; the view is only a header, so it is simply clipped.
    const cv::Mat cropView = gOutFrame(crop & cv::Rect(0, 0, gOutFrame.cols, gOutFrame.rows));
    const std::string cropName = std::string(kDebugImageDir) + "cropImg.jpg";
    const std::string warpName = std::string(kDebugImageDir) + "srcWarpImg.jpg";
    (void)cropView;

    for (const QRInformation& info : qrInfos) {
        const cv::Point quad[4] = {RoundPoint(info.topLeft), RoundPoint(info.topRight),
                                   RoundPoint(info.bottomRight), RoundPoint(info.bottomLeft)};
        DrawQuad(gOutFrame, quad);
    }
}

// There is only ever the one manager, so anything else is not a handle.
bool IsHandle(const void* handle) {
    return handle != nullptr && handle == &g_codeManager;
}

// The frame image is sized by the first frame after Init. A first frame
// without a size leaves it empty, and every frame fails until the next Init.
void SizeFrameImageOnFirstFrame(int32_t width, int32_t height) {
    if (isFirstProcess) {
        return;
    }
    isFirstProcess = true;
    rgbImg = (width > 0 && height > 0) ? cv::Mat::zeros(height, width, CV_8UC3) : cv::Mat();
    LOGD("the first frame ");
}

// A frame of another size than the frame image would be decoded past its end.
bool FrameAccepted(const uint8_t* frameData, int32_t inputWidth, int32_t inputHeight, int32_t width,
                   int32_t height) {
    if (frameData == nullptr || inputWidth < 1 || inputHeight < 1 || rgbImg.data == nullptr ||
        width != rgbImg.cols || height != rgbImg.rows) {
        LOGE("input image is null or size invalid.");
        return false;
    }
    return true;
}

bool RequestAccepted(const void* handle, const ZoomInfoResult* zoomResult,
                     const WarpPicInfo* warpPic) {
    if (!IsHandle(handle) || zoomResult == nullptr || warpPic == nullptr) {
        LOGE("input handle is null or size invalid.");
        return false;
    }
    return true;
}

// NV21 into the frame image, and into the debug copy on a debug frame.
void DecodeFrame(const uint8_t* frameData, int32_t width, int32_t height) {
    const timeval start = TimeMark();
    NV21toRGB_NEON(frameData, rgbImg.data, width, height);
    LogSyncTime("Time of YUV2RGB is ", start);
    if (isDebug) {
        gOutFrame = rgbImg.clone();
    }
}

// What the pipeline found in one frame.
struct FrameFindings {
    std::vector<cv::Rect> boxes;
    WarpInfo warpInfo{true, false};
    std::vector<QRInformation> qrInfos;
};

// Detection, zoom and straightening over the frame image; Process's result.
int FindCodes(QRCodeManager& manager, ZoomInfoResult& zoomResult, FrameFindings& found) {
    const timeval start = TimeMark();
    const QRRatioInfo ratioInfo{0.1f, 0.35f, 0.16f};
    const int ret = manager.RunQRCode(rgbImg, found.boxes, ratioInfo, zoomResult, found.warpInfo,
                                      found.qrInfos);
    LogSyncTime("RunQRCode cost Time", start);
    return ret;
}

// Encodes the frame image with the straightened code into the host's buffer,
// when there is one and the host gave a buffer.
void HandBackWarp(const WarpInfo& warpInfo, WarpPicInfo& warpPic, int32_t width, int32_t height) {
    if (warpInfo.hasWarp && warpPic.nv21Data != nullptr) {
        const timeval start = TimeMark();
        BGRtoNV21_NEON(warpPic.nv21Data, rgbImg, width, height);
        LogSyncTime("BGRtoNV21 cost Time", start);
        warpPic.sendWarpPic = true;
        LOGD("send warp pic to camera");
    } else {
        warpPic.sendWarpPic = false;
        LOGI("no send warp pic to camera");
    }
    LOGI("has Warp is %d", warpInfo.hasWarp);
}

}  // namespace

int32_t UserCount() {
    return gUserCount.load();
}

extern "C" int32_t Init(void** handle) {
    LOGI("%s() enter", "Init");
    std::lock_guard<std::mutex> lock(gLifecycleMutex);
    if (handle != nullptr) {
        *handle = &g_codeManager;
    }
    const int ret = g_codeManager.Init();
    gUserCount.fetch_add(1);
    gFrameCount = 0;
    isFirstProcess = false;
    LOGI("%s() leave, init ret is %d", "Init", ret);
    return ret;
}

extern "C" int32_t Process(void* handle, const uint8_t* frameData, int32_t inputWidth,
                           int32_t inputHeight, int32_t width, int32_t height,
                           ZoomInfoResult* zoomResult, WarpPicInfo* warpPic) {
    LOGI("%s() enter", "Process");
    const timeval total = TimeMark();
    SizeFrameImageOnFirstFrame(width, height);
    if (!FrameAccepted(frameData, inputWidth, inputHeight, width, height) ||
        !RequestAccepted(handle, zoomResult, warpPic)) {
        return -1;
    }
    DecodeFrame(frameData, width, height);
    FrameFindings found;
    const int ret = FindCodes(*static_cast<QRCodeManager*>(handle), *zoomResult, found);
    HandBackWarp(found.warpInfo, *warpPic, width, height);
    if (isDebug) {
        // A debug frame without boxes ends here, without its total time.
        if (found.boxes.empty()) {
            return ret;
        }
        DrawDebugFrame(found.boxes, *zoomResult, found.qrInfos);
    }
    LogSyncTime("process total cost Time", total);
    LOGI("%s() leave", "Process");
    return ret;
}

extern "C" int32_t DeInit(void* handle) {
    LOGI("%s() enter", "DeInit");
    if (!IsHandle(handle)) {
        LOGE("input handle is null or size invalid.");
        return -1;
    }
    std::lock_guard<std::mutex> lock(gLifecycleMutex);
    gUserCount.fetch_sub(1);
    if (gUserCount.load(std::memory_order_acquire) >= 1) {
        LOGD("There is another user, don't unload now!");
        return 0;
    }
    const timeval start = TimeMark();
    const int ret = static_cast<QRCodeManager*>(handle)->UnloadModels();
    LogSyncTime("Total Unload Time", start);
    rgbImg.release();
    LOGI("unloadModel ret: %d", ret);
    LOGI("%s() leave", "DeInit");
    return ret;
}
