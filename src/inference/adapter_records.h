// The records and function types of the platform's neural-network adapter
// library. The records are wire formats (64-bit little-endian layout): the
// static_asserts pin every field the adapter reads.
#pragma once

#include <cstddef>
#include <cstdint>

// Opaque adapter objects.
struct NNModelManager;
struct NNTensorBuffer;

// One tensor: handed to "NNTensorBufferCreateWithConfig" and, as a model
// descriptor's tensor entry, to "NNModelLoadFromBuffer".
struct NNTensorConfig {
    int32_t dims[4];   // N, H, W, C
    int32_t fixed0;    // 0
    int32_t dimCount;  // 4
    int32_t fixed1;    // 1
    int32_t unused28;
    const char* name;
    int32_t index;
    uint8_t zero44[20];
};
static_assert(sizeof(NNTensorConfig) == 64, "tensor config is 64 bytes");
static_assert(offsetof(NNTensorConfig, dims) == 0, "");
static_assert(offsetof(NNTensorConfig, fixed0) == 16, "");
static_assert(offsetof(NNTensorConfig, dimCount) == 20, "");
static_assert(offsetof(NNTensorConfig, fixed1) == 24, "");
static_assert(offsetof(NNTensorConfig, unused28) == 28, "");
static_assert(offsetof(NNTensorConfig, name) == 32, "");
static_assert(offsetof(NNTensorConfig, index) == 40, "");
static_assert(offsetof(NNTensorConfig, zero44) == 44, "");

// Handed to "NNModelManagerCreateWithConfig".
struct NNModelManagerConfig {
    uint8_t zero0[32];
    int32_t fixed32;  // 1
    int32_t zero36;
    int32_t fixed40;  // 1
    uint8_t zero44[20];
};
static_assert(sizeof(NNModelManagerConfig) == 64, "manager config is 64 bytes");
static_assert(offsetof(NNModelManagerConfig, fixed32) == 32, "");
static_assert(offsetof(NNModelManagerConfig, zero36) == 36, "");
static_assert(offsetof(NNModelManagerConfig, fixed40) == 40, "");
static_assert(offsetof(NNModelManagerConfig, zero44) == 44, "");

// Handed to "NNModelLoadFromBuffer": the model bytes in memory and its tensors.
struct NNModelDescriptor {
    const char* name;
    const void* data;
    int32_t size;
    int32_t unused20;
    int32_t magic;    // 0x43414645, "EFAC" in memory
    int32_t fixed28;  // 1
    int32_t fixed32;  // 2
    int16_t fixed36;  // 0
    int16_t unused38;
    uint8_t zero40[16];
    int32_t inputCount;
    int32_t outputCount;
    NNTensorConfig** inputs;
    NNTensorConfig** outputs;
    uint8_t zero80[48];
};
static_assert(sizeof(NNModelDescriptor) == 128, "model descriptor is 128 bytes");
static_assert(offsetof(NNModelDescriptor, name) == 0, "");
static_assert(offsetof(NNModelDescriptor, data) == 8, "");
static_assert(offsetof(NNModelDescriptor, size) == 16, "");
static_assert(offsetof(NNModelDescriptor, unused20) == 20, "");
static_assert(offsetof(NNModelDescriptor, magic) == 24, "");
static_assert(offsetof(NNModelDescriptor, fixed28) == 28, "");
static_assert(offsetof(NNModelDescriptor, fixed32) == 32, "");
static_assert(offsetof(NNModelDescriptor, fixed36) == 36, "");
static_assert(offsetof(NNModelDescriptor, unused38) == 38, "");
static_assert(offsetof(NNModelDescriptor, zero40) == 40, "");
static_assert(offsetof(NNModelDescriptor, inputCount) == 56, "");
static_assert(offsetof(NNModelDescriptor, outputCount) == 60, "");
static_assert(offsetof(NNModelDescriptor, inputs) == 64, "");
static_assert(offsetof(NNModelDescriptor, outputs) == 72, "");
static_assert(offsetof(NNModelDescriptor, zero80) == 80, "");

constexpr int32_t kModelDescriptorMagic = 0x43414645;

// The eight adapter functions, as looked up by name.
using NNModelManagerCreateWithConfigFn = NNModelManager* (*)(const NNModelManagerConfig*);
using NNModelLoadFromBufferFn = int32_t (*)(NNModelManager*, const NNModelDescriptor*, int32_t);
using NNModelManagerDestroyFn = void (*)(NNModelManager*);
using NNModelUnloadFn = int32_t (*)(NNModelManager*);
using NNTensorBufferCreateWithConfigFn = NNTensorBuffer* (*)(NNModelManager*,
                                                             const NNTensorConfig*);
using NNTensorBufferGetDataFn = void* (*)(NNTensorBuffer*);
using NNModelRunFn = int32_t (*)(NNModelManager*, const char*, NNTensorBuffer**, int32_t,
                                 NNTensorBuffer**, int32_t, int32_t);
using NNTensorBufferDestroyFn = void (*)(NNTensorBuffer*);
