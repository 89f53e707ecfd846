// What functions of encrypted numbers are made of.

#include "support/FileUses.hpp"

#include <cmath>

namespace Torvo::test::uses {

void chebyshevSeries(const std::string& file) {
    ChebyshevSeries series;
    load(file, series);
    const double lower = series.getLowerBound(), upper = series.getUpperBound();
    if (!(lower < upper) || !std::isfinite(upper - lower)) throw Finding{"a series without an interval"};
    if (series.getCoefficients().empty() || series.getDegree() > ChebyshevSeries::maxDegree)
        throw Finding{"a series of no coefficients, or of too many"};
    attempt([&] { series.evaluate(archives::message(2)); });
    attempt([&] { series.toMonomials(); });
    attempt([&] { series.derivative(); });
    attempt([&] { ChebyshevSeries(series.getCoefficients(), lower, upper); });
    if (series.isEven() && series.isOdd() && series.evaluate(upper) != std::complex<double>(0))
        throw Finding{"a series other than 0 that is even and odd"};
    expectLoadsAgain(series, ChebyshevSeries());
}

void linearTransform(const std::string& file) {
    const ToyRing<EncryptionType::RLWE>& ring = toyRing();
    LinearTransform transform;
    load(file, transform);
    const unsigned long size = transform.getSize();
    if (size == 0 || size > (1UL << 19) || (size & (size - 1)) != 0) throw Finding{"a transform of no size"};
    if (transform.getDiagonalIndices().empty() || transform.getDiagonalIndices().back() >= size)
        throw Finding{"a transform without diagonals, or with one that it cannot have"};
    Message out;
    attempt([&] { transform.apply(archives::message(5), out); });
    for (const unsigned long log_slots : {0UL, 5UL})
        attempt([&] { EncodedTransform(ring.context, transform, log_slots, 1).getRotationIndices(); });
    expectLoadsAgain(transform, LinearTransform());
}

void encodedTransform(const std::string& file) {
    const ToyRing<EncryptionType::RLWE>& ring = toyRing();
    EncodedTransform transform(ring.context);
    load(file, transform);
    for (const unsigned long log_slots : {transform.getLogSlots(), 5UL})
        attempt([&] {
            Ciphertext in = ring.fresh, out(ring.context);
            in.setLogSlots(log_slots);
            transform.apply(ring.evaluator, in, out);
            Message message;
            ring.decryptor.decrypt(out, ring.secretKey, message);
        });
    attempt([&] {
        std::vector<Ciphertext> outs;
        EncodedTransform::apply(ring.evaluator, ring.fresh, {transform, transform}, outs);
    });
    expectLoadsAgain(transform, EncodedTransform(ring.context));
}

} // namespace Torvo::test::uses
