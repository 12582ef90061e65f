// The scripted adapter; see scripted_adapter.h. It reads the records it is
// handed at their byte offsets, independently of the library's declarations,
// so a layout fault on either side shows up in the recorded bytes.
#include "scripted_adapter.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#define ADAPTER_API extern "C" __attribute__((visibility("default")))

// The platform's type names, left opaque: the signatures must be the very
// function types the library calls through (clang's -fsanitize=function
// checks that), while the records are still read by byte offset below.
struct NNModelManager;
struct NNModelManagerConfig;
struct NNModelDescriptor;
struct NNTensorBuffer;
struct NNTensorConfig;

namespace {

constexpr size_t kTensorRecordSize = 64;
constexpr size_t kManagerRecordSize = 64;
constexpr size_t kModelRecordSize = 128;

struct Manager {
    int unused;
};

struct Tensor {
    std::vector<uint8_t> bytes;
};

struct Call {
    std::string name;
    std::map<std::string, std::string> blobs;
};

struct Script {
    int status = 0;
    int after = 0;
    int calls = 0;
};

struct State {
    std::mutex mutex;
    std::map<std::string, Script> scripts;
    std::map<int, std::string> outputs;
    std::deque<Call> calls;
    std::set<Manager*> managers;
    std::set<Tensor*> tensors;
    std::string runInput;

    // Managers and tensors a caller abandoned die with the adapter.
    ~State() {
        for (Manager* m : managers) delete m;
        for (Tensor* t : tensors) delete t;
    }
};

State& TheState() {
    // Destroyed when the adapter is unloaded: a host that never opens the
    // adapter itself sees it go away at the library's dlclose.
    static State state;
    return state;
}

// The scripted status of this call of `function` (0: answer normally).
int NextStatus(State& s, const char* function) {
    auto found = s.scripts.find(function);
    if (found == s.scripts.end()) return 0;
    Script& script = found->second;
    return script.calls++ >= script.after ? script.status : 0;
}

std::string Bytes(const void* p, size_t n) {
    return p != nullptr ? std::string(static_cast<const char*>(p), n) : std::string();
}

template <typename T>
std::string Value(T v) {
    return std::string(reinterpret_cast<const char*>(&v), sizeof v);
}

template <typename T>
T Read(const void* record, size_t offset) {
    T v;
    memcpy(&v, static_cast<const char*>(record) + offset, sizeof v);
    return v;
}

std::string Text(const char* s) {
    return s != nullptr ? std::string(s) : std::string();
}

Call& Record(State& s, const char* function) {
    s.calls.push_back(Call{function, {}});
    return s.calls.back();
}

// A tensor record: blobs "<prefix>" and "<prefix>_name" (or "config"/"name").
void RecordTensor(Call& call, const std::string& key, const std::string& nameKey,
                  const void* record) {
    if (record == nullptr) return;
    call.blobs[key] = Bytes(record, kTensorRecordSize);
    call.blobs[nameKey] = Text(Read<const char*>(record, 32));
}

}  // namespace

// --- adapter functions -------------------------------------------------------

#ifndef OMIT_NNModelManagerCreateWithConfig
ADAPTER_API NNModelManager* NNModelManagerCreateWithConfig(const NNModelManagerConfig* config) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Call& call = Record(s, "NNModelManagerCreateWithConfig");
    call.blobs["config"] = Bytes(config, kManagerRecordSize);
    Manager* manager = nullptr;
    if (NextStatus(s, "NNModelManagerCreateWithConfig") == 0) {
        manager = new Manager();
        s.managers.insert(manager);
    }
    call.blobs["result"] = Value(manager);
    return reinterpret_cast<NNModelManager*>(manager);
}
#endif

#ifndef OMIT_NNModelLoadFromBuffer
ADAPTER_API int32_t NNModelLoadFromBuffer(NNModelManager* manager,
                                          const NNModelDescriptor* descriptor, int32_t count) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Call& call = Record(s, "NNModelLoadFromBuffer");
    call.blobs["manager"] = Value(manager);
    call.blobs["count"] = Value(count);
    if (descriptor == nullptr) return -1;
    call.blobs["descriptor"] = Bytes(descriptor, kModelRecordSize);
    call.blobs["name"] = Text(Read<const char*>(descriptor, 0));
    const void* data = Read<const void*>(descriptor, 8);
    const int32_t size = Read<int32_t>(descriptor, 16);
    call.blobs["model"] = Bytes(data, size > 0 ? static_cast<size_t>(size) : 0);
    const int32_t inputCount = Read<int32_t>(descriptor, 56);
    const int32_t outputCount = Read<int32_t>(descriptor, 60);
    auto* const* inputs = Read<void* const*>(descriptor, 64);
    auto* const* outputs = Read<void* const*>(descriptor, 72);
    if (inputs != nullptr && inputCount > 0) {
        call.blobs["inputs"] = Bytes(inputs, sizeof(void*) * inputCount);
        for (int i = 0; i < inputCount; ++i) {
            const std::string key = "input" + std::to_string(i);
            RecordTensor(call, key, key + "_name", inputs[i]);
        }
    }
    if (outputs != nullptr && outputCount > 0) {
        call.blobs["outputs"] = Bytes(outputs, sizeof(void*) * outputCount);
        for (int i = 0; i < outputCount; ++i) {
            const std::string key = "output" + std::to_string(i);
            RecordTensor(call, key, key + "_name", outputs[i]);
        }
    }
    const int status = NextStatus(s, "NNModelLoadFromBuffer");
    if (status != 0) return status;
    // Like a real adapter: nothing to load is a failed load.
    return data == nullptr || size <= 0 ? -1 : 0;
}
#endif

