/*
 * A stand-in for the platform's neural-network adapter library, for tests.
 *
 * The shared object exports the eight adapter functions the library looks up
 * by name, and this control API. A test links against the same shared object
 * (or dlopen()s its path first), so the library's own dlopen() of that path
 * returns the same, already loaded object with the same state; the test's
 * reference also keeps it loaded across the library's dlclose().
 *
 * Answers, unless scripted otherwise:
 *   NNModelManagerCreateWithConfig   a new manager
 *   NNModelLoadFromBuffer            0; -1 when the model buffer is null or empty
 *   NNTensorBufferCreateWithConfig   a new tensor of N*H*W*C bytes, zeroed
 *   NNTensorBufferGetData            the tensor's bytes (null for an unknown tensor)
 *   NNModelRun                       0; copies the scripted output bytes into the
 *                                    output tensors first
 *   NNModelUnload                    0
 *
 * Every call is recorded in order with the bytes it was handed, under keys:
 *
 *   function                        keys (integers little-endian; handles as 8 bytes)
 *   NNModelManagerCreateWithConfig  "config" (64 bytes), "result"
 *   NNModelLoadFromBuffer           "manager", "descriptor" (128 bytes), "name" (model
 *                                   name without NUL), "model" (the model bytes),
 *                                   "count" (int32), "inputs"/"outputs" (the descriptor's
 *                                   pointer arrays, 8 bytes an entry), "input<i>" and
 *                                   "output<i>" (64-byte tensor record entry i points to),
 *                                   "input<i>_name", "output<i>_name"
 *   NNTensorBufferCreateWithConfig  "manager", "config" (64 bytes), "name", "result"
 *   NNTensorBufferGetData           "tensor", "result"
 *   NNModelRun                      "manager", "name", "inputs", "input_count" (int32),
 *                                   "outputs", "output_count" (int32), "timeout" (int32)
 *   NNTensorBufferDestroy           "tensor"
 *   NNModelUnload                   "manager"
 *   NNModelManagerDestroy           "manager"
 *
 * Build variants leave functions out (OMIT_<function>) to test missing symbols.
 */
#ifndef SCRIPTED_ADAPTER_H
#define SCRIPTED_ADAPTER_H

#include <stddef.h>

#define SCRIPTED_ADAPTER_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Forgets the script and the records. Live managers and tensors stay valid. */
SCRIPTED_ADAPTER_API void ScriptedAdapterReset(void);

/* Scripts `function` to answer `status` from its (after + 1)-th call on (0:
 * from now on). For NNModelLoadFromBuffer, NNModelRun and NNModelUnload the
 * status is returned; for NNModelManagerCreateWithConfig,
 * NNTensorBufferCreateWithConfig and NNTensorBufferGetData a non-zero status
 * makes them return null. Status 0 restores the default answer. */
SCRIPTED_ADAPTER_API void ScriptedAdapterSetStatus(const char* function, int status, int after);

/* Bytes that every later NNModelRun copies into its output tensor `index`
 * (position in the run's output array), cut to the tensor's size. */
SCRIPTED_ADAPTER_API void ScriptedAdapterSetOutput(int index, const void* bytes, size_t size);

/* The recorded calls, oldest first. */
SCRIPTED_ADAPTER_API int ScriptedAdapterCallCount(void);
SCRIPTED_ADAPTER_API const char* ScriptedAdapterCallName(int call);
/* Bytes recorded under `key` for call `call`, or null when there are none. */
SCRIPTED_ADAPTER_API const void* ScriptedAdapterCallBlob(int call, const char* key, size_t* size);
/* Drops the recorded calls only (long runs call NNTensorBufferGetData a lot). */
SCRIPTED_ADAPTER_API void ScriptedAdapterClearCalls(void);

/* The first input tensor's bytes as the last NNModelRun saw them. */
SCRIPTED_ADAPTER_API const void* ScriptedAdapterRunInput(size_t* size);

/* Managers and tensors created and not yet destroyed. */
SCRIPTED_ADAPTER_API int ScriptedAdapterLiveManagers(void);
SCRIPTED_ADAPTER_API int ScriptedAdapterLiveTensors(void);

#ifdef __cplusplus
}
#endif

#endif /* SCRIPTED_ADAPTER_H */
