#include "Module.hpp"
#include "Results.hpp"
#include "Series.hpp"
#include "Sources.hpp"

#include <Torvo/Analysis.hpp>
#include <Torvo/Polynomials.hpp>
#include <Torvo/Statistics.hpp>

#include <pybind11/complex.h>
#include <pybind11/stl.h>

#include <complex>
#include <memory>
#include <utility>
#include <vector>

namespace TorvoPython {

using Torvo::ChebyshevSeries;
using Torvo::SlotBlocks;
using Torvo::Variance;
using Complex = std::complex<double>;

namespace {

template <class On>
using InInterval = void (*)(Of<On>, const ValueOf<On>&, double, double, double, ValueOf<On>&);
template <class On>
using WithBound = void (*)(Of<On>, const ValueOf<On>&, double, double, ValueOf<On>&);

template <class On>
void defineInterval(py::module_& module, const char* name, InInterval<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& in, double lower, double upper,
                   double error, ValueHandle<On>& out) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(in), lower, upper, error, result);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("lower"), py::arg("upper"), py::arg("error"),
        py::arg("out"), text);
}

template <class On>
void defineBound(py::module_& module, const char* name, WithBound<On> function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueHandle<On>& in, double bound, double error,
                   ValueHandle<On>& out) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, inputOf(in), bound, error, result);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("bound"), py::arg("error"), py::arg("out"), text);
}

template <class On>
void defineAnalysis(py::module_& module) {
    using Value = ValueOf<On>;
    defineInterval<On>(module, "inverse", &Torvo::inverse<Value>,
                       "out = 1 / operand, both bounds of one sign.");
    defineInterval<On>(module, "sqrt", &Torvo::sqrt<Value>,
                       "out = the square root, for bounds of 0 or more.");
    defineInterval<On>(module, "inverse_sqrt", &Torvo::inverseSqrt<Value>, "out = 1 / sqrt(operand).");
    defineInterval<On>(module, "exp", &Torvo::exp<Value>, "out = e^operand.");
    defineInterval<On>(module, "log", &Torvo::log<Value>, "out = the natural logarithm.");
    defineBound<On>(module, "sigmoid", &Torvo::sigmoid<Value>, "out = 1 / (1 + e^-operand).");
    defineBound<On>(module, "tanh", &Torvo::tanh<Value>, "out = the hyperbolic tangent.");
    defineBound<On>(module, "gelu", &Torvo::gelu<Value>, "out = operand (1 + erf(operand / sqrt(2))) / 2.");
    defineBound<On>(module, "sin", &Torvo::sin<Value>, "out = the sine.");
    defineBound<On>(module, "cos", &Torvo::cos<Value>, "out = the cosine.");
    module.def(
        "softmax",
        [](typename On::Handle& on, const ValueHandle<On>& in, double bound, double error,
           ValueHandle<On>& out, unsigned long length) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::softmax<Value>(evaluator, inputOf(in), bound, error, result, length);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("bound"), py::arg("error"), py::arg("out"),
        py::arg("length") = 0,
        "out = e^operand over the sum of these in the block of `length` slots, 0 for all slots.");
}

/// The library's copies of series, taken while they are locked.
std::vector<ChebyshevSeries> seriesOf(const Operands<ChebyshevSeries>& series) {
    const Computing computing(readingAll(series));
    return copiesOf(series);
}

