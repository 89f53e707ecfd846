#include "arithmetic/chain/Messages.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Torvo {

namespace {

constexpr const char* owesNoRescale(const Plaintext&) {
    return message::plaintextOwesNoRescale;
}
template <EncryptionType E>
constexpr const char* owesNoRescale(const CiphertextBase<E>&) {
    return message::ciphertextOwesNoRescale;
}

/// Whether a part of a constant counts as an integer. NaN and infinities do not.
bool isIntegral(double x) {
    return std::abs(x - std::round(x)) <= 1e-8;
}

/// The integer that a part of a constant counts as.
double integerOf(double x) {
    const double n = std::round(x);
    constexpr double largest = 0x1p63 - 0x1p10; // the last double below 2^63
    if (std::abs(n) > largest)
        throw RuntimeException(message::integerOutOfRange(decimal(x), decimal(largest)));
    return n;
}

template <EncryptionType E>
void requireSameModUp(const CiphertextBase<E>& ciphertext, const Plaintext& plaintext) {
    require(ciphertext.isModUp() == plaintext.getMx().isModUp(), message::operandsDifferInModUp);
}

/// What the factors of a product must be, in the order in which it is told.
template <EncryptionType E>
void requireFactors(const CiphertextBase<E>& ciphertext, const Plaintext& plaintext) {
    utils::requireOnSlots(ciphertext);
    utils::requireEqualLevels(ciphertext, plaintext);
    utils::requireReadyToMultiply(ciphertext, plaintext);
    utils::requireMatching(ciphertext, plaintext);
    requireSameModUp(ciphertext, plaintext);
}

} // namespace

// ---- plaintexts and ciphertexts alike

template <Owing Operand>
void HomEvaluatorImpl::negate(const Operand& in, Operand& out) const {
    requireOwn(in);
    const Stamp stamp = Stamp::of(in);
    utils::fitLike(in, out);
    for (u64 i = 0; i < utils::numElements(in); ++i)
        context_->primes.negate(utils::element(in, i), utils::element(out, i));
    stamp.putOn(out);
}

template <Owing Operand>
void HomEvaluatorImpl::add(const Operand& in, std::complex<double> c, Operand& out) const {
    utils::requireOnSlots(in);
    utils::requireCounterWithinLevel(in);
    requireOwn(in);
    const Stamp stamp = Stamp::of(in);
    const EncodedConstant encoded = encodeConstant(c, in.getLevel(), stamp.rescale_counter, in.getDevice());
    utils::fitLike(in, out);
    utils::copyElements(in, 1, out);
    encoded.apply([&](const auto&... parts) {
        context_->primes.constAdd(utils::element(in, 0), parts..., utils::element(out, 0));
    });
    stamp.putOn(out);
}

template <Owing Operand>
void HomEvaluatorImpl::sub(const Operand& in, std::complex<double> c, Operand& out) const {
    add(in, -c, out);
}

/// out = in * constant, element by element.
template <class Operand, class... Constant>
void HomEvaluatorImpl::multElements(const Operand& in, Operand& out, const Constant&... constant) const {
    utils::fitLike(in, out);
    const PrimeModuli& primes = context_->primes;
    const u64 count = utils::numElements(in);
    if (count == 2) {
        primes.constMultTwo(utils::element(in, 0), utils::element(in, 1), constant..., utils::element(out, 0),
                            utils::element(out, 1));
        return;
    }
    for (u64 i = 0; i < count; ++i)
        primes.constMult(utils::element(in, i), constant..., utils::element(out, i));
}

template <Owing Operand>
void HomEvaluatorImpl::multWithoutRescale(const Operand& in, std::complex<double> c, Operand& out) const {
    utils::requireOnSlots(in);
    utils::requireLevelAboveZero(in);
    requireOwn(in);
    const Stamp stamp = Stamp::of(in);
    require(static_cast<u64>(stamp.rescale_counter) < in.getLevel(), message::rescaleCounterAboveLevel);
    const EncodedConstant encoded = encodeConstant(c, in.getLevel(), 0, in.getDevice());
    encoded.apply([&](const auto&... parts) { multElements(in, out, parts...); });
    stamp.owing(stamp.rescale_counter + 1).putKeepingEncoding(out);
}

