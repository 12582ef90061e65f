#include "engine.h"

#include <cstdlib>
#include <cstring>

namespace scanref {

#ifndef SCANREF_HAVE_XNNPACK
std::unique_ptr<Engine> MakeXnnpackEngine(const ModelHeader&, const unsigned char*, int,
                                          std::string* why) {
    *why = "this adapter was built without XNNPACK";
    return nullptr;
}
#endif

bool EngineFromEnvironment(EngineKind* kind, std::string* why) {
    const char* name = std::getenv("SCANREF_ENGINE");
    if (name == nullptr || *name == '\0') {
        *kind = EngineKind::kAny;
    } else if (std::strcmp(name, "dnn") == 0) {
        *kind = EngineKind::kDnn;
    } else if (std::strcmp(name, "xnnpack") == 0) {
        *kind = EngineKind::kXnnpack;
    } else {
        *why = std::string("SCANREF_ENGINE names no engine: ") + name + " (dnn or xnnpack)";
        return false;
    }
    return true;
}

std::unique_ptr<Engine> MakeEngine(EngineKind kind, const ModelHeader& header,
                                   const unsigned char* onnx, std::string* why) {
    // XNNPACK on the calling thread (see xnnpack_engine.cpp); dnn on two, as
    // the adapter always ran it.
    constexpr int kXnnpackThreads = 1, kDnnThreads = 2;
    if (kind == EngineKind::kDnn) return MakeDnnEngine(header, onnx, kDnnThreads, why);
    auto fast = MakeXnnpackEngine(header, onnx, kXnnpackThreads, why);
    if (fast != nullptr || kind == EngineKind::kXnnpack) return fast;
    return MakeDnnEngine(header, onnx, kDnnThreads, why);
}

}  // namespace scanref
