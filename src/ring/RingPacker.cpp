#include <Torvo/RingPacker.hpp>

#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "evaluator/KeySwitcher.hpp"
#include "ring/MLWEKeySwitch.hpp"
#include "ring/Messages.hpp"
#include "ring/RingSwitcher.hpp"

#include <algorithm>
#include <utility>

namespace Torvo {

namespace {

constexpr RingSwitcher ringSwitcher;

// ---- properties of operands

template <EncryptionType E>
u64 degreeOf(const CiphertextBase<E>& ciphertext) {
    return ciphertext.getContext()->parameter.degree;
}
/// Plain LWE is a module over the integers, of as many components as its dimension.
u64 degreeOf(const LWE::Ciphertext&) {
    return 1;
}

template <EncryptionType E>
u64 rankOf(const CiphertextBase<E>& ciphertext) {
    return ciphertext.getNumPoly() - 1;
}
u64 rankOf(const LWE::Ciphertext& ciphertext) {
    return ciphertext.getAx().getDimension();
}

u64 encryptionLevelOf(const Context& context) {
    return context->parameter.encryption_level;
}

// ---- guards

template <class AnyCiphertext>
void requireOnCoefficients(const AnyCiphertext& operand) {
    require(!WithEncodingType<AnyCiphertext> || !utils::isOnSlots(operand), message::notOnCoefficients);
}

template <class AnyCiphertext>
void requireMatching(const std::vector<const AnyCiphertext*>& operands) {
    for (const AnyCiphertext* operand : operands) utils::requireMatching(*operands.front(), *operand);
}

/// Requires that the scales of all are the same, and defined.
template <class AnyCiphertext>
void requireLevels(const std::vector<const AnyCiphertext*>& operands) {
    const AnyCiphertext& first = *operands.front();
    for (const AnyCiphertext* operand : operands) utils::requireEqualLevels(*operand, first);
    utils::requireCounterWithinLevel(first);
}

void requireTwoElements(const Ciphertext& operand) {
    require(operand.getNumPoly() == 2, message::sizeNotTwo);
}

void requireOutOfNTT(const Ciphertext& operand) {
    for (const Polynomial& element : operand.getPolys().getPolys())
        require(!element.isNTT(), message::ringSwitchingInNTTForm);
}

/// Requires that the residues of a ciphertext at `level` may be read as those of `context`.
void requireFit(const Context& context, u64 degree, u64 level) {
    require(context->parameter.degree == degree && level < context->parameter.chain_length,
            message::ciphertextDoesNotFit);
}

/// Rows up to the level are moved, so the operand must have them: a level may have been set by hand to one
/// that it does not reach.
template <EncryptionType E>
void requireWithinOwnChain(const CiphertextBase<E>& operand) {
    require(operand.getLevel() < operand.getContext()->parameter.chain_length, message::ciphertextDoesNotFit);
}
void requireWithinOwnChain(const LWE::Ciphertext& operand) {
    require(operand.getLevel() < operand.getContext()->parameter.chain_length, message::ciphertextDoesNotFit);
}

/// Requires that the residues of an operand are residues of `context` too. Both have the level in their
/// chains.
template <class AnyCiphertext, class AnyContext>
void requirePrimes(const AnyCiphertext& operand, const AnyContext& context, const RefusedMeeting& meeting) {
    requireSharedPrimes(operand.getContext(), context, operand.getLevel(), meeting);
}

/// Whether the elements of `in` together fill the degree `whole`.
template <class AnyCiphertext>
bool fillTogether(const std::vector<const AnyCiphertext*>& in, u64 whole) {
    return !in.empty() && in.size() * degreeOf(*in.front()) == whole &&
           std::ranges::all_of(in,
                               [&](const auto* part) { return degreeOf(*part) == degreeOf(*in.front()); });
}

/// Whether there is one key for each group of components, and the keys are of the ring of the output.
template <class AnyCiphertext, EncryptionType E>
bool keysFit(const std::vector<const AnyCiphertext*>& in, const ModPackKeyBundle& keys,
             const CiphertextBase<E>& out) {
    const u64 rank = rankOf(*in.front());
    return rank % rankOf(out) == 0 && rank / rankOf(out) == keys.getNumKeys() && keys.getNumKeys() > 0 &&
           std::ranges::all_of(in, [&](const auto* operand) { return rankOf(*operand) == rank; }) &&
           keys.getContext()->parameter.degree == rankOf(out) * degreeOf(out);
}

// ---- outputs

/// Makes `out` a ciphertext of `context` with two elements; its previous content does not matter.
void shapePair(const Context& context, Ciphertext& out) {
    utils::fitElements(context, 2, false, out);
}

/// What packed data say of themselves: the coefficients of a whole ring, owing what the operands owed.
Stamp packedStamp(const Context& ring, int rescale_counter) {
    return {getLogFullSlots(ring), rescale_counter, EncodingType::Coefficient};
}

// ---- pieces of the operations

template <EncryptionType E>
std::vector<const Polynomial*> elementsAt(u64 index, const std::vector<const CiphertextBase<E>*>& in) {
    std::vector<const Polynomial*> elements;
    elements.reserve(in.size());
    for (const auto* ciphertext : in) elements.push_back(&ciphertext->getPoly(index));
    return elements;
}

/// Switches a ciphertext in coefficient form from the old secret of `key` to its new one.
void switchKey(const RingSwitchKey& key, Ciphertext& ciphertext) {
    const KeySwitcher switcher(key.getContext());
    Ciphertext switched = switcher.switchKey(ciphertext.getPoly(1), key.getKey(), false);
    ciphertext.getContext()->primes.add(ciphertext.getPoly(0), switched.getPoly(0), ciphertext.getPoly(0));
    // Only the words are taken over: the ring stays that of the ciphertext, which may have more primes than
    // the key's.
    ciphertext.getPoly(1).setData(std::move(switched.getPoly(1).getData()));
}

/// `count` polynomials of `context` at `level`, in coefficient form, data unset.
std::vector<Polynomial> coefficientPolynomials(const Context& context, u64 count, u64 level) {
    Polynomial shape(context, false, false);
    shape.setLevel(level);
    std::vector<Polynomial> polys;
    polys.reserve(count);
    for (u64 i = 0; i < count; ++i) polys.push_back(shape.sameShape());
    return polys;
}

/// One ciphertext of large rank for all of `in`, in the ring of the output: b, then the components.
std::vector<Polynomial> combined(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>& in,
                                 const Context& context) {
    auto polys = coefficientPolynomials(context, in.front()->getNumPoly(), in.front()->getLevel());
    for (u64 j = 0; j < polys.size(); ++j) ringSwitcher.combine(elementsAt(j, in), polys[j]);
    return polys;
}

std::vector<Polynomial> combined(const std::vector<const LWE::Ciphertext*>& in, const Context& context) {
    auto polys = coefficientPolynomials(context, rankOf(*in.front()) + 1, in.front()->getLevel());
    std::vector<const LevelledVector*> vectors;
    std::vector<const LevelledElement*> numbers;
    for (const LWE::Ciphertext* ciphertext : in) {
        vectors.push_back(&ciphertext->getAx());
        numbers.push_back(&ciphertext->getBx());
    }
    std::vector<Polynomial*> components;
    for (u64 j = 1; j < polys.size(); ++j) components.push_back(&polys[j]);
    ringSwitcher.combineBatch(vectors, components);
    ringSwitcher.combine(numbers, polys[0]);
    return polys;
}

template <class AnyCiphertext, EncryptionType E>
void modPackAny(const std::vector<const AnyCiphertext*>& in, const ModPackKeyBundle& keys,
                CiphertextBase<E>& out) {
    require(fillTogether(in, degreeOf(out)), message::modPackTotalDimension);
    require(keysFit(in, keys, out), message::modPackKeysDoNotFit);
    requireOnCoefficients(*in.front());
    requireMatching(in);
    const u64 level = in.front()->getLevel();
    require(level <= encryptionLevelOf(out.getContext()), message::modPackLevel);
    requireLevels(in);
    requireFit(keys.getContext(), rankOf(out) * degreeOf(out), level);
    for (const AnyCiphertext* operand : in) requireWithinOwnChain(*operand);
    const Stamp stamp = packedStamp(out.getContext(), in.front()->getRescaleCounter());
    const std::vector<Polynomial> polys = combined(in, out.getContext());
    for (const Context& ring : {out.getContext(), keys.getContext()})
        ring->primes.requireCommonDevice(polys.front());
    for (const AnyCiphertext* operand : in) requirePrimes(*operand, out.getContext(), message::packingInput);
    requireSharedPrimes(keys.getContext(), out.getContext(), level, message::packingKeys);
    mlweKeySwitch(polys, keys, out);
    stamp.putOn(out);
}

/// Makes an output of `unPack` fit for `context` and `level`.
void shapeUnpacked(const LWE::Context& context, u64 level, const Device& device, LWE::Ciphertext& out) {
    const bool fits = out.getContext()->context_hash == context->context_hash &&
                      out.getAx().getDimension() == context->parameter.dimension;
    if (!fits) out = LWE::Ciphertext(context);
    out.setLevel(level);
    out.getAx().allocate(device);
    out.getBx().allocate(device);
}

} // namespace

void RingPacker::compose(const std::vector<const Ciphertext*>& in, const RingSwitchKey& key,
                         Ciphertext& out) const {
    require(!in.empty(), message::composeDimension);
    const Ciphertext& first = *in.front();
    const Context context = out.getContext();
    require(degreeOf(out) % degreeOf(first) == 0, message::composeOutputDegree);
    require(in.size() == 1 || fillTogether(in, degreeOf(out)), message::composeDimension);
    requireOnCoefficients(first);
    requireMatching(in);
    requireLevels(in);
    for (const Ciphertext* operand : in) requireTwoElements(*operand);
    for (const Context& ring : {context, key.getContext()}) requireFit(ring, degreeOf(out), first.getLevel());
    for (const Ciphertext* operand : in) requireWithinOwnChain(*operand);
    for (const Ciphertext* operand : in) requireOutOfNTT(*operand);
    key.getContext()->primes.requireCommonDevice(first);
    for (const Ciphertext* operand : in) requirePrimes(*operand, context, message::packingInput);
    requireSharedPrimes(key.getContext(), context, first.getLevel(), message::packingKeys);

    const Stamp stamp = packedStamp(context, first.getRescaleCounter());
    shapePair(context, out);
    for (u64 j = 0; j < 2; ++j) {
        if (in.size() == 1)
            ringSwitcher.embed(first.getPoly(j), out.getPoly(j));
        else
            ringSwitcher.combine(elementsAt(j, in), out.getPoly(j));
    }
    switchKey(key, out);
    stamp.putOn(out);
}

void RingPacker::decompose(const Ciphertext& in, const RingSwitchKey& key,
                           std::vector<Ciphertext*>& out) const {
    require(!out.empty(), message::decomposeDimension);
    const Context context = out.front()->getContext();
    const u64 degree = context->parameter.degree;
    require(degreeOf(in) % degree == 0, message::decomposeInputDegree);
    require(out.size() == 1 || out.size() == degreeOf(in) / degree, message::decomposeDimension);
    requireOnCoefficients(in);
    require(in.getLevel() <= encryptionLevelOf(context), message::decomposeLevel);
    requireTwoElements(in);
    utils::requireCounterWithinLevel(in);

    const Stamp stamp = packedStamp(context, in.getRescaleCounter());
    requireWithinOwnChain(in);
    Ciphertext switched(key.getContext(), in);
    requireOutOfNTT(in);
    key.getContext()->primes.requireCommonDevice(in);
    requirePrimes(in, key.getContext(), message::decomposingKey);
    requireSharedPrimes(key.getContext(), context, in.getLevel(), message::packingKeys);
    switchKey(key, switched);
    for (Ciphertext* part : out) shapePair(context, *part);
    for (u64 j = 0; j < 2; ++j) {
        std::vector<Polynomial*> parts;
        parts.reserve(out.size());
        for (Ciphertext* part : out) parts.push_back(&part->getPoly(j));
        if (parts.size() == 1)
            ringSwitcher.extract(switched.getPoly(j), *parts.front());
        else
            ringSwitcher.split(switched.getPoly(j), parts);
    }
    for (Ciphertext* part : out) stamp.putOn(*part);
}

template <EncryptionType E>
void RingPacker::modPack(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>& in,
                         const ModPackKeyBundle& keys, CiphertextBase<E>& out) const {
    modPackAny(in, keys, out);
}

template <EncryptionType E>
void RingPacker::modPack(const std::vector<const LWE::Ciphertext*>& in, const ModPackKeyBundle& keys,
                         CiphertextBase<E>& out) const {
    modPackAny(in, keys, out);
}

void RingPacker::unPack(const Ciphertext& in, const std::vector<LWE::Ciphertext*>& out) const {
    require(out.size() == degreeOf(in), message::unPackDegree);
    requireOnCoefficients(in);
    const LWE::Context context = out.front()->getContext();
    require(in.getLevel() <= context->parameter.numQP, message::unPackLevel);
    requireTwoElements(in);
    utils::requireCounterWithinLevel(in);

    requireWithinOwnChain(in);
    const Stamp stamp = Stamp::of(in);
    LevelledVector a(context);
    ringSwitcher.split(in.getPoly(1), a);
    context->primes.requireCommonDevice(a);
    requirePrimes(in, context, message::packingInput);
    std::vector<LevelledElement*> numbers;
    for (LWE::Ciphertext* part : out) {
        shapeUnpacked(context, in.getLevel(), in.getDevice(), *part);
        numbers.push_back(&part->getBx());
    }
    ringSwitcher.split(in.getPoly(0), numbers);
    forEachIndex(out.size(), [&](u64 i) { context->primes.conjugateInvert(a, out[i]->getAx(), i); });
    for (LWE::Ciphertext* part : out) stamp.putOn(*part);
}

template void RingPacker::modPack(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>&,
                                  const ModPackKeyBundle&, CiphertextBase<EncryptionType::MLWE>&) const;
template void RingPacker::modPack(const std::vector<const CiphertextBase<EncryptionType::MLWE>*>&,
                                  const ModPackKeyBundle&, CiphertextBase<EncryptionType::RLWE>&) const;
template void RingPacker::modPack(const std::vector<const LWE::Ciphertext*>&, const ModPackKeyBundle&,
                                  CiphertextBase<EncryptionType::MLWE>&) const;
template void RingPacker::modPack(const std::vector<const LWE::Ciphertext*>&, const ModPackKeyBundle&,
                                  CiphertextBase<EncryptionType::RLWE>&) const;

} // namespace Torvo
