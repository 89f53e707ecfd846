#include "support/Scheme.hpp"

#include "context/ContextContent.hpp"
#include "support/Contexts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <mutex>

namespace Torvo::test {

namespace {

constexpr double factor = 6;

/// log2 of the product of primes `begin` to `end` - 1.
double logProduct(const Context& context, u64 begin, u64 end) {
    double sum = 0;
    for (u64 i = begin; i < end; ++i) sum += std::log2(static_cast<double>(context->primes.getPrime(i)));
    return sum;
}

} // namespace

ErrorModel::ErrorModel(const Context& context) : logScales_(getDefaultScaleFactorList(context)) {
    const Parameter& p = context->parameter;
    degree_ = static_cast<double>(p.degree);
    rank_ = static_cast<double>(p.rank);
    weight_ = static_cast<double>(p.hamming_weight);
    sigma_ = p.gaussian_stddev;
    digits_ = static_cast<double>(p.gadget_rank);
    digitPrimes_ = static_cast<double>(p.chain_length / p.gadget_rank);
    tempPrimes_ = static_cast<double>(p.numTP);
    const double logP = logProduct(context, p.chain_length, p.chain_length + p.numTP);
    digitOverP_ = 0;
    for (u64 begin = 0; begin < p.chain_length; begin += p.numTP)
        digitOverP_ = std::max(digitOverP_, std::exp2(logProduct(context, begin, begin + p.numTP) - logP));
}

double ErrorModel::sizeOf(double variance) const {
    return factor * std::sqrt(degree_ * variance);
}

double ErrorModel::secret() const {
    return factor * std::sqrt(weight_);
}

double ErrorModel::encoding() const {
    return sizeOf(1.0 / 12);
}

double ErrorModel::encryption() const {
    const double error = sizeOf(sigma_ * sigma_);
    return error + error * secret() + sizeOf(0.5) * error + encoding();
}

double ErrorModel::rescale() const {
    return sizeOf(1.0 / 12) * (1 + rank_ * secret());
}

double ErrorModel::keySwitch() const {
    const double digit = sizeOf(digitPrimes_ / 12) * digitOverP_;
    return digits_ * digit * sizeOf(sigma_ * sigma_) + sizeOf(tempPrimes_ / 12) * (1 + secret());
}

double ErrorModel::atLevel(double size, u64 level) const {
    return size * std::exp2(-logScales_.at(level));
}

template <EncryptionType E>
KeyPack SchemeBase<E>::makeKeys(const Context& context, const SecretKeyBase<E>& secretKey) {
    KeyPack pack(context);
    if constexpr (E == EncryptionType::RLWE) {
        const KeyGenerator generator(context, secretKey, pack);
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
    }
    return pack;
}

template <EncryptionType E>
SchemeBase<E>::SchemeBase(ParameterPreset preset)
    : context(contextOf(preset)), secretKey(context), keys(makeKeys(context, secretKey)), encoder(context),
      encryptor(context), decryptor(context), evaluator(context, keys), errors(context) {}

template <EncryptionType E>
const SchemeBase<E>& SchemeBase<E>::of(ParameterPreset preset) {
    static std::mutex mutex;
    static std::map<ParameterPreset, std::unique_ptr<const SchemeBase>> schemes;
    const std::lock_guard lock(mutex);
    auto& scheme = schemes[preset];
    if (!scheme) scheme.reset(new SchemeBase(preset));
    return *scheme;
}

template <EncryptionType E>
CiphertextBase<E> SchemeBase<E>::encrypt(const Message& message, u64 level, int rescaleCounter) const {
    CiphertextBase<E> ciphertext(context);
    if constexpr (E == EncryptionType::RLWE)
        encryptor.encrypt(message, keys, ciphertext, level, rescaleCounter);
    else
        encryptor.encrypt(message, secretKey, ciphertext, level, rescaleCounter);
    return ciphertext;
}

template <EncryptionType E>
CiphertextBase<E> SchemeBase<E>::encryptCoefficients(const std::vector<double>& coefficients,
                                                     u64 level) const {
    CiphertextBase<E> ciphertext(context);
    encryptor.encrypt(coefficients, secretKey, ciphertext, level, 0);
    return ciphertext;
}

template <EncryptionType E>
Message SchemeBase<E>::decrypt(const CiphertextBase<E>& ciphertext) const {
    Message message;
    decryptor.decrypt(ciphertext, secretKey, message);
    return message;
}

template class SchemeBase<EncryptionType::RLWE>;
template class SchemeBase<EncryptionType::MLWE>;

double maxError(const Message& a, const Message& b) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    if (a.getSize() != b.getSize()) return infinite;
    double largest = 0;
    for (u64 i = 0; i < a.getSize(); ++i) {
        const double distance = std::abs(a[i] - b[i]);
        if (std::isnan(distance)) return infinite;
        largest = std::max(largest, distance);
    }
    return largest;
}

double maxAbs(const Message& message) {
    double largest = 0;
    for (const auto& slot : message) largest = std::max(largest, std::abs(slot));
    return largest;
}

} // namespace Torvo::test
