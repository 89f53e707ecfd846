#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/EncodedTransform.hpp>
#include <Torvo/LinearTransform.hpp>
#include <Torvo/MatrixProduct.hpp>

#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <complex>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace TorvoPython {

using Torvo::Ciphertext;
using Torvo::EncodedTransform;
using Torvo::HomEvaluator;
using Torvo::LinearTransform;
using Torvo::MatrixProduct;
using Torvo::TransformOptions;
using Complex = std::complex<double>;

namespace {

using Numbers = py::array_t<Complex, py::array::c_style | py::array::forcecast>;
using EncodedHandle = Guarded<EncodedTransform>;

std::vector<Complex> rowOf(const Complex* begin, py::ssize_t count) {
    return {begin, begin + count};
}

LinearTransform fromMatrix(const Numbers& matrix) {
    if (matrix.ndim() != 2)
        throw py::value_error("A matrix has two dimensions, but the array has " +
                              std::to_string(matrix.ndim()));
    std::vector<std::vector<Complex>> rows;
    rows.reserve(static_cast<std::size_t>(matrix.shape(0)));
    for (py::ssize_t i = 0; i < matrix.shape(0); ++i)
        rows.push_back(rowOf(matrix.data() + i * matrix.shape(1), matrix.shape(1)));
    const py::gil_scoped_release released;
    return LinearTransform::fromMatrix(rows);
}

LinearTransform fromDiagonals(unsigned long size, const std::map<unsigned long, Numbers>& diagonals) {
    std::map<unsigned long, std::vector<Complex>> rows;
    for (const auto& [index, numbers] : diagonals) rows.emplace(index, rowOf(numbers.data(), numbers.size()));
    const py::gil_scoped_release released;
    return LinearTransform::fromDiagonals(size, rows);
}

py::bytes bytesOf(const LinearTransform& transform) {
    std::ostringstream stream;
    {
        const py::gil_scoped_release released;
        transform.save(stream);
    }
    return stream.str();
}

LinearTransform fromBytes(const py::bytes& data) {
    LinearTransform transform;
    readAll(data, "transform", {}, [&](std::istream& stream) { transform.load(stream); });
    return transform;
}

LinearTransform fromFile(const std::string& path) {
    LinearTransform transform;
    transform.load(path);
    return transform;
}

/// A transform never changes in Python, so it needs no lock: a load makes another one.
void defineFiles(py::class_<LinearTransform>& handle) {
    handle
        .def("save", py::overload_cast<const std::string&>(&LinearTransform::save, py::const_),
             py::arg("path"), py::call_guard<py::gil_scoped_release>(),
             "Writes the matrix into a file, which is replaced as a whole.")
        .def("to_bytes", &bytesOf, "What `save` writes into a file, as bytes.")
        .def_property_readonly("saved_size", &LinearTransform::savedSize,
                               "The number of bytes that `save` writes.")
        .def_static("load", &fromFile, py::arg("path"), py::call_guard<py::gil_scoped_release>(),
                    "The transform of a file that `save` wrote.")
        .def_static("from_bytes", &fromBytes, py::arg("data"), "The transform whose `to_bytes` gave these.")
        .def("__reduce__", [](const LinearTransform& self) {
            return restoredBy("LinearTransform", py::make_tuple(bytesOf(self)));
        });
}

void bindTransform(py::module_& module) {
    py::class_<TransformOptions>(module, "TransformOptions", "What a linear transform may cost.")
        .def(py::init([](unsigned long maxKeys) { return TransformOptions{.maxKeys = maxKeys}; }),
             py::arg("max_keys") = TransformOptions().maxKeys)
        .def_readwrite("max_keys", &TransformOptions::maxKeys, "Rotation keys that it may need at most.");
    py::class_<LinearTransform> handle(
        module, "LinearTransform",
        "A linear map of slots: a square matrix whose size is a power of two. On more slots it is the map of "
        "each block. It knows no context; EncodedTransform applies it to ciphertexts.");
    defineFiles(handle);
    handle
        .def_static("from_matrix", &fromMatrix, py::arg("matrix"),
                    "The map of a matrix, padded with zeros to a square one.")
        .def_static("from_diagonals", &fromDiagonals, py::arg("size"), py::arg("diagonals"),
                    "The map of a matrix M that is zero but for some diagonals: number i of diagonal d is "
                    "M[i][(i + d) mod size].")
        .def_static("from_permutation", &LinearTransform::fromPermutation, py::arg("sources"),
                    py::call_guard<py::gil_scoped_release>(), "The map with out[i] = in[sources[i]].")
        .def_property_readonly("size", &LinearTransform::getSize, "Rows and columns of the matrix.")
        .def_property_readonly("diagonal_indices", &LinearTransform::getDiagonalIndices,
                               "The diagonals that are not zero.")
        .def(
            "rotations",
            [](const LinearTransform& self, const SharedContext& context, unsigned long logSlots,
               unsigned long level, const TransformOptions& options) {
                const py::gil_scoped_release released;
                return self.getRotationIndices(context.context, logSlots, level, options);
            },
            py::arg("context"), py::arg("log_slots"), py::arg("level"),
            py::arg("options") = TransformOptions(),
            "The rotations to the left that its encoded form will need keys for.")
        .def(
            "apply",
            [](const LinearTransform& self, const MessageHandle& in, MessageHandle& out) {
                const Computing computing{reading(in), writing(out)};
                out.object().requireNoView();
                self.apply(in.object(), out.object());
            },
            py::arg("operand"), py::arg("out"), "out = the map of a message, in the clear.");
}

/// The results of several transforms of one ciphertext, as new objects.
py::list applyMany(const HomEvaluator& evaluator, const CiphertextHandle& in,
                   const Operands<EncodedTransform>& transforms) {
    std::vector<Ciphertext> outs;
    {
        const Computing computing(joined(readingAll(transforms), {reading(in)}));
        EncodedTransform::apply(evaluator, in.object(), copiesOf(transforms), outs);
    }
    py::list result;
    for (Ciphertext& out : outs) result.append(std::make_unique<CiphertextHandle>(std::move(out)));
    return result;
}

void bindEncoded(py::module_& module) {
    py::class_<EncodedHandle> handle(
        module, "EncodedTransform",
        "A linear transform, encoded for ciphertexts of one ring, number of slots and level. Encoding takes "
        "several times as long as applying; the encoded form may be saved.");
    handle
        .def(py::init([](const SharedContext& context) {
                 return std::make_unique<EncodedHandle>(context.context);
             }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, const LinearTransform& transform,
                         unsigned long logSlots, unsigned long level, const TransformOptions& options) {
                 const py::gil_scoped_release released;
                 return std::make_unique<EncodedHandle>(context.context, transform, logSlots, level, options);
             }),
             py::arg("context"), py::arg("transform"), py::arg("log_slots"), py::arg("level"),
             py::arg("options") = TransformOptions())
        .def_property_readonly(
            "context", [](const EncodedHandle& self) { return contextOf(self); },
            "The context it was made for.")
        .def_property_readonly("is_empty", getter<EncodedTransform>(&EncodedTransform::isEmpty),
                               "Whether nothing was encoded or loaded yet.")
        .def_property_readonly("log_slots", getter<EncodedTransform>(&EncodedTransform::getLogSlots),
                               "log2 of the number of slots of its operands.")
        .def_property_readonly("level", getter<EncodedTransform>(&EncodedTransform::getLevel),
                               "The level that its operands come to.")
        .def_property_readonly("rotations", getter<EncodedTransform>(&EncodedTransform::getRotationIndices),
                               "The rotations to the left that it needs keys for.")
        .def(
            "apply",
            [](const EncodedHandle& self, const HomEvaluator& evaluator, const CiphertextHandle& in,
               CiphertextHandle& out) {
                const Computing computing{reading(self), reading(in), writing(out)};
                self.object().apply(evaluator, in.object(), out.object());
            },
            py::arg("evaluator"), py::arg("operand"), py::arg("out"),
            "out = the transform of a ciphertext, for one level.")
        .def_static("apply_many", &applyMany, py::arg("evaluator"), py::arg("operand"), py::arg("transforms"),
                    "A list of several transforms of one ciphertext, which share its decomposition.");
    handle.def("__reduce__", [](const EncodedHandle& self) {
        const py::object restore = py::module_::import("torvo._pickling").attr("encoded_transform");
        return py::make_tuple(restore, py::make_tuple(contextOf(self), savedBytes(self)));
    });
    defineSave<EncodedTransform>(handle, "Writes the transform into a file, which is replaced as a whole.");
    defineLoad<EncodedTransform>(handle, "transform");
}

