#include "model_header.h"

#include <cfenv>
#include <cmath>
#include <cstring>

namespace scanref {
namespace {

uint32_t ReadU32(const unsigned char* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// A name field must hold a non-empty string and its terminating NUL.
bool ReadName(const unsigned char* p, std::string* out) {
    const void* nul = std::memchr(p, 0, kNameBytes);
    if (nul == nullptr || nul == p) return false;
    out->assign(reinterpret_cast<const char*>(p), static_cast<const unsigned char*>(nul) - p);
    return true;
}

// The output table: each output's name and quantization.
bool ReadOutputs(const unsigned char* data, uint32_t count, ModelHeader* header, std::string* why) {
    ModelHeader& h = *header;
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* e = data + kFixedHeaderBytes + i * kOutputEntryBytes;
        OutputInfo o;
        if (!ReadName(e, &o.name) || h.FindOutput(o.name) >= 0 || o.name == h.inputName) {
            *why = "bad or repeated name of output " + std::to_string(i);
            return false;
        }
        std::memcpy(&o.scale, e + kNameBytes, 4);
        std::memcpy(&o.zeroPoint, e + kNameBytes + 4, 4);
        if (!(o.scale > 0.0f) || !std::isfinite(o.scale)) {
            *why = "bad scale of output " + o.name;
            return false;
        }
        h.outputs.push_back(o);
    }
    return true;
}

}  // namespace

int ModelHeader::FindOutput(const std::string& name) const {
    for (size_t i = 0; i < outputs.size(); ++i) {
        if (outputs[i].name == name) return static_cast<int>(i);
    }
    return -1;
}

bool ParseModelHeader(const unsigned char* data, size_t size, ModelHeader* header,
                      size_t* onnxOffset, std::string* why) {
    if (size < kFixedHeaderBytes) {
        *why = "model file of " + std::to_string(size) + " bytes is shorter than its header";
        return false;
    }
    if (std::memcmp(data, kModelMagic, sizeof(kModelMagic)) != 0) {
        *why = "not a model file (bad magic)";
        return false;
    }
    const uint32_t version = ReadU32(data + 4);
    if (version != kModelVersion) {
        *why = "unsupported model file version " + std::to_string(version);
        return false;
    }
    const uint32_t count = ReadU32(data + 8);
    if (count < 1 || count > kMaxOutputs) {
        *why = "bad output count " + std::to_string(count);
        return false;
    }
    const size_t headerBytes = kFixedHeaderBytes + count * kOutputEntryBytes;
    const size_t onnxSize = ReadU32(data + 12);
    if (size < headerBytes || onnxSize == 0 || size - headerBytes < onnxSize) {
        *why = "model file truncated: " + std::to_string(size) + " bytes, header and graph need " +
               std::to_string(headerBytes + onnxSize);
        return false;
    }
    ModelHeader h;
    if (!ReadName(data + 16, &h.inputName)) {
        *why = "bad input name";
        return false;
    }
    const uint32_t form = ReadU32(data + 32);
    if (form != static_cast<uint32_t>(InputForm::kPlanes) &&
        form != static_cast<uint32_t>(InputForm::kLuma)) {
        *why = "unknown input form " + std::to_string(form);
        return false;
    }
    h.inputForm = static_cast<InputForm>(form);
    h.cropStep = ReadU32(data + 36);
    if (h.cropStep > kMaxCropStep || (h.cropStep & (h.cropStep - 1)) != 0) {
        *why = "bad crop step " + std::to_string(h.cropStep);
        return false;
    }
    if (!ReadOutputs(data, count, &h, why)) return false;
    h.onnxSize = onnxSize;
    *header = std::move(h);
    *onnxOffset = headerBytes;
    return true;
}

void QuantizeOutput(const float* values, size_t count, const OutputInfo& output, uint8_t* codes) {
    const double scale = output.scale;
    for (size_t i = 0; i < count; ++i) {
        // nearbyint rounds halves to even in the default rounding mode; NaN maps to 0.
        const double q = std::nearbyint(static_cast<double>(values[i]) / scale) - output.zeroPoint;
        codes[i] = q >= 255.0 ? 255 : q > 0.0 ? static_cast<uint8_t>(q) : 0;
    }
}

}  // namespace scanref
