#pragma once

#include <Torvo/Export.hpp>

#include <cstddef>
#include <utility>

/// Queries and commands to the GPU runtime. This build has no GPU backend: every query returns
/// false or 0, and every command does nothing. All functions are thread-safe and never throw.
namespace Torvo::CudaTools {

/// Whether a GPU backend is present: false.
TORVO_API bool isAvailable();

/// Waits for the current GPU: nothing to wait for.
TORVO_API void cudaDeviceSynchronize();

/// Number of the current GPU: 0.
TORVO_API int cudaGetDevice();

/// How many GPUs there are: 0.
TORVO_API int cudaGetDeviceCount();

/// Chooses the current GPU. Ignored.
TORVO_API void cudaSetDevice(int id);

/// Free and total memory of the current GPU in bytes: both 0.
TORVO_API std::pair<std::size_t, std::size_t> getCudaMemoryInfo();

/// Opens a named range in a profiler's timeline: ignored.
TORVO_API void nvtxPush(const char* name);

/// Closes the range opened last: ignored.
TORVO_API void nvtxPop();

} // namespace Torvo::CudaTools
