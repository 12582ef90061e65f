#include "library_run.h"

namespace {

scancode::ScannerOptions WithModel(const std::string& model) {
    scancode::ScannerOptions o;
    o.modelPath = model;
    return o;
}

}  // namespace

LibraryRunner::LibraryRunner(const std::string& model) : mScanner(WithModel(model)) {}

void LibraryRunner::Run(const std::vector<uint8_t>& nv21, int width, int height,
                        LibraryFrame& out) {
    scancode::Result r = mScanner.Scan(nv21.data(), nv21.size(), width, height);
    out = LibraryFrame();
    out.rc = r.code;
    out.ms = r.ms;
    out.sentWarp = !r.straightened.empty();
    out.returned = std::move(r.straightened);
    for (const scancode::Box& b : r.boxes) {
        out.survivors.push_back(b.rect);
        if (b.listed) out.kept.push_back(b.rect);
    }
    out.countLine = r.libraryCount;
    if (out.countLine >= 0 && out.countLine != static_cast<int>(out.kept.size()))
        ++mCountMismatches;
}