template <class On>
void definePolynomials(py::module_& module) {
    using Value = ValueOf<On>;
    module.def(
        "evaluate",
        [](typename On::Handle& on, const ValueHandle<On>& in, const SeriesHandle& series,
           ValueHandle<On>& out) {
            const ChebyshevSeries f = copyOf(series);
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::evaluate<Value>(evaluator, inputOf(in), f, result);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("series"), py::arg("out"),
        "out = series(operand), at ceil(log2(degree + 1)) levels.");
    module.def(
        "evaluate_blockwise",
        [](typename On::Handle& on, const ValueHandle<On>& in, const Operands<ChebyshevSeries>& series,
           ValueHandle<On>& out) {
            const std::vector<ChebyshevSeries> f = seriesOf(series);
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::evaluateBlockwise<Value>(evaluator, inputOf(in), f, result);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("series"), py::arg("out"),
        "out = another series in each of equally long blocks of slots.");
    module.def(
        "evaluate_monomials",
        [](typename On::Handle& on, const ValueHandle<On>& in, const std::vector<Complex>& coefficients,
           ValueHandle<On>& out, double bound) {
            compute<On>(on, {reading(in)}, out, [&](Of<On> evaluator, Value& result) {
                Torvo::evaluateMonomials<Value>(evaluator, inputOf(in), coefficients, result, bound);
            });
        },
        py::arg("on"), py::arg("operand"), py::arg("coefficients"), py::arg("out"), py::arg("bound") = 1.0,
        "out = the polynomial with these coefficients of 1, x, x^2 and so on.");
}

SlotBlocks blocksOf(unsigned long length, double bound) {
    return {.length = length, .bound = bound};
}

/// A statistic of one list of operands.
template <class On, class Function>
void defineOfOne(py::module_& module, const char* name, Function function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueOperands<On>& x, ValueHandle<On>& out,
                   unsigned long length, double bound) {
            compute<On>(on, readingAll(x), out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, copiesOf(x), result, blocksOf(length, bound));
            });
        },
        py::arg("on"), py::arg("x"), py::arg("out"), py::arg("length") = 0, py::arg("bound") = 1.0, text);
}

/// A statistic of two lists of operands.
template <class On, class Function>
void defineOfTwo(py::module_& module, const char* name, Function function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueOperands<On>& x, const ValueOperands<On>& y,
                   ValueHandle<On>& out, unsigned long length, double bound) {
            compute<On>(on, joined(readingAll(x), readingAll(y)), out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, copiesOf(x), copiesOf(y), result, blocksOf(length, bound));
            });
        },
        py::arg("on"), py::arg("x"), py::arg("y"), py::arg("out"), py::arg("length") = 0,
        py::arg("bound") = 1.0, text);
}

/// One of two lists that lies in an interval, to an error.
template <class On, class Function>
void defineOfTwoIn(py::module_& module, const char* name, Function function, const char* text) {
    module.def(
        name,
        [function](typename On::Handle& on, const ValueOperands<On>& x, const ValueOperands<On>& y,
                   double lowest, double highest, double error, ValueHandle<On>& out, unsigned long length,
                   double bound) {
            compute<On>(on, joined(readingAll(x), readingAll(y)), out, [&](Of<On> evaluator, auto& result) {
                function(evaluator, copiesOf(x), copiesOf(y), lowest, highest, error, result,
                         blocksOf(length, bound));
            });
        },
        py::arg("on"), py::arg("x"), py::arg("y"), py::arg("lowest"), py::arg("highest"), py::arg("error"),
        py::arg("out"), py::arg("length") = 0, py::arg("bound") = 1.0, text);
}

/// The library's function of this name; its overloads are chosen where it is called.
#define TORVO_STATISTIC(name)                                                                                \
    [](auto&&... arguments) { Torvo::name(std::forward<decltype(arguments)>(arguments)...); }

