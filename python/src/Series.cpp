#include "Series.hpp"
#include "Module.hpp"
#include "Streams.hpp"

#include <pybind11/complex.h>
#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <complex>
#include <functional>
#include <memory>
#include <vector>

namespace TorvoPython {

using Torvo::ChebyshevSeries;
using Complex = std::complex<double>;

namespace {

using Class = py::class_<SeriesHandle>;
/// Python's functions compute in doubles.
using RealFunction = std::function<double(double)>;
using Function = std::function<Complex(double)>;

ChebyshevSeries::RealFunction wide(const RealFunction& f) {
    if (!f) return {};
    return [&f](long double x) { return static_cast<long double>(f(static_cast<double>(x))); };
}

/// Series are made without the interpreter's lock; a function of Python takes it for each of its values.
template <class Make>
std::unique_ptr<SeriesHandle> madeBy(Make&& make) {
    const py::gil_scoped_release released;
    return std::make_unique<SeriesHandle>(make());
}

void defineApproximations(Class& handle) {
    handle
        .def_static(
            "interpolate",
            [](const Function& f, unsigned long degree, double lower, double upper) {
                return madeBy([&] { return ChebyshevSeries::interpolate(f, degree, lower, upper); });
            },
            py::arg("f"), py::arg("degree"), py::arg("lower") = -1.0, py::arg("upper") = 1.0,
            "The polynomial of this degree that has the values of `f` at the Chebyshev points of the "
            "interval.")
        .def_static(
            "interpolate_within",
            [](const Function& f, double error, double lower, double upper) {
                return madeBy([&] { return ChebyshevSeries::interpolateWithin(f, error, lower, upper); });
            },
            py::arg("f"), py::arg("error"), py::arg("lower") = -1.0, py::arg("upper") = 1.0,
            "The interpolation of the lowest degree whose largest error is at most `error`.")
        .def_static(
            "minimax",
            [](const RealFunction& f, unsigned long degree, double lower, double upper,
               ChebyshevSeries::Symmetry symmetry) {
                return madeBy(
                    [&] { return ChebyshevSeries::minimax(wide(f), degree, lower, upper, symmetry); });
            },
            py::arg("f"), py::arg("degree"), py::arg("lower") = -1.0, py::arg("upper") = 1.0,
            py::arg("symmetry") = ChebyshevSeries::Symmetry::None,
            "The polynomial of this degree with the smallest largest error, for a continuous real `f`.")
        .def_static(
            "minimax_within",
            [](const RealFunction& f, double error, double lower, double upper,
               ChebyshevSeries::Symmetry symmetry) {
                return madeBy(
                    [&] { return ChebyshevSeries::minimaxWithin(wide(f), error, lower, upper, symmetry); });
            },
            py::arg("f"), py::arg("error"), py::arg("lower") = -1.0, py::arg("upper") = 1.0,
            py::arg("symmetry") = ChebyshevSeries::Symmetry::None,
            "The minimax polynomial of the lowest degree whose error is at most `error`.")
        .def_static(
            "from_monomials",
            [](const std::vector<Complex>& monomials, double lower, double upper) {
                return madeBy([&] { return ChebyshevSeries::fromMonomials(monomials, lower, upper); });
            },
            py::arg("monomials"), py::arg("lower") = -1.0, py::arg("upper") = 1.0,
            "The series of the polynomial with these coefficients of 1, x, x^2 and so on.");
}

void defineProperties(Class& handle) {
    handle
        .def_property_readonly("coefficients", getter<ChebyshevSeries>([](const ChebyshevSeries& series) {
                                   return std::vector<Complex>(series.getCoefficients());
                               }),
                               "The coefficients of T_0, T_1 and so on.")
        .def_property_readonly("lower", getter<ChebyshevSeries>(&ChebyshevSeries::getLowerBound),
                               "The lower bound of the interval.")
        .def_property_readonly("upper", getter<ChebyshevSeries>(&ChebyshevSeries::getUpperBound),
                               "The upper bound of the interval.")
        .def_property_readonly("degree", getter<ChebyshevSeries>(&ChebyshevSeries::getDegree),
                               "The number of the highest coefficient that is not 0.")
        .def_property_readonly("is_even", getter<ChebyshevSeries>(&ChebyshevSeries::isEven),
                               "Whether all coefficients of odd number are 0, on an interval around 0.")
        .def_property_readonly("is_odd", getter<ChebyshevSeries>(&ChebyshevSeries::isOdd),
                               "Whether all coefficients of even number are 0, on an interval around 0.")
        .def_property_readonly("is_real", getter<ChebyshevSeries>(&ChebyshevSeries::isReal),
                               "Whether all coefficients are real.")
        .def("to_monomials", getter<ChebyshevSeries>(&ChebyshevSeries::toMonomials),
             "The coefficients of 1, x, x^2 and so on.")
        .def(
            "derivative",
            [](const SeriesHandle& self) {
                const Computing computing{reading(self)};
                return std::make_unique<SeriesHandle>(self.object().derivative());
            },
            "The series of the derivative.");
}

void defineValues(Class& handle) {
    handle
        .def(
            "__call__",
            [](const SeriesHandle& self, Complex x) {
                const Computing computing{reading(self)};
                return self.object().evaluate(x);
            },
            py::arg("x"))
        .def(
            "__call__",
            [](const SeriesHandle& self, const MessageHandle& message) {
                const Computing computing{reading(self), reading(message)};
                return std::make_unique<MessageHandle>(
                    self.object().evaluate(static_cast<const Torvo::Message&>(message.object())));
            },
            py::arg("x"), "The value at a number, or at every slot of a message, in the clear.")
        .def(
            "largest_error",
            [](const SeriesHandle& self, const Function& f) {
                // The function may use the series, so the series is not locked meanwhile.
                const ChebyshevSeries series = copyOf(self);
                const py::gil_scoped_release released;
                return series.largestError(f);
            },
            py::arg("f"))
        .def(
            "largest_error",
            [](const SeriesHandle& self, const Function& f, double lower, double upper) {
                const ChebyshevSeries series = copyOf(self);
                const py::gil_scoped_release released;
                return series.largestError(f, lower, upper);
            },
            py::arg("f"), py::arg("lower"), py::arg("upper"),
            "The largest difference to a function on the interval, or from `lower` to `upper`.");
    handle.attr("max_degree") = ChebyshevSeries::maxDegree;
}

} // namespace

void bindSeries(py::module_& module) {
    py::enum_<ChebyshevSeries::Symmetry>(module, "Symmetry", "Which terms a series is made of.")
        .value("None_", ChebyshevSeries::Symmetry::None)
        .value("Even", ChebyshevSeries::Symmetry::Even)
        .value("Odd", ChebyshevSeries::Symmetry::Odd);
    Class handle(
        module, "ChebyshevSeries",
        "A polynomial on an interval, as a sum of Chebyshev polynomials: how a function is approximated that "
        "is computed on ciphertexts. torvo.functions.evaluate computes it.");
    handle.def(py::init<>())
        .def(py::init<std::vector<Complex>, double, double>(), py::arg("coefficients"),
             py::arg("lower") = -1.0, py::arg("upper") = 1.0);
    defineApproximations(handle);
    defineProperties(handle);
    defineValues(handle);
    defineSave<ChebyshevSeries>(handle,
                                "Writes bounds and coefficients into a file, which is replaced as a whole.");
    handle
        .def(
            "load",
            [](SeriesHandle& self, const std::string& path) {
                const Computing computing{writing(self)};
                self.object().load(path);
            },
            py::arg("path"), "Replaces the series by the saved one; a failed load changes nothing.")
        .def_static(
            "from_bytes",
            [](const py::bytes& data) {
                auto loaded = std::make_unique<SeriesHandle>();
                readAll(data, "series", {}, [&](std::istream& stream) { loaded->object().load(stream); });
                return loaded;
            },
            py::arg("data"), "The series whose `to_bytes` gave these.")
        .def("__reduce__", [](const SeriesHandle& self) {
            return restoredBy("ChebyshevSeries", py::make_tuple(savedBytes(self)));
        });
}

} // namespace TorvoPython
