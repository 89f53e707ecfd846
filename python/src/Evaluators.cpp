#include "Handles.hpp"
#include "Module.hpp"
#include "Results.hpp"

#include <pybind11/complex.h>
#include <pybind11/stl.h>

#include <complex>
#include <vector>

namespace TorvoPython {

using Torvo::Ciphertext;
using Torvo::HomEvaluator;
using Torvo::Message;
using Torvo::Plaintext;

namespace {

using Class = py::class_<HomEvaluator>;
using Complex = std::complex<double>;

template <class T>
using Unary = void (HomEvaluator::*)(const LibraryOf<T>&, LibraryOf<T>&) const;
template <class T>
using Binary = void (HomEvaluator::*)(const LibraryOf<T>&, const LibraryOf<T>&, LibraryOf<T>&) const;
template <class T>
using WithConstant = void (HomEvaluator::*)(const LibraryOf<T>&, Complex, LibraryOf<T>&) const;
template <class T>
using WithIndex = void (HomEvaluator::*)(const LibraryOf<T>&, unsigned long, LibraryOf<T>&) const;
template <class T>
using WithCounts = void (HomEvaluator::*)(const LibraryOf<T>&, unsigned long, unsigned long,
                                          LibraryOf<T>&) const;
template <class T, class Other>
using CipherWith = void (HomEvaluator::*)(const T&, const Other&, T&) const;

template <class T>
void defineUnary(Class& handle, const char* name, Unary<T> member, const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& in, Guarded<T>& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(inputOf(in), outputOf(out));
        },
        py::arg("operand"), py::arg("out"), text);
}

template <class T>
void defineBinary(Class& handle, const char* name, Binary<T> member, const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& a, const Guarded<T>& b, Guarded<T>& out) {
            const Computing computing{reading(a), reading(b), writing(out)};
            (self.*member)(inputOf(a), inputOf(b), outputOf(out));
        },
        py::arg("a"), py::arg("b"), py::arg("out"), text);
}

template <class T>
void defineConstant(Class& handle, const char* name, WithConstant<T> member, const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& in, Complex c, Guarded<T>& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(inputOf(in), c, outputOf(out));
        },
        py::arg("operand"), py::arg("constant"), py::arg("out"), text);
}

template <class T>
void defineIndexed(Class& handle, const char* name, WithIndex<T> member, const char* index,
                   const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& in, unsigned long number, Guarded<T>& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(inputOf(in), number, outputOf(out));
        },
        py::arg("operand"), py::arg(index), py::arg("out"), text);
}

template <class T>
void defineReduce(Class& handle, const char* name, WithCounts<T> member) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& in, unsigned long gap, unsigned long count,
                 Guarded<T>& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(inputOf(in), gap, count, outputOf(out));
        },
        py::arg("operand"), py::arg("gap"), py::arg("count"), py::arg("out"),
        "The sum of the rotations by 0, gap, ..., (count - 1) gap.");
}

template <class T, class Other>
void defineCipherWith(Class& handle, const char* name, CipherWith<T, LibraryOf<Other>> member,
                      const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const Guarded<T>& a, const Guarded<Other>& b, Guarded<T>& out) {
            const Computing computing{reading(a), reading(b), writing(out)};
            (self.*member)(a.object(), inputOf(b), out.object());
        },
        py::arg("a"), py::arg("b"), py::arg("out"), text);
}

/// What all kinds of operands have, ciphertexts of modules too.
template <class T>
void defineLinear(Class& handle) {
    defineUnary<T>(handle, "negate", &HomEvaluator::negate, "out = -operand");
    defineConstant<T>(handle, "add", &HomEvaluator::add, "out = operand + constant");
    defineBinary<T>(handle, "add", &HomEvaluator::add,
                    "out = a + b; of ciphertexts, at the lower of the levels.");
    defineConstant<T>(handle, "sub", &HomEvaluator::sub, "out = operand - constant");
    defineBinary<T>(handle, "sub", &HomEvaluator::sub,
                    "out = a - b; of ciphertexts, at the lower of the levels.");
    defineConstant<T>(handle, "mult", &HomEvaluator::mult,
                      "out = operand constant, for one level; none for integers, and for messages.");
    defineUnary<T>(handle, "mult_imag_unit", &HomEvaluator::multImagUnit,
                   "out = i operand, without a level.");
}

