#include <Torvo/CudaTools.hpp>

namespace Torvo::CudaTools {

bool isAvailable() {
    return false;
}

void cudaDeviceSynchronize() {}

int cudaGetDevice() {
    return 0;
}

int cudaGetDeviceCount() {
    return 0;
}

void cudaSetDevice(int) {}

std::pair<std::size_t, std::size_t> getCudaMemoryInfo() {
    return {0, 0};
}

void nvtxPush(const char*) {}

void nvtxPop() {}

} // namespace Torvo::CudaTools
