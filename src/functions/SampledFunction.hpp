#pragma once

#include "core/Failure.hpp"
#include "functions/ChebyshevSeriesImpl.hpp"
#include "functions/Messages.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/RuntimeException.hpp>

#include <cmath>
#include <complex>
#include <functional>

namespace Torvo {

/// A function of the caller, whose values are held to be finite.
template <class Result, class Number>
class SampledFunction {
public:
    /// Keeps a reference.
    /// @throws RuntimeException for a function that is none
    explicit SampledFunction(const std::function<Result(Number)>& f) : f_(f) {
        require(static_cast<bool>(f), message::noFunctionGiven);
    }

    /// @throws RuntimeException for a value that is not finite
    Result operator()(Number x) const {
        const Result value = f_(x);
        const auto told = static_cast<std::complex<double>>(value);
        if (!std::isfinite(told.real()) || !std::isfinite(told.imag()))
            throw RuntimeException(
                message::functionNotFinite(decimalOf(told), decimalOf(static_cast<double>(x))));
        return value;
    }

private:
    const std::function<Result(Number)>& f_;
};

using ComplexFunction = SampledFunction<std::complex<double>, double>;
using LongFunction = SampledFunction<long double, long double>;

} // namespace Torvo
