#include "Module.hpp"
#include "Results.hpp"
#include "Sources.hpp"

#include <Torvo/EncodedTransform.hpp>
#include <Torvo/LinearFunctions.hpp>
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

using Torvo::CachedMatrixProduct;
using Torvo::CachedTransform;
using Torvo::Ciphertext;
using Torvo::EncodedTransform;
using Torvo::HomEvaluator;
using Torvo::LinearBounds;
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
        "each block. It knows no context; EncodedTransform and CachedTransform apply it to ciphertexts.");
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
            [](const LinearTransform& self, const SharedContext& context, unsigned long log_slots,
               unsigned long level, const TransformOptions& options) {
                const py::gil_scoped_release released;
                return self.getRotationIndices(context.context, log_slots, level, options);
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
    return listOf<Ciphertext>(std::move(outs));
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
                         unsigned long log_slots, unsigned long level, const TransformOptions& options) {
                 const py::gil_scoped_release released;
                 return std::make_unique<EncodedHandle>(context.context, transform, log_slots, level,
                                                        options);
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
                    "A list of several transforms of one ciphertext, which share its decomposition.")
        .def_static(
            "apply_sum",
            [](const HomEvaluator& evaluator, const Operands<Ciphertext>& ins,
               const Operands<EncodedTransform>& transforms, CiphertextHandle& out) {
                const Computing computing(
                    joined(joined(readingAll(ins), readingAll(transforms)), {writing(out)}));
                EncodedTransform::applySum(evaluator, copiesOf(ins), copiesOf(transforms), out.object());
            },
            py::arg("evaluator"), py::arg("operands"), py::arg("transforms"), py::arg("out"),
            "out = the sum of the transforms, one for each ciphertext, rescaled once.");
    handle.def("__reduce__", [](const EncodedHandle& self) {
        return restoredBy("EncodedTransform", py::make_tuple(contextOf(self), savedBytes(self)));
    });
    defineSave<EncodedTransform>(handle, "Writes the transform into a file, which is replaced as a whole.");
    defineLoad<EncodedTransform>(handle, "transform");
}

