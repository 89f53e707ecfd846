#include "encoding/ConstantEnDecoder.hpp"

#include "context/ContextContent.hpp"
#include "encoding/OwedPrimes.hpp"

namespace Torvo {

ConstantEnDecoder::ConstantEnDecoder(const Context& context) : context_(context) {}

LevelledElement ConstantEnDecoder::encodeConst(const double& value, unsigned long level,
                                               int rescaleCounter) const {
    const PrimeModuli& primes = context_->primes;
    const auto owed = static_cast<u64>(rescaleCounter);
    const double logScale = context_->scale_factors.log_scale[level - owed];
    LevelledElement element(context_, false);
    element.setLevel(level);
    for (u64 i = 0; i <= level; ++i) {
        const u64 x = primes[i].makeInteger(value, logScale);
        element[i] = owed == 0 ? x : primes[i].mult(x, owedPrimes(primes, i, level, owed));
    }
    return element;
}

} // namespace Torvo
