#include "Module.hpp"

#include <Torvo/CudaTools.hpp>
#include <Torvo/Device.hpp>

#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <string>

namespace TorvoPython {

using Torvo::Device;
using Torvo::DeviceType;

namespace {

/// Only names a group of functions.
struct CudaTools {};

void bindCudaTools(py::module_& module) {
    namespace Tools = Torvo::CudaTools;
    py::class_<CudaTools>(module, "CudaTools",
                          "Queries and commands to the GPU runtime. This build has no GPU backend: every "
                          "query gives False or 0, and every command does nothing.")
        .def_static("is_available", &Tools::isAvailable, "Whether a GPU backend is present.")
        .def_static("cuda_device_synchronize", &Tools::cudaDeviceSynchronize,
                    py::call_guard<py::gil_scoped_release>(), "Waits for the current GPU.")
        .def_static("cuda_get_device", &Tools::cudaGetDevice, "The number of the current GPU.")
        .def_static("cuda_get_device_count", &Tools::cudaGetDeviceCount, "How many GPUs there are.")
        .def_static("cuda_set_device", &Tools::cudaSetDevice, py::arg("id"), "Chooses the current GPU.")
        .def_static("get_cuda_memory_info", &Tools::getCudaMemoryInfo,
                    "Free and total memory of the current GPU in bytes.")
        .def_static(
            "nvtx_push", [](const std::string& name) { Tools::nvtxPush(name.c_str()); }, py::arg("name"),
            "Opens a named range in a profiler's timeline.")
        .def_static("nvtx_pop", &Tools::nvtxPop, "Closes the range opened last.");
}

} // namespace

void bindDevices(py::module_& module) {
    py::enum_<DeviceType>(module, "DeviceType", "Kinds of devices that numbers can be on.")
        .value("CPU", DeviceType::CPU)
        .value("GPU", DeviceType::GPU)
        .value("PinnedHost", DeviceType::PinnedHost);
    py::class_<Device>(module, "Device",
                       "A place for data: a kind of device and its number. A DeviceType serves as one.")
        .def(py::init([](DeviceType type, int id) { return Device{.type = type, .id = id}; }),
             py::arg("type") = DeviceType::CPU, py::arg("id") = 0)
        .def_readonly("type", &Device::type, "The kind of device.")
        .def_readonly("id", &Device::id, "Its number.")
        .def(
            "__eq__", [](const Device& self, const Device& other) { return self == other; },
            py::arg("other").noconvert(), py::is_operator())
        .def("__hash__", [](const Device& self) {
            return py::hash(py::make_tuple(static_cast<int>(self.type), self.id));
        });
    py::implicitly_convertible<DeviceType, Device>();
    module.def("get_current_cuda_device", &Torvo::getCurrentCudaDevice,
               "The GPU that a request without a device number goes to.");
    module.def("set_current_cuda_device", &Torvo::setCurrentCudaDevice, py::arg("id"),
               "Makes a GPU the current one; without a GPU backend this does nothing.");
    bindCudaTools(module);
}

} // namespace TorvoPython
