#include "Module.hpp"
#include "Sources.hpp"

#include <Torvo/Comparisons.hpp>
#include <Torvo/Sorting.hpp>

#include <string>

namespace TorvoPython {

using Torvo::Accuracy;
using Torvo::Order;

namespace {

template <class On>
using OfOne = void (*)(Of<On>, const ValueOf<On>&, double, ValueOf<On>&, const Accuracy&);
template <class On>
using OfTwo = void (*)(Of<On>, const ValueOf<On>&, const ValueOf<On>&, double, ValueOf<On>&, const Accuracy&);
template <class On>
using WithEnds = void (*)(Of<On>, const ValueOf<On>&, double, double, double, ValueOf<On>&, const Accuracy&);
template <class On>
using InOrder = void (*)(Of<On>, const ValueOf<On>&, double, ValueOf<On>&, const Accuracy&, Order);

/// The default of the library, as an argument.
py::arg_v accuracyArgument() {
    return py::arg_v("accuracy", Accuracy{}, "Accuracy()");
}

template <class On>
void defineOfOne(py::module_& module, const char* name, OfOne<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& in, double bound, ValueHandle<On>& out,
                   const Accuracy& accuracy) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(in), bound, result, accuracy);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("bound"), py::arg("out"), accuracyArgument(), text);
}

template <class On>
void defineOfTwo(py::module_& module, const char* name, OfTwo<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& a, const ValueHandle<On>& b, double bound,
                   ValueHandle<On>& out, const Accuracy& accuracy) {
            compute<On>(on, {reading(a), reading(b)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(a), inputOf(b), bound, result, accuracy);
            });
        },
        py::arg("on"), py::arg("a"), py::arg("b"), py::arg("bound"), py::arg("out"), accuracyArgument(),
        text);
}

template <class On>
void defineWithEnds(py::module_& module, const char* name, WithEnds<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& in, double lower, double upper,
                   double bound, ValueHandle<On>& out, const Accuracy& accuracy) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(in), lower, upper, bound, result, accuracy);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("lower"), py::arg("upper"), py::arg("bound"),
        py::arg("out"), accuracyArgument(), text);
}

template <class On>
void defineInOrder(py::module_& module, const char* name, InOrder<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& in, double bound, ValueHandle<On>& out,
                   const Accuracy& accuracy, Order order) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(in), bound, result, accuracy, order);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("bound"), py::arg("out"), accuracyArgument(),
        py::arg("order") = Order::Ascending, text);
}

template <class On>
void defineComparisons(py::module_& module) {
    using Value = ValueOf<On>;
    defineOfOne<On>(module, "sign", &Torvo::sign<Value>,
                    "out = 1 where the operand is positive, -1 where it is negative.");
    defineOfOne<On>(module, "step", &Torvo::step<Value>,
                    "out = 1 where the operand is positive, 0 where it is negative.");
    defineOfOne<On>(module, "abs", &Torvo::abs<Value>, "out = |operand|.");
    defineOfOne<On>(module, "relu", &Torvo::relu<Value>,
                    "out = the operand where it is positive, 0 where it is negative.");
    defineOfTwo<On>(module, "is_below", &Torvo::isBelow<Value>, "out = 1 where a < b, 0 where a > b.");
    defineOfTwo<On>(module, "max", &Torvo::max<Value>, "out = the larger number of each slot.");
    defineOfTwo<On>(module, "min", &Torvo::min<Value>, "out = the smaller number of each slot.");
    defineWithEnds<On>(module, "clamp", &Torvo::clamp<Value>,
                       "out = the operand within [lower, upper], and the closer end outside.");
    defineWithEnds<On>(module, "is_in_interval", &Torvo::isInInterval<Value>,
                       "out = 1 where lower < operand < upper, 0 outside.");
}

template <class On>
void defineSorting(py::module_& module) {
    using Value = ValueOf<On>;
    defineInOrder<On>(module, "rank", &Torvo::rank<Value>,
                      "out = for each number the count of those that stand before it in order.");
    defineInOrder<On>(module, "sort", &Torvo::sort<Value>, "out = the numbers in order.");
    defineOfOne<On>(module, "argmax", &Torvo::argmax<Value>,
                    "out = 1 in the slot of the largest number, 0 in the others.");
    defineOfOne<On>(module, "max", &Torvo::max<Value>, "out = the largest number in every slot.");
    module.def(
        "top_k",
        [](typename On::Handle& on, const ValueHandle<On>& in, unsigned long count, double bound,
           ValueHandle<On>& out, const Accuracy& accuracy) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::topK<Value>(evaluator, inputOf(in), count, bound, result, accuracy);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("count"), py::arg("bound"), py::arg("out"),
        accuracyArgument(), "out = the `count` largest numbers, the largest first; 0 in the other slots.");
}

template <class On>
void defineBoth(py::module_& module) {
    defineComparisons<On>(module);
    defineSorting<On>(module);
}

void bindAccuracy(py::module_& module) {
    py::class_<Accuracy>(
        module, "Accuracy",
        "How close a comparison is to the exact one, in bits: 4 to 16 of each. Closer to the "
        "threshold than 2^-margin of the largest difference that can be, a result lies "
        "anywhere between both; elsewhere it errs by 2^-error. More of either costs levels.")
        .def(py::init([](unsigned margin, unsigned error) {
                 return Accuracy{margin, error};
             }),
             py::arg("margin") = Accuracy{}.margin, py::arg("error") = Accuracy{}.error)
        .def_readonly("margin", &Accuracy::margin, "Bits of the margin.")
        .def_readonly("error", &Accuracy::error, "Bits of the error.")
        .def("__repr__",
             [](const Accuracy& self) {
                 return "torvo.Accuracy(margin=" + std::to_string(self.margin) +
                        ", error=" + std::to_string(self.error) + ")";
             })
        .def("__reduce__", [](const Accuracy& self) {
            return py::make_tuple(py::type::of<Accuracy>(), py::make_tuple(self.margin, self.error));
        });
    py::enum_<Order>(module, "Order", "The order of a sort.")
        .value("Ascending", Order::Ascending)
        .value("Descending", Order::Descending);
}

} // namespace

void bindComparisons(py::module_& module) {
    bindAccuracy(module);
    defineBoth<OnEvaluator>(module);
    defineBoth<OnBootstrapping>(module);
    defineBoth<OnPlan>(module);
    defineBoth<OnMessages>(module);
}

} // namespace TorvoPython
