#include "inference/tensor_convert.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "platform/log.h"

namespace {

inline float Dequantize(unsigned char q, int zeroPoint, float scale) {
    return static_cast<float>((static_cast<double>(q) + static_cast<double>(zeroPoint)) *
                              static_cast<double>(scale));
}

}  // namespace

void Uint8ToFP32_C(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    for (int i = 0; i < n; ++i) {
        out[i] = Dequantize(in[i], zeroPoint, scale);
    }
}

namespace scancode {

void RunUint8ToFP32(const KernelVariant<Uint8ToFP32Fn>& kernel, int n, unsigned char const* in,
                    float* out, int zeroPoint, float scale) {
    if (n <= 0) {
        return;
    }
    const bool floatExact = zeroPoint > -kFloatExactZeroPoint && zeroPoint < kFloatExactZeroPoint;
    const int whole = floatExact ? WholeSteps(n, kernel.step) : 0;
    if (whole > 0) kernel.fn(whole, in, out, zeroPoint, scale);
    if (whole < n) Uint8ToFP32_C(n - whole, in + whole, out + whole, zeroPoint, scale);
}

}  // namespace scancode

void Uint8ToFP32(int n, unsigned char const* in, float* out, int zeroPoint, float scale) {
    static const auto& kernel = scancode::PickVariant(kUint8ToFP32Variants);
    scancode::RunUint8ToFP32(kernel, n, in, out, zeroPoint, scale);
}

void Uint8ToFP32(int h, int w, int c, unsigned char const* in, float* out, int zeroPoint,
                 float scale) {
    const int pixels = h * w;
    if (c <= 0 || pixels <= 0) {
        return;
    }
    for (int k = 0; k < c; ++k) {
        float* plane = out + static_cast<size_t>(k) * pixels;
        for (int p = 0; p < pixels; ++p) {
            plane[p] = Dequantize(in[static_cast<size_t>(p) * c + k], zeroPoint, scale);
        }
    }
}

void Uint8NhwcToNchw(int h, int w, int c, unsigned char const* in, unsigned char* out) {
    if (in == nullptr) {
        LOGE("nhwcToNchw Received a nullptr");
        return;  // nothing can be read
    }
    const int pixels = h * w;
    if (c <= 0 || pixels <= 0 || out == nullptr) {
        return;
    }
    if (c == 1) {
        memcpy(out, in, static_cast<size_t>(pixels));
        return;
    }
    for (int k = 0; k < c; ++k) {
        unsigned char* plane = out + static_cast<size_t>(k) * pixels;
        for (int p = 0; p < pixels; ++p) {
            plane[p] = in[static_cast<size_t>(p) * c + k];
        }
    }
}

void Fp16ToFp32(unsigned long n, half const* in, float* out) {
    for (unsigned long i = 0; i < n; ++i) {
        out[i] = HalfToFloat(in[i]);
    }
}

void Fp32ToFp16(unsigned long n, float const* in, half* out) {
    for (unsigned long i = 0; i < n; ++i) {
        out[i] = FloatToHalf(in[i]);
    }
}

int SetThreadAffinity() {
    // The kernel interface takes a 128-byte mask; cpu_set_t is exactly that.
    static_assert(sizeof(cpu_set_t) == 128, "128-byte CPU mask");
    const pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
    for (int lastCore = 4; lastCore <= 6; ++lastCore) {
        cpu_set_t mask;
        CPU_ZERO(&mask);
        for (int core = 4; core <= lastCore; ++core) {
            CPU_SET(core, &mask);
        }
        if (syscall(__NR_sched_setaffinity, tid, sizeof mask, &mask) == 0) {
            return 0;
        }
    }
    return -1;
}

std::string GetChipType() {
    return std::string();
}
