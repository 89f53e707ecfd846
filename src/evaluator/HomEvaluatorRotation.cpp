#include "arithmetic/chain/Messages.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "evaluator/RotationDigits.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <utility>

namespace Torvo {

namespace {

void requireTwoElements(const Ciphertext& ciphertext) {
    require(ciphertext.getNumPoly() == 2, message::sizeNotTwo);
}

bool isElementOf(const std::vector<Ciphertext>& vector, const Ciphertext& object) {
    const std::less<> before;
    return !before(&object, vector.data()) && before(&object, vector.data() + vector.size());
}

} // namespace

// ---- one rotation

std::shared_ptr<EvaluationKey> HomEvaluatorImpl::leftRotationKey(u64 index) const {
    std::shared_ptr<EvaluationKey> key = keyPack_.getLeftRotKey(index);
    if (key == nullptr) throw RuntimeException(message::noLeftRotationKey + std::to_string(index));
    return key;
}

/// The ciphertext under X -> X^g, switched back to the secret it came from by `key`. It is on slots, as every
/// new ciphertext, whatever `in` says of itself.
Ciphertext HomEvaluatorImpl::applyAutomorphism(const Ciphertext& in, long g, EvaluationKey& key) const {
    const KeyOfMap keyOfMap{g, &key};
    Ciphertext switched = std::move(keySwitcher_->rotate(in, std::span(&keyOfMap, 1)).front());
    Stamp::of(in).putKeepingEncoding(switched);
    return switched;
}

void HomEvaluatorImpl::requireRotatable(const Ciphertext& in) const {
    utils::requireOnSlots(in);
    requireTwoElements(in);
    requireOwn(in);
}

void HomEvaluatorImpl::leftRotate(const Ciphertext& in, u64 index, Ciphertext& out) const {
    requireRotatable(in);
    const u64 r = index % context_->parameter.num_slots;
    if (r == 0) {
        out = in;
        return;
    }
    if (const auto key = keyPack_.getLeftRotKey(r))
        out = applyAutomorphism(in, galoisElement(r, in.getDevice()), *key);
    else
        composeRotation(in, r, out);
}

void HomEvaluatorImpl::composeRotation(const Ciphertext& in, u64 index, Ciphertext& out) const {
    // The digits are powers of two, to the left or to the right: those must have keys of their own.
    if (std::has_single_bit(index) || std::has_single_bit(context_->parameter.num_slots - index))
        throw RuntimeException(message::noKeyToComposeFrom + std::to_string(index));
    Ciphertext rotated = unsetCiphertext(context_);
    const Ciphertext* source = &in;
    for (const u64 digit : rotationDigits(index, context_->parameter.num_slots)) {
        leftRotate(*source, digit, rotated);
        source = &rotated;
    }
    out = std::move(rotated);
}

void HomEvaluatorImpl::rightRotate(const Ciphertext& in, u64 index, Ciphertext& out) const {
    const u64 turn = context_->parameter.num_slots;
    leftRotate(in, turn - index % turn, out);
}

void HomEvaluatorImpl::rotate(Direction direction, const Ciphertext& in, u64 index, Ciphertext& out) const {
    direction == Direction::Left ? leftRotate(in, index, out) : rightRotate(in, index, out);
}

void HomEvaluatorImpl::conjugate(const Ciphertext& in, Ciphertext& out) const {
    requireTwoElements(in);
    const std::shared_ptr<EvaluationKey> key = keyPack_.getConjKey();
    require(key != nullptr, message::noConjugationKey);
    requireOwn(in);
    out = applyAutomorphism(in, -1, *key);
}

void HomEvaluatorImpl::killImag(const Ciphertext& in, Ciphertext& out) const {
    Ciphertext sum = unsetCiphertext(context_);
    conjugate(in, sum);
    addWithoutCheck(in, sum, sum);
    multWithoutRescale(sum, std::complex<double>(0.5, 0.0), sum);
    rescale(sum);
    out = std::move(sum);
}

// ---- many rotations

void HomEvaluatorImpl::requireLeftRotationKeys(const std::vector<u64>& indices) const {
    std::set<u64> missing;
    for (const u64 index : indices)
        if (index != 0 && keyPack_.getLeftRotKey(index) == nullptr) missing.insert(index);
    if (missing.empty()) return;
    if (missing.size() == 1)
        throw RuntimeException(message::noLeftRotationKey + std::to_string(*missing.begin()));
    std::string text = message::noLeftRotationKeys;
    for (const char* separator = ""; const u64 index : missing) {
        text += separator + std::to_string(index);
        separator = ", ";
    }
    throw RuntimeException(text);
}

void HomEvaluatorImpl::rotate(Direction direction, const Ciphertext& in, const std::vector<u64>& indices,
                              std::vector<Ciphertext>& outs) const {
    requireRotatable(in);
    const u64 turn = in.getNumberOfSlots();
    std::vector<u64> toTheLeft;
    toTheLeft.reserve(indices.size());
    for (const u64 index : indices) {
        const u64 r = index % turn;
        // To the right by r is to the left by what is missing to a turn of the ring, of all its slots.
        toTheLeft.push_back(direction == Direction::Left || r == 0 ? r : context_->parameter.num_slots - r);
    }
    requireLeftRotationKeys(toTheLeft);
    leftRotate(in, toTheLeft, outs);
}

void HomEvaluatorImpl::leftRotate(const Ciphertext& in, const std::vector<u64>& indices,
                                  std::vector<Ciphertext>& outs) const {
    requireRotatable(in);
    if (isElementOf(outs, in)) {
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): `outs` changes its size below
        const Ciphertext copy = in;
        return leftRotate(copy, indices, outs);
    }
    outs.reserve(indices.size());
    while (outs.size() < indices.size()) outs.push_back(unsetCiphertext(context_));
    outs.erase(outs.begin() + static_cast<std::ptrdiff_t>(indices.size()), outs.end());

