#pragma once

#include "support/LinearMaps.hpp"
#include "support/NoiseModel.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Message.hpp>

#include <cmath>
#include <complex>

/// Products of matrices in the clear, and how far encrypted ones may lie from them.
namespace Torvo::test {

/// The products of the d x d matrices that lie in two messages, row by row, in long double.
inline Message productOfMatrices(u64 d, const Message& a, const Message& b) {
    Message out = a;
    for (u64 block = 0; block < a.getSize(); block += d * d)
        for (u64 i = 0; i < d; ++i)
            for (u64 j = 0; j < d; ++j) {
                std::complex<long double> sum = 0;
                for (u64 k = 0; k < d; ++k)
                    sum += std::complex<long double>(a[block + i * d + k]) *
                           std::complex<long double>(b[block + k * d + j]);
                out[block + i * d + j] = {static_cast<double>(sum.real()), static_cast<double>(sum.imag())};
            }
    return out;
}

/// An operand after its shear and its shift has an error e of at most the bounds of two transforms; each of the d
/// products of operands of modulus sqrt(2) at most has 2 sqrt(2) e + e^2, and the sum of them one key switch, at the
/// square of the scale, and one rescale.
inline double productBound(const Context& context, u64 d, u64 level) {
    const NoiseModel model(context);
    const double e = transformBound(context, level, 2 * d) + transformBound(context, level - 1, 4);
    const u64 last = level - 2;
    const Variance switched = 1 / std::pow(model.scale(last), 2) * model.slots(model.keySwitch(last), last);
    return static_cast<double>(d) * (2 * std::sqrt(2.0) * e + e * e) +
           model.bound(switched + model.slots(model.rescale(), last - 1));
}

} // namespace Torvo::test
