#include <Torvo/Device.hpp>

#include <Torvo/CudaTools.hpp>

namespace Torvo {

Device getCurrentCudaDevice() {
    return {DeviceType::GPU, CudaTools::cudaGetDevice()};
}

void setCurrentCudaDevice(int id) {
    CudaTools::cudaSetDevice(id);
}

} // namespace Torvo