template <Owing Operand>
void HomEvaluatorImpl::multImagUnit(const Operand& in, Operand& out) const {
    utils::requireOnSlots(in);
    requireOwn(in);
    const bool modUp = utils::element(in, 0).isModUp();
    LevelledElement zero(0, context_, modUp, in.getLevel()), one(1, context_, modUp, in.getLevel());
    zero.to(in.getDevice());
    one.to(in.getDevice());
    const Stamp stamp = Stamp::of(in);
    multElements(in, out, zero, one);
    stamp.putOn(out);
}

template <class Operand>
void HomEvaluatorImpl::multUnsigned(const Operand& in, u64 n, Operand& out) const {
    if (n == 1) {
        out = in;
        return;
    }
    const Stamp stamp = Stamp::of(in);
    multElements(in, out, n);
    stamp.putOn(out);
}

template <Owing Operand>
void HomEvaluatorImpl::multInteger(const Operand& in, long n, Operand& out) const {
    utils::requireOnSlots(in);
    requireOwn(in);
    if (n == -1) return negate(in, out);
    if (n >= 0) return multUnsigned(in, static_cast<u64>(n), out);
    LevelledElement residues(n, context_, utils::element(in, 0).isModUp(), in.getLevel());
    residues.to(in.getDevice());
    const Stamp stamp = Stamp::of(in);
    multElements(in, out, residues);
    stamp.putOn(out);
}

template <Owing Operand>
void HomEvaluatorImpl::rescale(Operand& in_out) const {
    utils::requireOnSlots(in_out);
    utils::requireLevelAboveZero(in_out);
    const int owed = in_out.getRescaleCounter();
    require(owed > 0, owesNoRescale(in_out));
    requireOwn(in_out);
    std::vector<Polynomial*> elements;
    for (u64 i = 0; i < utils::numElements(in_out); ++i) elements.push_back(&utils::element(in_out, i));
    context_->primes.rescale(elements);
    in_out.setRescaleCounter(owed - 1);
}

template <Owing Operand>
void HomEvaluatorImpl::inverseRescale(Operand& in_out) const {
    utils::requireOnSlots(in_out);
    require(in_out.getLevel() + 1 < context_->parameter.chain_length, message::inverseRescaleAtTop);
    requireOwn(in_out);
    utils::requireCounterWithinLevel(in_out);
    for (u64 i = 0; i < utils::numElements(in_out); ++i)
        context_->primes.inverseRescale(utils::element(in_out, i));
    in_out.setRescaleCounter(in_out.getRescaleCounter() + 1);
}

// ---- sums

/// out[0] = in[0] + plaintext, or the difference; the other elements are copied.
template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combineEncoded(const CiphertextBase<E>& in, const Plaintext& plaintext,
                                      CiphertextBase<E>& out) const {
    requireSameModUp(in, plaintext);
    requireOwn(in, plaintext);
    const Stamp stamp = Stamp::of(in);
    utils::fitLike(in, out);
    utils::copyElements(in, 1, out);
    Sign::combine(context_->primes, in.getPoly(0), plaintext.getMx(), out.getPoly(0));
    stamp.putOn(out);
}

template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combineEncoded(const CiphertextBase<E>& in, Encoding encoding,
                                      CiphertextBase<E>& out) const {
    requireSameModUp(in, encoding.shape());
    combineEncoded<Sign>(in, std::move(encoding).takeInNTTForm(), out);
}

template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combine(const CiphertextBase<E>& in, const Message& message,
                               CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireMatching(in, message);
    combineEncoded<Sign>(in, Encoding(context_, message, in.getLevel(), in.getRescaleCounter()), out);
}

template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combine(const CiphertextBase<E>& in, const Plaintext& plaintext,
                               CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireMatching(in, plaintext);
    if (plaintext.getLevel() == in.getLevel())
        combineEncoded<Sign>(in, plaintext, out);
    else
        combineEncoded<Sign>(in, reencode(plaintext, in.getLevel(), in.getRescaleCounter()), out);
}

