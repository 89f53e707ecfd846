#include "context/CudaIdsToDevices.hpp"

#include "context/Messages.hpp"

#include <Torvo/CudaTools.hpp>
#include <Torvo/RuntimeException.hpp>

#include <string>

namespace Torvo {

std::set<Device> cudaIdsToDevices(const std::set<int>& ids) {
    const int count = CudaTools::cudaGetDeviceCount();
    std::set<Device> devices;
    for (const int id : ids) {
        if (id >= count) throw RuntimeException(message::invalidCudaDevice + std::to_string(id));
        devices.insert({DeviceType::GPU, id});
    }
    return devices;
}

} // namespace Torvo
