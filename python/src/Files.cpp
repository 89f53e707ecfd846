#include "Module.hpp"

#include <Torvo/Inspect.hpp>

#include <pybind11/stl.h>

#include <string>

namespace TorvoPython {

using Torvo::FileContent;
using Torvo::FileReport;

void bindFiles(py::module_& module) {
    py::class_<FileContent>(module, "FileContent",
                            "What a file holds if it is of this kind; None is not told.")
        .def_property_readonly(
            "kind", [](const FileContent& self) { return Torvo::toString(self.kind); },
            "The kind in lower-case words, such as \"ciphertext\".")
        .def_readonly("context_hash", &FileContent::contextHash, "The stamp of the ring.")
        .def_readonly("level", &FileContent::level, "The level, or that of fresh encryptions of a context.")
        .def_readonly("degree", &FileContent::degree, "The degree of the ring.")
        .def_readonly("log_slots", &FileContent::logSlots, "log2 of the number of slots.")
        .def_readonly("count", &FileContent::count, "How many parts of its kind there are.")
        .def_readonly("key_type", &FileContent::keyType, "The letter of an evaluation key.")
        .def_readonly("rotation_index", &FileContent::rotationIndex, "The rotation of a rotation key.")
        .def_readonly("is_seed_only", &FileContent::isSeedOnly,
                      "Of a secret key: whether it is the seed alone.");
    py::class_<FileReport>(module, "FileReport", "What `inspect` finds.")
        .def_readonly("path", &FileReport::path, "The path that was given.")
        .def_readonly("size", &FileReport::size, "Bytes of the file.")
        .def_readonly("kinds", &FileReport::kinds, "Each kind that the file can be.")
        .def_readonly("refusal", &FileReport::refusal, "Why no kind is told; empty when one is.");
    module.def(
        "inspect",
        [](const std::string& path) {
            const py::gil_scoped_release released;
            return Torvo::inspect(path);
        },
        py::arg("path"), "Tells what a file can be loaded as, without a context and without loading it.");
}

} // namespace TorvoPython