/// What messages, plaintexts and ciphertexts have.
template <class T>
void defineCommon(Class& handle) {
    defineLinear<T>(handle);
    defineBinary<T>(handle, "mult", &HomEvaluator::mult,
                    "out = a b slot by slot, for one level; none for messages.");
    defineUnary<T>(handle, "square", &HomEvaluator::square, "out = operand^2, at the cost of a product.");
    defineIndexed<T>(
        handle, "left_rotate", &HomEvaluator::leftRotate, "index",
        "Slot i of out is slot i + index of the operand, cyclically. Ciphertexts need the key for it.");
    defineIndexed<T>(
        handle, "right_rotate", &HomEvaluator::rightRotate, "index",
        "Slot i + index of out is slot i of the operand, cyclically. Ciphertexts need the key for it.");
    defineUnary<T>(handle, "conjugate", &HomEvaluator::conjugate,
                   "out = the complex conjugate of the operand.");
}

/// Members that write the operand itself.
template <class T>
void defineInPlace(Class& handle, const char* name, void (HomEvaluator::*member)(T&) const,
                   const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, Guarded<T>& operand) {
            const Computing computing{writing(operand)};
            (self.*member)(operand.object());
        },
        py::arg("operand"), text);
}

/// What plaintexts and all ciphertexts have.
template <class T>
void defineRescale(Class& handle) {
    defineInPlace<T>(handle, "rescale", &HomEvaluator::rescale, "Pays one owed rescale, for one level.");
    handle.def(
        "mult_integer",
        [](const HomEvaluator& self, const Guarded<T>& in, long n, Guarded<T>& out) {
            const Computing computing{reading(in), writing(out)};
            self.multInteger(in.object(), n, out.object());
        },
        py::arg("operand"), py::arg("n"), py::arg("out"), "out = n operand, without a level.");
}

template <class T>
void defineInverseRescale(Class& handle) {
    defineInPlace<T>(handle, "inverse_rescale", &HomEvaluator::inverseRescale,
                     "Multiplies by the next prime: one rescale more is owed, and the level rises by one.");
}

/// What all ciphertexts have, those of modules too.
template <class T>
void defineWithClear(Class& handle) {
    defineCipherWith<T, ViewedMessage>(handle, "add", &HomEvaluator::add, "out = a + message");
    defineCipherWith<T, Plaintext>(handle, "add", &HomEvaluator::add, "out = a + plaintext");
    defineCipherWith<T, ViewedMessage>(handle, "sub", &HomEvaluator::sub, "out = a - message");
    defineCipherWith<T, Plaintext>(handle, "sub", &HomEvaluator::sub, "out = a - plaintext");
    defineCipherWith<T, ViewedMessage>(handle, "mult", &HomEvaluator::mult,
                                       "out = a message, for one level.");
    defineCipherWith<T, Plaintext>(handle, "mult", &HomEvaluator::mult, "out = a plaintext, for one level.");
    defineCipherWith<T, Plaintext>(handle, "mult_without_rescale", &HomEvaluator::multWithoutRescale,
                                   "out = a plaintext, which owes one rescale.");
    defineConstant<T>(handle, "mult_without_rescale", &HomEvaluator::multWithoutRescale,
                      "out = operand constant, which owes one rescale.");
    defineIndexed<T>(handle, "level_down", &HomEvaluator::levelDown, "target_level",
                     "Brings a ciphertext down to a level.");
    defineUnary<T>(handle, "level_down_one", &HomEvaluator::levelDownOne,
                   "Brings a ciphertext down by one level.");
    defineRescale<T>(handle);
}