    std::vector<std::shared_ptr<EvaluationKey>> keys; // in use until the last rotation
    std::vector<KeyOfMap> maps;
    for (const u64 index : indices) {
        if (index == 0) continue;
        keys.push_back(leftRotationKey(index));
        maps.push_back({galoisElement(index, in.getDevice()), keys.back().get()});
    }
    const Stamp stamp = Stamp::of(in);
    std::vector<Ciphertext> rotated = keySwitcher_->rotate(in, maps);
    for (u64 k = 0, next = 0; k < indices.size(); ++k) {
        if (indices[k] == 0) {
            outs[k] = in;
            continue;
        }
        outs[k] = std::move(rotated[next++]);
        stamp.putOn(outs[k]);
    }
}

void HomEvaluatorImpl::rotSum(const std::vector<Ciphertext>& cts, const std::vector<u64>& indices,
                              Ciphertext& out) const {
    for (const Ciphertext& ct : cts) requireTwoElements(ct);
    require(cts.size() == indices.size(), message::sizesOfRotSumDiffer);
    require(!cts.empty(), message::noOperand);
    for (const Ciphertext& ct : cts) {
        utils::requireEqualLevels(ct, cts[0]);
        utils::requireMatching(cts[0], ct);
        requireOwn(ct);
    }
    Ciphertext sum = std::ranges::all_of(indices, [](u64 r) { return r == 0; }) ? plainSum(cts)
                                                                                : switchedSum(cts, indices);
    out = std::move(sum);
}

Ciphertext HomEvaluatorImpl::plainSum(const std::vector<Ciphertext>& cts) const {
    Ciphertext sum = cts[0];
    for (u64 k = 1; k < cts.size(); ++k) addWithoutCheck(sum, cts[k], sum);
    return sum;
}

Ciphertext HomEvaluatorImpl::switchedSum(const std::vector<Ciphertext>& cts,
                                         const std::vector<u64>& indices) const {
    Ciphertext products = unsetCiphertext(context_);
    bool isFirst = true;
    for (u64 k = 0; k < cts.size(); ++k) {
        if (indices[k] == 0) continue;
        const std::shared_ptr<EvaluationKey> key = leftRotationKey(indices[k]);
        Polynomial mapped(context_, false, true);
        context_->primes.frobeniusMapInNTT<false>(cts[k].getPoly(1),
                                                  galoisElement(indices[k], cts[k].getDevice()), mapped);
        keySwitcher_->multiplyDigits(mapped, *key, !isFirst, products);
        isFirst = false;
    }
    // One division by the temporary primes for all of them.
    Ciphertext sum = unsetCiphertext(context_);
    keySwitcher_->modDown(products, sum, true);
    Stamp::of(cts[0]).putOn(sum);
    for (u64 k = 0; k < cts.size(); ++k) {
        if (indices[k] == 0)
            addWithoutCheck(sum, cts[k], sum);
        else
            context_->primes.frobeniusMapInNTT<true>(
                cts[k].getPoly(0), galoisElement(indices[k], cts[k].getDevice()), sum.getPoly(0));
    }
    return sum;
}

