// The code detector: one float image of the layout's input size in, the
// dequantized output maps of its heads out, as one buffer of kOutputValues
// floats (inference/detector_layout.h).
#pragma once

#include "inference/detector_layout.h"
#include "inference/npu_network.h"

class CodeDetectbase {
  public:
    virtual ~CodeDetectbase() = default;
    virtual int Init();
    virtual int CodeDetect(float* in, float* out, int n);
    virtual int CodeDetect(float* in, unsigned char* out, int n);
    virtual bool GetLoadFlag();
    virtual int LoadModel() = 0;
    virtual int UnloadModel() = 0;

    // Copies the input into `net`, runs it and dequantizes every output into `out`.
    int DoCodeDetect(Network& net, float* in, float* out, int n);
};

// The detector on the NPU network. Loads lazily on the first CodeDetect when
// LoadModel was not called.
class CodeDetectNpu : public CodeDetectbase {
  public:
    CodeDetectNpu();
    // Destroys the network without unloading it.
    ~CodeDetectNpu() override = default;

    int Init() override;
    int CodeDetect(float* in, float* out, int n) override;
    using CodeDetectbase::CodeDetect;  // the 8-bit overload keeps failing
    bool GetLoadFlag() override;
    int LoadModel() override;
    int UnloadModel() override;

    NpuNetwork network;
};

// A new CodeDetectNpu; the caller owns it.
CodeDetectbase* GetCodeDetect();