void defineProducts(Class& handle) {
    defineBinary<Ciphertext>(handle, "mult_without_rescale", &HomEvaluator::multWithoutRescale,
                             "out = a b, which owes one rescale. The levels must be equal.");
    defineBinary<Ciphertext>(handle, "tensor", &HomEvaluator::tensor,
                             "The raw product, of three elements for operands of two; owes one rescale.");
    defineUnary<Ciphertext>(handle, "relinearize", &HomEvaluator::relinearize,
                            "Removes the top element, with the multiplication key.");
    defineUnary<Ciphertext>(handle, "kill_imag", &HomEvaluator::killImag,
                            "out = the real parts, for one level.");
}

using RotateMany = void (HomEvaluator::*)(const Ciphertext&, const std::vector<unsigned long>&,
                                          std::vector<Ciphertext>&) const;

void defineRotateMany(Class& handle, const char* name, RotateMany member, const char* text) {
    handle.def(
        name,
        [member](const HomEvaluator& self, const CiphertextHandle& in,
                 const std::vector<unsigned long>& indices) {
            std::vector<Ciphertext> outs;
            {
                const Computing computing{reading(in)};
                (self.*member)(in.object(), indices, outs);
            }
            return listOf<Ciphertext>(std::move(outs));
        },
        py::arg("operand"), py::arg("indices"), text);
}

void defineRotSum(Class& handle) {
    handle.def(
        "rot_sum",
        [](const HomEvaluator& self, const Operands<Ciphertext>& operands,
           const std::vector<unsigned long>& indices, CiphertextHandle& out) {
            const Computing computing(joined(readingAll(operands), {writing(out)}));
            self.rotSum(copiesOf(operands), indices, out.object());
        },
        py::arg("operands"), py::arg("indices"), py::arg("out"),
        "out = the sum of the operands, each rotated to the left by its index.");
    defineRotateMany(handle, "left_rotate_many", &HomEvaluator::leftRotate,
                     "A list of the operand rotated to the left by each index. The costly half of a rotation "
                     "is done once.");
    defineRotateMany(handle, "right_rotate_many", &HomEvaluator::rightRotate, "The same to the right.");
}

} // namespace

void bindEvaluator(py::module_& module) {
    Class handle(module, "HomEvaluator",
                 "Computes on ciphertexts, plaintexts and messages. Every operation writes its last "
                 "argument, which may "
                 "be one of the operands. Any number of threads may use one evaluator.");
    handle
        .def(py::init([](const SharedContext& context, const KeyPackHandle& pack) {
                 const Computing computing{reading(pack)};
                 return HomEvaluator(context.context, pack.object());
             }),
             py::arg("context"), py::arg("key_pack"))
        .def(py::init([](const SharedContext& context, const std::string& path) {
                 const py::gil_scoped_release released;
                 return HomEvaluator(context.context, path);
             }),
             py::arg("context"), py::arg("path"));
    handle.def_property_readonly(
        "context", [](const HomEvaluator& self) { return SharedContext{self.getContext()}; },
        "The context it was made for.");
    defineCommon<Ciphertext>(handle);
    defineCommon<Plaintext>(handle);
    defineCommon<ViewedMessage>(handle);
    defineLinear<ModuleCiphertext>(handle);
    defineWithClear<Ciphertext>(handle);
    defineWithClear<ModuleCiphertext>(handle);
    defineProducts(handle);
    defineRescale<Plaintext>(handle);
    defineInverseRescale<Ciphertext>(handle);
    defineInverseRescale<Plaintext>(handle);
    defineIndexed<Plaintext>(handle, "relevel", &HomEvaluator::relevel, "target_level",
                             "Brings a plaintext to another level.");
    defineReduce<Ciphertext>(handle, "left_rotate_reduce", &HomEvaluator::leftRotateReduce);
    defineReduce<Ciphertext>(handle, "right_rotate_reduce", &HomEvaluator::rightRotateReduce);
    defineReduce<ViewedMessage>(handle, "left_rotate_reduce", &HomEvaluator::leftRotateReduce);
    defineReduce<ViewedMessage>(handle, "right_rotate_reduce", &HomEvaluator::rightRotateReduce);
    defineRotSum(handle);
}

} // namespace TorvoPython