// ---- sums over rotations

void HomEvaluatorImpl::leftRotateReduce(const Ciphertext& in, u64 gap, u64 count, Ciphertext& out) const {
    rotateReduce(Direction::Left, in, gap, count, out);
}

void HomEvaluatorImpl::rightRotateReduce(const Ciphertext& in, u64 gap, u64 count, Ciphertext& out) const {
    rotateReduce(Direction::Right, in, gap, count, out);
}

void HomEvaluatorImpl::rotateReduce(Direction direction, const Ciphertext& in, u64 gap, u64 count,
                                    Ciphertext& out) const {
    utils::requireOnSlots(in);
    requireOwn(in);
    if (count <= 1)
        out = in;
    else if (std::has_single_bit(count))
        out = reducePowerOfTwo(direction, in, gap, count);
    else if (count % 3 == 0 && std::has_single_bit(count / 3))
        out = reduceThreefold(direction, in, gap, count);
    else
        out = reduceBySignedPowers(direction, in, gap, count);
}

Ciphertext HomEvaluatorImpl::reducePowerOfTwo(Direction direction, const Ciphertext& in, u64 gap,
                                              u64 count) const {
    Ciphertext sum = in, rotated = unsetCiphertext(context_);
    for (u64 covered = 1; covered < count; covered *= 2) {
        rotate(direction, sum, covered * gap, rotated);
        add(rotated, sum, sum);
    }
    return sum;
}

Ciphertext HomEvaluatorImpl::reduceThreefold(Direction direction, const Ciphertext& in, u64 gap,
                                             u64 count) const {
    const u64 third = count / 3;
    Ciphertext rotated = unsetCiphertext(context_);
    rotateReduce(direction, in, gap, third, rotated);
    Ciphertext sum = rotated;
    for (int i = 0; i < 2; ++i) {
        rotate(direction, rotated, third * gap, rotated);
        add(sum, rotated, sum);
    }
    return sum;
}

/// With count = p[0] - p[1] + ... + p[c-1]: starts from the last p[c-1] of the `count` rotations, then in
/// turns takes the sum down to a gap of p[k] rotations before them and up to a run of p[k-1] that closes it.
Ciphertext HomEvaluatorImpl::reduceBySignedPowers(Direction direction, const Ciphertext& in, u64 gap,
                                                  u64 count) const {
    const Direction opposite = direction == Direction::Left ? Direction::Right : Direction::Left;
    std::vector<u64> p;
    u64 length = 0;
    getRotIdxDecomposition(count, p, length);
    const u64 last = p[length - 1];

    Ciphertext run = unsetCiphertext(context_);
    rotate(direction, in, (count - last) * gap, run);
    rotateReduce(direction, run, gap, last, run);
    Ciphertext sum = run;
    for (u64 k = length - 1; k >= 2; k -= 2) {
        rotateReduce(direction, run, p[k] * gap, p[k - 1] / p[k], run);
        sub(sum, run, sum);
        rotateReduce(opposite, run, p[k - 1] * gap, p[k - 2] / p[k - 1], run);
        add(sum, run, sum);
    }
    return sum;
}

void HomEvaluatorImpl::getRotIdxDecomposition(const u64& index, std::vector<u64>& out, u64& count) const {
    u64 rest = index;
    out.clear();
    while (rest != 0 && !std::has_single_bit(rest)) {
        const u64 power = std::bit_ceil(rest);
        out.push_back(power);
        rest = power - rest;
    }
    if (rest != 0) {
        // The last sign is to be a plus: v, or -v written as v - 2v.
        if (out.size() % 2 == 1) out.push_back(2 * rest);
        out.push_back(rest);
    }
    count = out.size();
}

} // namespace Torvo