void bindProduct(py::module_& module) {
    py::class_<MatrixProduct>(
        module, "MatrixProduct",
        "Products of encrypted square matrices, row by row in the slots, for three levels. The dimension is "
        "a power of two; several matrices may lie one behind the other.")
        .def(py::init([](const SharedContext& context, unsigned long dimension, unsigned long logSlots,
                         unsigned long level) {
                 const py::gil_scoped_release released;
                 return std::make_unique<MatrixProduct>(context.context, dimension, logSlots, level);
             }),
             py::arg("context"), py::arg("dimension"), py::arg("log_slots"), py::arg("level"))
        .def_property_readonly(
            "context", [](const MatrixProduct& self) { return SharedContext{self.getContext()}; },
            "The context it was made for.")
        .def_property_readonly("dimension", &MatrixProduct::getDimension, "Rows of a matrix.")
        .def_property_readonly("log_slots", &MatrixProduct::getLogSlots,
                               "log2 of the number of slots of its operands.")
        .def_property_readonly("level", &MatrixProduct::getLevel, "The level that its operands come to.")
        .def_property_readonly(
            "rotations", [](const MatrixProduct& self) { return self.getRotationIndices(); },
            "The rotations to the left that it needs keys for.")
        .def_static(
            "rotations_for",
            [](const SharedContext& context, unsigned long dimension, unsigned long logSlots,
               unsigned long level) {
                const py::gil_scoped_release released;
                return MatrixProduct::getRotationIndices(context.context, dimension, logSlots, level);
            },
            py::arg("context"), py::arg("dimension"), py::arg("log_slots"), py::arg("level"),
            "The same before anything is encoded.")
        .def(
            "mult",
            [](const MatrixProduct& self, const HomEvaluator& evaluator, const CiphertextHandle& a,
               const CiphertextHandle& b, CiphertextHandle& out) {
                const Computing computing{reading(a), reading(b), writing(out)};
                self.mult(evaluator, a.object(), b.object(), out.object());
            },
            py::arg("evaluator"), py::arg("a"), py::arg("b"), py::arg("out"),
            "out = the products of the matrices of a with those of b.")
        .def_static("transposition", &MatrixProduct::transposition, py::arg("dimension"),
                    "The linear transform of each matrix to its transpose.");
}

} // namespace

void bindLinear(py::module_& module) {
    bindTransform(module);
    bindEncoded(module);
    bindProduct(module);
}

} // namespace TorvoPython