/// Brings the higher of two operands down, then combines.
template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combine(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                               CiphertextBase<E>& out) const {
    if (a.getLevel() == b.getLevel()) return combineElements<Sign>(a, b, out);
    require(!a.isModUp() && !b.isModUp(), Sign::refusalOfModUpLevels);
    auto lowered = unsetCiphertext<E>(context_);
    if (a.getLevel() > b.getLevel()) {
        levelDown(a, b.getLevel(), lowered);
        combineElements<Sign>(lowered, b, out);
    } else {
        levelDown(b, a.getLevel(), lowered);
        combineElements<Sign>(a, lowered, out);
    }
}

template <class Sign, EncryptionType E>
void HomEvaluatorImpl::combineElements(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                                       CiphertextBase<E>& out) const {
    utils::requireMatching(a, b);
    require(a.isModUp() == b.isModUp(), message::operandsDifferInModUp);
    requireOwn(a, b);
    // The output may be either operand, so they are asked before it is given another size.
    const Stamp stamp = Stamp::of(a);
    const u64 countA = a.getNumPoly(), countB = b.getNumPoly(), common = std::min(countA, countB);
    utils::fitElements(context_, std::max(countA, countB), a.isModUp(), out);
    for (u64 i = 0; i < common; ++i)
        Sign::combine(context_->primes, a.getPoly(i), b.getPoly(i), out.getPoly(i));
    if (countA > countB) utils::copyElements(a, common, out);
    for (u64 i = common; i < countB; ++i) Sign::onlySecond(context_->primes, b.getPoly(i), out.getPoly(i));
    stamp.putOn(out);
}

