#include "library_run.h"

#include <chrono>
#include <cstdio>

#include "frame_report.h"
#include "host_shim.h"
#include "scancode.h"

LibraryRunner::LibraryRunner() {
    ScanHostSetLogSink(&LibraryRunner::Collect, this);
}

LibraryRunner::~LibraryRunner() {
    if (mHandle != nullptr) DeInit(mHandle);
    ScanHostSetLogSink(nullptr, nullptr);
}

void LibraryRunner::Collect(int, const char*, const char* text, void* user) {
    static_cast<LibraryRunner*>(user)->mLines.emplace_back(text);
}

bool LibraryRunner::Run(const std::vector<uint8_t>& nv21, int width, int height,
                        LibraryFrame& out) {
    if (mHandle == nullptr || width != mWidth || height != mHeight) {
        if (mHandle != nullptr) DeInit(mHandle);
        mHandle = nullptr;
        if (Init(&mHandle) != 0 || mHandle == nullptr) return false;
        mWidth = width, mHeight = height;
    }
    out = LibraryFrame();
    out.returned.resize(nv21.size());
    ZoomInfoResult zoom{-1.0f, -1.0f};
    WarpPicInfo pic{out.returned.data(), false};
    mLines.clear();
    const auto t0 = std::chrono::steady_clock::now();
    out.rc = Process(mHandle, nv21.data(), width, height, width, height, &zoom, &pic);
    out.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    out.sentWarp = pic.sendWarpPic;

    FrameResult result;
    result.width = width, result.height = height;
    ReadBoxes(mLines, result);
    for (const DetectedBox& b : result.boxes) {
        out.survivors.push_back(b.rect);
        if (b.listed) out.kept.push_back(b.rect);
    }
    for (const std::string& line : mLines)
        sscanf(line.c_str(), "the num of qrcode is %d", &out.countLine);
    if (out.countLine >= 0 && out.countLine != static_cast<int>(out.kept.size()))
        ++mCountMismatches;
    return true;
}