template <class On>
void defineStatistics(py::module_& module) {
    defineOfOne<On>(module, "sum", TORVO_STATISTIC(sum),
                    "out = the sum of all slots of a block, of all operands.");
    defineOfOne<On>(module, "mean", TORVO_STATISTIC(mean), "out = the mean.");
    defineOfTwo<On>(module, "inner_product", TORVO_STATISTIC(innerProduct), "out = the sum of x y.");
    defineOfTwo<On>(module, "squared_distance", TORVO_STATISTIC(squaredDistance),
                    "out = the sum of (x - y)^2.");
    defineOfTwoIn<On>(module, "distance", TORVO_STATISTIC(distance),
                      "out = the Euclidean distance, whose square lies between `lowest` and `highest`.");
    defineOfTwoIn<On>(module, "correlation", TORVO_STATISTIC(correlation),
                      "out = the correlation; both variances lie between `lowest` and `highest`.");
    module.def(
        "weighted_mean",
        [](typename On::Handle& on, const ValueOperands<On>& x, const Operands<ViewedMessage>& weights,
           ValueHandle<On>& out, unsigned long length, double bound) {
            compute<On>(on, joined(readingAll(x), readingAll(weights)), out,
                        [&](Of<On> evaluator, auto& result) {
                            Torvo::weightedMean(evaluator, copiesOf(x), copiesOf(weights), result,
                                                blocksOf(length, bound));
                        });
        },
        py::arg("on"), py::arg("x"), py::arg("weights"), py::arg("out"), py::arg("length") = 0,
        py::arg("bound") = 1.0, "out = the sum of the weights times x over the sum of the weights.");
    module.def(
        "weighted_mean",
        [](typename On::Handle& on, const ValueOperands<On>& x, const ValueOperands<On>& weights,
           double lowest, double highest, double error, ValueHandle<On>& out, unsigned long length,
           double bound) {
            compute<On>(on, joined(readingAll(x), readingAll(weights)), out,
                        [&](Of<On> evaluator, auto& result) {
                            Torvo::weightedMean(evaluator, copiesOf(x), copiesOf(weights), lowest, highest,
                                                error, result, blocksOf(length, bound));
                        });
        },
        py::arg("on"), py::arg("x"), py::arg("weights"), py::arg("lowest"), py::arg("highest"),
        py::arg("error"), py::arg("out"), py::arg("length") = 0, py::arg("bound") = 1.0,
        "The same of encrypted weights, whose sum lies between `lowest` and `highest`.");
    module.def(
        "histogram",
        [](typename On::Handle& on, const ValueOperands<On>& x, const std::vector<double>& edges,
           const Torvo::Accuracy& accuracy, unsigned long length, double bound) {
            std::vector<ValueOf<On>> counts;
            {
                const Computing computing(joined(readingAll(x), On::wanted(on)));
                const Torvo::FunctionEvaluator<ValueOf<On>> evaluator(On::of(on));
                Torvo::histogram(evaluator, copiesOf(x), edges, counts, accuracy, blocksOf(length, bound));
            }
            return listOf<typename On::Object>(std::move(counts));
        },
        py::arg("on"), py::arg("x"), py::arg("edges"), py::arg("accuracy"), py::arg("length") = 0,
        py::arg("bound") = 1.0, "A list: how many of the numbers lie between each edge and the next one.");
    module.def(
        "variance",
        [](typename On::Handle& on, const ValueOperands<On>& x, Variance kind, ValueHandle<On>& out,
           unsigned long length, double bound) {
            compute<On>(on, readingAll(x), out, [&](Of<On> evaluator, auto& result) {
                Torvo::variance(evaluator, copiesOf(x), kind, result, blocksOf(length, bound));
            });
        },
        py::arg("on"), py::arg("x"), py::arg("kind"), py::arg("out"), py::arg("length") = 0,
        py::arg("bound") = 1.0, "out = the variance of real numbers.");
    module.def(
        "covariance",
        [](typename On::Handle& on, const ValueOperands<On>& x, const ValueOperands<On>& y, Variance kind,
           ValueHandle<On>& out, unsigned long length, double bound) {
            compute<On>(on, joined(readingAll(x), readingAll(y)), out, [&](Of<On> evaluator, auto& result) {
                Torvo::covariance(evaluator, copiesOf(x), copiesOf(y), kind, result, blocksOf(length, bound));
            });
        },
        py::arg("on"), py::arg("x"), py::arg("y"), py::arg("kind"), py::arg("out"), py::arg("length") = 0,
        py::arg("bound") = 1.0, "out = the covariance of real numbers.");
}

#undef TORVO_STATISTIC

template <class On>
void defineFunctions(py::module_& module) {
    defineAnalysis<On>(module);
    definePolynomials<On>(module);
    defineStatistics<On>(module);
}

} // namespace

void bindFunctions(py::module_& module) {
    py::enum_<Variance>(module, "Variance", "What a variance is divided by, where there are n numbers.")
        .value("Population", Variance::Population)
        .value("Sample", Variance::Sample);
    defineFunctions<OnEvaluator>(module);
    defineFunctions<OnBootstrapping>(module);
    defineFunctions<OnPlan>(module);
    defineFunctions<OnMessages>(module);
}

} // namespace TorvoPython
