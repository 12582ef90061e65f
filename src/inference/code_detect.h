// The code detector: one 640 x 640 x 3 float image in, the five dequantized
// output maps (51150 floats) out.
#pragma once

class Network;

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

// A new CodeDetectNpu; the caller owns it.
CodeDetectbase* GetCodeDetect();

// Floats in the detector's output: five maps of 6 values per cell.
constexpr int kCodeDetectOutputFloats = 51150;
