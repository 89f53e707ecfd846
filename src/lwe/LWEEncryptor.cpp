#include <Torvo/LWEEncryptor.hpp>

#include "arithmetic/Messages.hpp"
#include "context/LWEContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/RandomSampler.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "encoding/Messages.hpp"
#include "lwe/LWECiphertextImpl.hpp"
#include "lwe/Messages.hpp"
#include "lwe/SecretElement.hpp"

namespace Torvo::LWE {

namespace {

void stampOutput(const Context& context, u64 level, int rescaleCounter, Ciphertext& out) {
    shapeOutput(context, out);
    // The level first: what bounds the counter is the new level, not that of an earlier use.
    out.setLevel(level);
    out.setRescaleCounter(rescaleCounter);
    out.getAx().allocate(Device{});
}

} // namespace

Encryptor::Encryptor(const Context& context) : context_(requireContext(context)) {}

void Encryptor::encrypt(double message, const SecretKey& key, Ciphertext& out) const {
    encrypt(message, key, out, getEncryptionLevel(context_), 0);
}

// b = (m - <a, s>) + e, a uniform. Drawn in this order: a, e. A level or a counter that does not fit is
// refused as the encoder of a ring refuses it; that of a constant checks neither.
void Encryptor::encrypt(double message, const SecretKey& key, Ciphertext& out, unsigned long level,
                        int rescale_counter) const {
    require(level <= getEncryptionLevel(context_), message::encodeLevelTooHigh);
    require(rescale_counter <= static_cast<int>(level), message::encodeCounterAboveLevel);
    isValidRescaleCounter(rescale_counter);
    require(key.getSx().getDimension() == getDimension(context_), message::operandsDifferInDimension);
    require(level <= key.getSx().getLevel(), message::operandsDifferInLevel);
    requireSharedPrimes(key.getContext(), context_, level, message::encryptNumberUnderForeignSecret);

    SecretElement masked(ConstantEnDecoder(context_).encodeConst(message, level, rescale_counter));

    const PrimeModuli& primes = context_->primes;
    stampOutput(context_, level, rescale_counter, out);
    RandomSampler().sampleUniform(out.getAx(), context_);
    SecretElement error(context_), mask(context_);
    error.setLevel(level);
    RandomSampler().sampleGaussian(error, context_);
    masked.to(key.getDevice());
    error.to(key.getDevice());
    out.to(key.getDevice());
    primes.innerProduct(out.getAx(), key.getSx(), mask);
    primes.sub(masked, mask, masked);
    primes.add(masked, error, out.getBx());
}

} // namespace Torvo::LWE
