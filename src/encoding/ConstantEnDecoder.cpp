#include "encoding/ConstantEnDecoder.hpp"

#include "arithmetic/kernels/PrimeProduct.hpp"
#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "encoding/EncodingBound.hpp"

namespace Torvo {

namespace {

void encodeRows(const PrimeModuli& primes, double value, double logScale, u64 owed,
                LevelledElement& element) {
    const u64 level = element.getLevel();
    for (u64 i = 0; i <= level; ++i) {
        const u64 x = primes[i].makeInteger(value, logScale);
        element[i] = x; // may be the prime itself, which a product would reduce
        if (owed > 0) {
            const u64 primesOwed = primeProduct(primes.getModuli(), level + 1 - owed, level + 1, primes[i]);
            element[i] = primes[i].mult(x, primesOwed);
        }
    }
}

LevelledElement zeroOf(const Context& context) {
    return LevelledElement(context, false);
}
LevelledElement zeroOf(const LWE::Context& context) {
    return LevelledElement(context);
}

} // namespace

ConstantEnDecoder::ConstantEnDecoder(const Context& context) : context_(context) {}
ConstantEnDecoder::ConstantEnDecoder(const LWE::Context& context) : context_(context) {}

LevelledElement ConstantEnDecoder::encodeConst(const double& value, unsigned long level,
                                               int rescale_counter) const {
    const auto encode = [&](const auto& context) {
        const auto owed = static_cast<u64>(rescale_counter);
        LevelledElement element = zeroOf(context);
        element.setLevel(level);
        // Before the conversion to an integer, which is not defined for more than it holds.
        const EncodingBound bound(context->primes, context->scale_factors, level, rescale_counter);
        if (!bound.holds(value)) bound.refuse("number", value);
        encodeRows(context->primes, value, context->scale_factors.log_scale[level - owed], owed, element);
        return element;
    };
    return std::visit(encode, context_);
}

} // namespace Torvo