#ifndef OMIT_NNModelManagerDestroy
ADAPTER_API void NNModelManagerDestroy(NNModelManager* manager) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Record(s, "NNModelManagerDestroy").blobs["manager"] = Value(manager);
    auto* m = reinterpret_cast<Manager*>(manager);
    if (s.managers.erase(m) != 0) delete m;
}
#endif

#ifndef OMIT_NNModelUnload
ADAPTER_API int32_t NNModelUnload(NNModelManager* manager) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Record(s, "NNModelUnload").blobs["manager"] = Value(manager);
    return NextStatus(s, "NNModelUnload");
}
#endif

#ifndef OMIT_NNTensorBufferCreateWithConfig
ADAPTER_API NNTensorBuffer* NNTensorBufferCreateWithConfig(NNModelManager* manager,
                                                           const NNTensorConfig* config) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Call& call = Record(s, "NNTensorBufferCreateWithConfig");
    call.blobs["manager"] = Value(manager);
    RecordTensor(call, "config", "name", config);
    Tensor* tensor = nullptr;
    if (NextStatus(s, "NNTensorBufferCreateWithConfig") == 0 && config != nullptr) {
        int64_t elements = 1;
        for (int d = 0; d < 4; ++d) elements *= Read<int32_t>(config, 4 * d);
        tensor = new Tensor();
        tensor->bytes.assign(static_cast<size_t>(elements > 0 ? elements : 1), 0);
        s.tensors.insert(tensor);
    }
    call.blobs["result"] = Value(tensor);
    return reinterpret_cast<NNTensorBuffer*>(tensor);
}
#endif

#ifndef OMIT_NNTensorBufferGetData
ADAPTER_API void* NNTensorBufferGetData(NNTensorBuffer* tensor) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Call& call = Record(s, "NNTensorBufferGetData");
    call.blobs["tensor"] = Value(tensor);
    auto* t = reinterpret_cast<Tensor*>(tensor);
    void* data = nullptr;
    if (NextStatus(s, "NNTensorBufferGetData") == 0 && s.tensors.count(t) != 0) {
        data = t->bytes.data();
    }
    call.blobs["result"] = Value(data);
    return data;
}
#endif

#ifndef OMIT_NNModelRun
ADAPTER_API int32_t NNModelRun(NNModelManager* manager, const char* name, NNTensorBuffer** inputs,
                               int32_t inputCount, NNTensorBuffer** outputs, int32_t outputCount,
                               int32_t timeout) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Call& call = Record(s, "NNModelRun");
    call.blobs["manager"] = Value(manager);
    call.blobs["name"] = Text(name);
    call.blobs["input_count"] = Value(inputCount);
    call.blobs["output_count"] = Value(outputCount);
    call.blobs["timeout"] = Value(timeout);
    if (inputs != nullptr && inputCount > 0) {
        call.blobs["inputs"] = Bytes(inputs, sizeof(void*) * inputCount);
        auto* in = reinterpret_cast<Tensor*>(inputs[0]);
        if (s.tensors.count(in) != 0) s.runInput = Bytes(in->bytes.data(), in->bytes.size());
    }
    if (outputs != nullptr && outputCount > 0) {
        call.blobs["outputs"] = Bytes(outputs, sizeof(void*) * outputCount);
    }
    const int status = NextStatus(s, "NNModelRun");
    if (status != 0) return status;
    for (int i = 0; outputs != nullptr && i < outputCount; ++i) {
        auto* out = reinterpret_cast<Tensor*>(outputs[i]);
        auto scripted = s.outputs.find(i);
        if (s.tensors.count(out) == 0 || scripted == s.outputs.end()) continue;
        memcpy(out->bytes.data(), scripted->second.data(),
               std::min(scripted->second.size(), out->bytes.size()));
    }
    return 0;
}
#endif

#ifndef OMIT_NNTensorBufferDestroy
ADAPTER_API void NNTensorBufferDestroy(NNTensorBuffer* tensor) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    Record(s, "NNTensorBufferDestroy").blobs["tensor"] = Value(tensor);
    auto* t = reinterpret_cast<Tensor*>(tensor);
    if (s.tensors.erase(t) != 0) delete t;
}
#endif

// --- control API ---------------------------------------------------------------

void ScriptedAdapterReset(void) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.scripts.clear();
    s.outputs.clear();
    s.calls.clear();
    s.runInput.clear();
}

void ScriptedAdapterSetStatus(const char* function, int status, int after) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.scripts[Text(function)] = Script{status, after, 0};
}

void ScriptedAdapterSetOutput(int index, const void* bytes, size_t size) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.outputs[index] = Bytes(bytes, size);
}

int ScriptedAdapterCallCount(void) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return static_cast<int>(s.calls.size());
}

const char* ScriptedAdapterCallName(int call) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (call < 0 || static_cast<size_t>(call) >= s.calls.size()) return nullptr;
    return s.calls[call].name.c_str();
}

const void* ScriptedAdapterCallBlob(int call, const char* key, size_t* size) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (size != nullptr) *size = 0;
    if (call < 0 || static_cast<size_t>(call) >= s.calls.size() || key == nullptr) return nullptr;
    const auto& blobs = s.calls[call].blobs;
    auto found = blobs.find(key);
    if (found == blobs.end()) return nullptr;
    if (size != nullptr) *size = found->second.size();
    return found->second.data();
}

void ScriptedAdapterClearCalls(void) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.clear();
}

const void* ScriptedAdapterRunInput(size_t* size) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (size != nullptr) *size = s.runInput.size();
    return s.runInput.data();
}

int ScriptedAdapterLiveManagers(void) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return static_cast<int>(s.managers.size());
}

int ScriptedAdapterLiveTensors(void) {
    State& s = TheState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return static_cast<int>(s.tensors.size());
}
