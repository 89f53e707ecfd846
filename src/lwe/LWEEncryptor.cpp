#include <Torvo/LWEEncryptor.hpp>

#include "arithmetic/chain/Messages.hpp"
#include "context/LWEContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/RandomSampler.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "encoding/Messages.hpp"
#include "encoding/RescaleCounter.hpp"
#include "lwe/Messages.hpp"
#include "lwe/SecretElement.hpp"

#include <utility>

namespace Torvo::LWE {

namespace {

Ciphertext stamped(const Context& context, u64 level, int rescale_counter) {
    Ciphertext ciphertext(context);
    ciphertext.setLevel(level);
    ciphertext.setRescaleCounter(rescale_counter);
    return ciphertext;
}

} // namespace

Encryptor::Encryptor(const Context& context) : context_(requireContext(context)) {}

void Encryptor::encrypt(double message, const SecretKey& key, Ciphertext& out) const {
    encrypt(message, key, out, getEncryptionLevel(context_), 0);
}

// b = (m - <a, s>) + e, a uniform. Drawn in this order: a, e. Level and counter are checked here, with the
// texts of the ring's encoder, because the encoder of a constant checks neither.
void Encryptor::encrypt(double message, const SecretKey& key, Ciphertext& out, unsigned long level,
                        int rescale_counter) const {
    require(level <= getEncryptionLevel(context_), message::encodeLevelTooHigh);
    require(rescale_counter <= static_cast<int>(level), message::encodeCounterAboveLevel);
    requireValidRescaleCounter(rescale_counter);
    require(key.getSx().getDimension() == getDimension(context_), message::operandsDifferInDimension);
    require(level <= key.getSx().getLevel(), message::operandsDifferInLevel);
    requireSharedPrimes(key.getContext(), context_, level, message::encryptNumberUnderForeignSecret);

    SecretElement masked(ConstantEnDecoder(context_).encodeConst(message, level, rescale_counter));

    const PrimeModuli& primes = context_->primes;
    Ciphertext encrypted = stamped(context_, level, rescale_counter);
    RandomSampler().sampleUniform(encrypted.getAx(), context_);
    SecretElement error(context_), mask(context_);
    error.setLevel(level);
    RandomSampler().sampleGaussian(error, context_);
    masked.to(key.getDevice());
    error.to(key.getDevice());
    encrypted.to(key.getDevice());
    primes.innerProduct(encrypted.getAx(), key.getSx(), mask);
    primes.sub(masked, mask, masked);
    primes.add(masked, error, encrypted.getBx());
    out = std::move(encrypted);
}

} // namespace Torvo::LWE