void bindProduct(py::module_& module) {
    py::class_<MatrixProduct>(
        module, "MatrixProduct",
        "Products of encrypted square matrices, row by row in the slots, for three levels. The dimension is "
        "a power of two; several matrices may lie one behind the other.")
        .def(py::init([](const SharedContext& context, unsigned long dimension, unsigned long log_slots,
                         unsigned long level) {
                 const py::gil_scoped_release released;
                 return std::make_unique<MatrixProduct>(context.context, dimension, log_slots, level);
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
            [](const SharedContext& context, unsigned long dimension, unsigned long log_slots,
               unsigned long level) {
                const py::gil_scoped_release released;
                return MatrixProduct::getRotationIndices(context.context, dimension, log_slots, level);
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

/// What both kinds of cached encodings have. They lock themselves, and nobody changes what they stand for.
template <class Cached>
void defineCache(py::class_<Cached>& handle) {
    handle
        .def(
            "rotations",
            [](const Cached& self, const SharedContext& context, unsigned long log_slots) {
                const py::gil_scoped_release released;
                return self.getRotationIndices(context.context, log_slots);
            },
            py::arg("context"), py::arg("log_slots"),
            "The rotations to the left that it needs keys for on 2^log_slots slots, at any level.")
        .def_property_readonly("encoded_bytes", &Cached::getEncodedBytes,
                               "The bytes of all that was encoded.")
        .def("clear", &Cached::clear, py::call_guard<py::gil_scoped_release>(),
             "Gives up what was encoded. Calls that use it go on with what they have.");
}

void bindCached(py::module_& module) {
    py::class_<CachedTransform> transform(
        module, "CachedTransform",
        "A linear transform for functions, which choose the level: it is encoded for a ring, a number of "
        "slots and a level when it is first applied there, and keeps what was encoded. One set of rotation "
        "keys serves every level. Threads may share it.");
    transform
        .def(py::init([](const LinearTransform& matrix, const TransformOptions& options) {
                 const py::gil_scoped_release released;
                 return std::make_unique<CachedTransform>(matrix, options);
             }),
             py::arg("transform"), py::arg("options") = TransformOptions())
        .def_property_readonly("size", &CachedTransform::getSize, "Rows and columns of the matrix.");
    defineCache(transform);
    py::class_<CachedMatrixProduct> product(
        module, "CachedMatrixProduct",
        "The product of encrypted square matrices for functions, which choose the level: its transforms are "
        "encoded when they are first applied at a level, and kept. The dimension is a power of two.");
    product
        .def(py::init([](unsigned long dimension) {
                 const py::gil_scoped_release released;
                 return std::make_unique<CachedMatrixProduct>(dimension);
             }),
             py::arg("dimension"))
        .def_property_readonly("dimension", &CachedMatrixProduct::getDimension, "Rows of a matrix.");
    defineCache(product);
}

LinearBounds boundsOf(double bound, bool isReal, double resultBound) {
    return {.bound = bound, .isReal = isReal, .resultBound = resultBound};
}

/// A linear function: behind its own arguments stands what it is told of the numbers.
template <class Function, class... Arguments>
void defineLinear(py::module_& module, const char* name, Function function, const char* text,
                  const Arguments&... arguments) {
    module.def(name, function, arguments..., py::arg("bound") = LinearBounds{}.bound,
               py::arg("is_real") = LinearBounds{}.isReal,
               py::arg("result_bound") = LinearBounds{}.resultBound, text);
}

template <class On>
void defineTransforms(py::module_& module) {
    using Value = ValueOf<On>;
    defineLinear(
        module, "apply_transform",
        [](typename On::Handle& on, const ValueHandle<On>& in, const CachedTransform& transform,
           ValueHandle<On>& out, double bound, bool isReal, double resultBound) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::applyTransform<Value>(evaluator, inputOf(in), transform, result,
                                             boundsOf(bound, isReal, resultBound));
            });
        },
        "out = the linear transform of each block of slots, for one level.", py::arg("on"),
        py::arg("operand"), py::arg("transform"), py::arg("out"));
    defineLinear(
        module, "apply_transforms",
        [](typename On::Handle& on, const ValueHandle<On>& in, const std::vector<CachedTransform>& transforms,
           double bound, bool isReal, double resultBound) {
            std::vector<Value> outs;
            {
                const Computing computing(joined({reading(in)}, On::wanted(on)));
                const Torvo::FunctionEvaluator<Value> evaluator(On::of(on));
                Torvo::applyTransform<Value>(evaluator, inputOf(in), transforms, outs,
                                             boundsOf(bound, isReal, resultBound));
            }
            return listOf<typename On::Object>(std::move(outs));
        },
        "A list of several transforms of one operand, which share its decomposition.", py::arg("on"),
        py::arg("operand"), py::arg("transforms"));
    defineLinear(
        module, "sum_of_transforms",
        [](typename On::Handle& on, const ValueOperands<On>& ins,
           const std::vector<CachedTransform>& transforms, ValueHandle<On>& out, double bound, bool isReal,
           double resultBound) {
            compute<On>(on, readingAll(ins), out, [&](Of<On> evaluator, Value& result) {
                Torvo::sumOfTransforms<Value>(evaluator, copiesOf(ins), transforms, result,
                                              boundsOf(bound, isReal, resultBound));
            });
        },
        "out = the sum of the transforms, one for each operand, rescaled once.", py::arg("on"),
        py::arg("operands"), py::arg("transforms"), py::arg("out"));
    defineLinear(
        module, "multiply_matrices",
        [](typename On::Handle& on, const ValueHandle<On>& a, const ValueHandle<On>& b,
           const CachedMatrixProduct& product, ValueHandle<On>& out, double bound, bool isReal,
           double resultBound) {
            compute<On>(on, {reading(a), reading(b)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::multiplyMatrices<Value>(evaluator, inputOf(a), inputOf(b), product, result,
                                               boundsOf(bound, isReal, resultBound));
            });
        },
        "out = the products of the matrices of a with those of b, for three levels.", py::arg("on"),
        py::arg("a"), py::arg("b"), py::arg("product"), py::arg("out"));
}

} // namespace

void bindLinear(py::module_& module) {
    bindTransform(module);
    bindEncoded(module);
    bindProduct(module);
    bindCached(module);
    defineTransforms<OnEvaluator>(module);
    defineTransforms<OnBootstrapping>(module);
    defineTransforms<OnPlan>(module);
    defineTransforms<OnMessages>(module);
}

} // namespace TorvoPython