template <EncryptionType E>
void HomEvaluatorImpl::add(const CiphertextBase<E>& in, const Message& message,
                           CiphertextBase<E>& out) const {
    combine<utils::Plus>(in, message, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::sub(const CiphertextBase<E>& in, const Message& message,
                           CiphertextBase<E>& out) const {
    combine<utils::Minus>(in, message, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::add(const CiphertextBase<E>& in, const Plaintext& plaintext,
                           CiphertextBase<E>& out) const {
    combine<utils::Plus>(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::sub(const CiphertextBase<E>& in, const Plaintext& plaintext,
                           CiphertextBase<E>& out) const {
    combine<utils::Minus>(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::add(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                           CiphertextBase<E>& out) const {
    combine<utils::Plus>(a, b, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::sub(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                           CiphertextBase<E>& out) const {
    require(utils::isOnSlots(a) && utils::isOnSlots(b), message::operandsNotOnSlots);
    combine<utils::Minus>(a, b, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::addWithoutCheck(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                                       CiphertextBase<E>& out) const {
    combineElements<utils::Plus>(a, b, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::subWithoutCheck(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                                       CiphertextBase<E>& out) const {
    combineElements<utils::Minus>(a, b, out);
}

// ---- products with what is not encrypted

/// out = in * n for a double n that is an integer, below 2^63 in magnitude.
template <EncryptionType E>
void HomEvaluatorImpl::multIntegral(const CiphertextBase<E>& in, double n, CiphertextBase<E>& out) const {
    multUnsigned(in, static_cast<u64>(std::abs(n)), out);
    if (n < 0) negate(out, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::multGaussianInteger(const CiphertextBase<E>& in, double re, double im,
                                           CiphertextBase<E>& out) const {
    if (im == 0) return multIntegral(in, re, out);
    CiphertextBase<E> imaginary(PolynomialVector(context_, in.getNumPoly(), in.isModUp(), true));
    multIntegral(in, im, imaginary);
    multImagUnit(imaginary, imaginary);
    multIntegral(in, re, out);
    addWithoutCheck(out, imaginary, out);
}

template <EncryptionType E>
void HomEvaluatorImpl::mult(const CiphertextBase<E>& in, std::complex<double> c,
                            CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireNothingOwed(in);
    requireOwn(in);
    if (isIntegral(c.real()) && isIntegral(c.imag()))
        return multGaussianInteger(in, integerOf(c.real()), integerOf(c.imag()), out);
    const Stamp stamp = Stamp::of(in);
    multWithoutRescale(in, c, out);
    stamp.putEncodingOn(out);
    rescale(out);
}

template <EncryptionType E>
void HomEvaluatorImpl::multWithoutRescale(const CiphertextBase<E>& in, const Plaintext& plaintext,
                                          CiphertextBase<E>& out) const {
    requireFactors(in, plaintext);
    requireOwn(in, plaintext);
    const Stamp stamp = Stamp::of(in);
    utils::fitLike(in, out);
    const PrimeModuli& primes = context_->primes;
    const Polynomial& factor = plaintext.getMx();
    if (in.getNumPoly() == 2)
        primes.hadamardMultTwo(factor, in.getPoly(1), in.getPoly(0), out.getPoly(1), out.getPoly(0));
    else
        for (u64 i = 0; i < in.getNumPoly(); ++i) primes.hadamardMult(in.getPoly(i), factor, out.getPoly(i));
    stamp.owing(1).putKeepingEncoding(out);
}

template <EncryptionType E>
void HomEvaluatorImpl::multEncoded(const CiphertextBase<E>& in, const Plaintext& plaintext,
                                   CiphertextBase<E>& out) const {
    const Stamp stamp = Stamp::of(in);
    multWithoutRescale(in, plaintext, out);
    stamp.putEncodingOn(out);
    rescale(out);
}

template <EncryptionType E>
void HomEvaluatorImpl::multEncoded(const CiphertextBase<E>& in, Encoding encoding,
                                   CiphertextBase<E>& out) const {
    requireFactors(in, encoding.shape());
    multEncoded(in, std::move(encoding).takeInNTTForm(), out);
}

template <EncryptionType E>
void HomEvaluatorImpl::mult(const CiphertextBase<E>& in, const Message& message,
                            CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireReadyToMultiply(in);
    multEncoded(in, Encoding(context_, message, in.getLevel(), 0), out);
}

template <EncryptionType E>
void HomEvaluatorImpl::mult(const CiphertextBase<E>& in, const Plaintext& plaintext,
                            CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireReadyToMultiply(in, plaintext);
    if (plaintext.getLevel() == in.getLevel())
        multEncoded(in, plaintext, out);
    else
        multEncoded(in, reencode(plaintext, in.getLevel(), 0), out);
}

// ---- products at a lower level

void HomEvaluatorImpl::multAtLevel(const Ciphertext& in, std::complex<double> c, u64 level,
                                   Ciphertext& out) const {
    utils::requireOnSlots(in);
    utils::requireReadyToMultiply(in);
    requireOwn(in);
    const EncodedConstant encoded = encodeConstant(c, level, 0, in.getDevice());
    const Stamp stamp = Stamp::of(in).owing(1);
    encoded.apply([&](const auto&... parts) { multElements(in, out, parts...); });
    stamp.putOn(out);
}

void HomEvaluatorImpl::multAtLevel(const Ciphertext& in, const Message& factors, u64 level,
                                   Ciphertext& out) const {
    utils::requireOnSlots(in);
    utils::requireReadyToMultiply(in);
    utils::requireMatching(in, factors);
    requireOwn(in);
    const Plaintext encoded = Encoding(context_, factors, level, 0).takeInNTTForm();
    const Stamp stamp = Stamp::of(in).owing(1);
    utils::fitLike(in, out);
    const PrimeModuli& primes = context_->primes;
    for (u64 i = 0; i < in.getNumPoly(); ++i)
        primes.hadamardMult(in.getPoly(i), encoded.getMx(), out.getPoly(i));
    stamp.putOn(out);
}

void HomEvaluatorImpl::sumMultiplesAtLevel(const std::vector<const Ciphertext*>& cts,
                                           const std::vector<std::complex<double>>& c, u64 level,
                                           Ciphertext& out) const {
    for (const Ciphertext* ct : cts) {
        utils::requireOnSlots(*ct);
        require(ct->getNumPoly() == 2, message::sizeNotTwo);
        utils::requireReadyToMultiply(*ct);
        utils::requireMatching(*cts.front(), *ct);
        requireOwn(*ct);
    }
    std::vector<EncodedConstant> constants;
    constants.reserve(cts.size());
    for (const std::complex<double>& each : c)
        constants.push_back(encodeConstant(each, level, 0, cts.front()->getDevice()));
    Ciphertext sum = unsetCiphertext(context_);
    for (u64 element = 0; element < 2; ++element) {
        std::vector<PrimeModuli::ConstantMultiple> terms;
        for (u64 k = 0; k < cts.size(); ++k)
            terms.push_back({cts[k]->getPoly(element), constants[k].real,
                             constants[k].imag ? &*constants[k].imag : nullptr});
        context_->primes.sumConstantMultiples(terms, sum.getPoly(element));
    }
    Stamp::of(*cts.front()).owing(1).putOn(sum);
    out = std::move(sum);
}

// ---- levels

template <EncryptionType E>
void HomEvaluatorImpl::levelDown(const CiphertextBase<E>& in, u64 targetLevel, CiphertextBase<E>& out) const {
    const u64 level = in.getLevel();
    require(targetLevel <= level, message::levelDownUpwards);
    utils::requireOnSlots(in);
    utils::requireNothingOwed(in);
    requireOwn(in);
    if (targetLevel == level) {
        out = in;
        return;
    }
    const auto& [log_scale, correction] = context_->scale_factors;
    const u64 last = targetLevel + 1;
    const double exponent = log_scale[last] - log_scale[level] + static_cast<double>(correction[last]);
    const EncodedConstant factor = encodeConstant(std::pow(2.0, exponent), last, 0, in.getDevice());
    const Stamp stamp = Stamp::of(in);
    // The product has the level of the factor, so the rows that are to go are not even read.
    multElements(in, out, factor.real);
    stamp.owing(1).putOn(out);
    rescale(out);
}

template <EncryptionType E>
void HomEvaluatorImpl::levelDownOne(const CiphertextBase<E>& in, CiphertextBase<E>& out) const {
    utils::requireOnSlots(in);
    utils::requireReadyToMultiply(in);
    const Stamp stamp = Stamp::of(in);
    multWithoutRescale(in, std::complex<double>(1.0, 0.0), out);
    stamp.putEncodingOn(out);
    rescale(out);
}

// ---- instances

#define TORVO_FOR_ENCODED(T)                                                                                 \
    template void HomEvaluatorImpl::negate(const T&, T&) const;                                              \
    template void HomEvaluatorImpl::add(const T&, std::complex<double>, T&) const;                           \
    template void HomEvaluatorImpl::sub(const T&, std::complex<double>, T&) const;                           \
    template void HomEvaluatorImpl::multWithoutRescale(const T&, std::complex<double>, T&) const;            \
    template void HomEvaluatorImpl::multImagUnit(const T&, T&) const;                                        \
    template void HomEvaluatorImpl::multInteger(const T&, long, T&) const;                                   \
    template void HomEvaluatorImpl::rescale(T&) const;                                                       \
    template void HomEvaluatorImpl::inverseRescale(T&) const

#define TORVO_FOR_CIPHERTEXT(T)                                                                              \
    TORVO_FOR_ENCODED(T);                                                                                    \
    template void HomEvaluatorImpl::add(const T&, const Message&, T&) const;                                 \
    template void HomEvaluatorImpl::add(const T&, const Plaintext&, T&) const;                               \
    template void HomEvaluatorImpl::add(const T&, const T&, T&) const;                                       \
    template void HomEvaluatorImpl::sub(const T&, const Message&, T&) const;                                 \
    template void HomEvaluatorImpl::sub(const T&, const Plaintext&, T&) const;                               \
    template void HomEvaluatorImpl::sub(const T&, const T&, T&) const;                                       \
    template void HomEvaluatorImpl::addWithoutCheck(const T&, const T&, T&) const;                           \
    template void HomEvaluatorImpl::subWithoutCheck(const T&, const T&, T&) const;                           \
    template void HomEvaluatorImpl::mult(const T&, std::complex<double>, T&) const;                          \
    template void HomEvaluatorImpl::mult(const T&, const Message&, T&) const;                                \
    template void HomEvaluatorImpl::mult(const T&, const Plaintext&, T&) const;                              \
    template void HomEvaluatorImpl::multWithoutRescale(const T&, const Plaintext&, T&) const;                \
    template void HomEvaluatorImpl::levelDown(const T&, u64, T&) const;                                      \
    template void HomEvaluatorImpl::levelDownOne(const T&, T&) const

TORVO_FOR_ENCODED(Plaintext);
TORVO_FOR_CIPHERTEXT(Ciphertext);
TORVO_FOR_CIPHERTEXT(CiphertextBase<EncryptionType::MLWE>);

#undef TORVO_FOR_CIPHERTEXT
#undef TORVO_FOR_ENCODED

} // namespace Torvo
