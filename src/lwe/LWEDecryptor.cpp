#include <Torvo/LWEDecryptor.hpp>

#include "arithmetic/chain/Messages.hpp"
#include "context/LWEContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "encoding/CentredInteger.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "lwe/LWECiphertextImpl.hpp"
#include "lwe/Messages.hpp"
#include "lwe/SecretElement.hpp"

#include <cmath>

namespace Torvo::LWE {

namespace {

/// The centred integer in `t`, divided by the scale of its level.
double decode(const Context& context, const LevelledElement& t) {
    const PrimeModuli& primes = context->primes;
    const double integer =
        t.getLevel() == 0 ? centred(t[0], primes.getPrime(0)) : TwoPrimeReader(primes)(t[0], t[1]);
    return integer / std::pow(2.0, context->scale_factors.log_scale[t.getLevel()]);
}

} // namespace

Decryptor::Decryptor(const Context& context) : context_(requireContext(context)) {}

void Decryptor::decrypt(const Ciphertext& in, const SecretKey& key, double& out) const {
    require(in.getAx().getDimension() == key.getSx().getDimension(), message::decryptOtherDimension);
    utils::requireCounterWithinLevel(in);
    const PrimeModuli& primes = context_->primes;
    primes.requireCommonDevice(in.getAx(), key.getSx(), in.getBx());
    requireOfChain(context_, in);
    require(in.getLevel() <= key.getSx().getLevel(), message::operandsDifferInLevel);
    requireSharedPrimes(key.getContext(), context_, in.getLevel(), message::decryptNumberWithForeignSecret);
    SecretElement t(context_);
    primes.innerProduct(in.getAx(), key.getSx(), t);
    primes.add(t, in.getBx(), t);
    for (int i = 0; i < in.getRescaleCounter(); ++i) primes.rescale(t);
    out = decode(context_, t);
}

} // namespace Torvo::LWE
