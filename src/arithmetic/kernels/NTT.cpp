#include "arithmetic/kernels/NTT.hpp"

#include "arithmetic/kernels/BitReversal.hpp"
#include "arithmetic/kernels/Centred.hpp"
#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/Messages.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "arithmetic/kernels/NTTAVX2.hpp"
#include "arithmetic/kernels/NTTAVX512.hpp"
#include "arithmetic/kernels/ScalarLanes.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <bit>

namespace Torvo {

namespace {

/// The scalar form of the transform. One pass does the stages of distance 2 and 1.
struct ScalarForm : rows::WordPasses<ScalarLanes> {
    using Lanes = ScalarLanes;
    static constexpr int tailStages = 2;

    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const rows::TransformTables& tables);
    static void backwardHead(u64* a, u64 begin, u64 count, const rows::TransformTables& tables);
};

template <int range>
void ScalarForm::forwardTail(u64* a, u64 begin, u64 count, const rows::TransformTables& tables) {
    using rows::forwardButterfly, rows::fromForwardRange, rows::splat;
    const u64 p = tables.p;
    const u64 m = tables.degree / 4;
    for (u64 g = begin / 4; g < (begin + count) / 4; ++g) {
        u64* x = a + 4 * g;
        const auto w = splat<Lanes>(tables.twiddle(m + g));
        forwardButterfly<Lanes>(x[0], x[2], w, p);
        forwardButterfly<Lanes>(x[1], x[3], w, p);
        forwardButterfly<Lanes>(x[0], x[1], splat<Lanes>(tables.twiddle(2 * (m + g))), p);
        forwardButterfly<Lanes>(x[2], x[3], splat<Lanes>(tables.twiddle(2 * (m + g) + 1)), p);
        for (u64 i = 0; i < 4; ++i) x[i] = fromForwardRange<range, Lanes>(x[i], p);
    }
}

void ScalarForm::backwardHead(u64* a, u64 begin, u64 count, const rows::TransformTables& tables) {
    rows::backwardTwoStages<Lanes>(a, 1, rows::groupsWithin(begin, count, 2), tables);
}

/// The form in which transforms of a degree run.
KernelForm formFor(u64 degree) {
    const KernelForm form = currentForm();
    return degree < AVX512::smallestDegree ? std::min(form, KernelForm::FMA) : form;
}

/// A primitive 2N-th root of unity: g^((p-1)/2N) for a g whose power g^((p-1)/2) is -1. That holds for every
/// g that is not a square modulo p. The search needs no factors of p - 1, which would take seconds to find
/// for some primes. Half of all g are not squares, and for primes of one word the smallest of them is far
/// below the limit.
/// @throws RuntimeException when there is none, as for most numbers that are not prime
u64 anyPrimitiveRoot(const Modulus& modulus, u64 degree) {
    constexpr u64 limit = 4096;
    const u64 p = modulus.getPrime();
    for (u64 g = 2; g < std::min(p, limit); ++g) {
        const u64 psi = modulus.power(g, (p - 1) / (2 * degree));
        if (modulus.power(psi, degree) == p - 1) return psi;
    }
    throw RuntimeException(message::notNTTFriendly);
}

/// The smallest primitive 2N-th root of unity. The odd powers of any one of them are all of them.
u64 smallestPrimitiveRoot(const Modulus& modulus, u64 degree) {
    const u64 psi = anyPrimitiveRoot(modulus, degree);
    const u64 square = modulus.mult(psi, psi);
    u64 smallest = psi;
    for (u64 i = 0, x = psi; i < degree; ++i) {
        x = modulus.mult(x, square);
        smallest = std::min(smallest, x);
    }
    return smallest;
}

/// table[rev(i)] = root^i.
void fillPowers(DeviceSpecificArray<unsigned long>& table, const Modulus& modulus, u64 root) {
    const auto bits = static_cast<u64>(std::countr_zero(table.size()));
    u64 power = 1;
    for (u64 i = 0; i < table.size(); ++i) {
        table[reverseBits(i, bits)] = power;
        power = modulus.mult(power, root);
    }
}

/// Rearranges a table from bit-reversed order into the order in which the backward stages use it: word 0,
/// then [N/2, N), [N/4, N/2), ... and [1, 2).
DeviceSpecificArray<unsigned long> inOrderOfUse(const DeviceSpecificArray<unsigned long>& table) {
    DeviceSpecificArray<unsigned long> arranged(table.size());
    arranged[0] = table[0];
    u64* out = arranged.getData() + 1;
    for (u64 m = table.size() / 2; m > 0; m /= 2) out = std::copy_n(table.getData() + m, m, out);
    return arranged;
}

void fillCompanions(DeviceSpecificArray<unsigned long>& companions,
                    const DeviceSpecificArray<unsigned long>& table, u64 p) {
    std::transform(table.begin(), table.end(), companions.begin(),
                   [p](u64 w) { return rows::makeShoupConstant(w, p).companion; });
}

/// A copy of `words` in which the two middle ones of every four are exchanged.
DeviceSpecificArray<unsigned long> exchangeMiddles(const u64* words, u64 count) {
    DeviceSpecificArray<unsigned long> exchanged(count);
    for (u64 i = 0; i < count; i += 4) {
        exchanged[i] = words[i];
        exchanged[i + 1] = words[i + 2];
        exchanged[i + 2] = words[i + 1];
        exchanged[i + 3] = words[i + 3];
    }
    return exchanged;
}

/// The centred representatives of `powers`. In the N/2 words from `lastStage` on, every eight are stored as
/// the four even ones, then the four odd ones.
DeviceSpecificArray<double> centredTwiddles(const DeviceSpecificArray<unsigned long>& powers, u64 lastStage,
                                            u64 p) {
    constexpr u64 order[] = {0, 2, 4, 6, 1, 3, 5, 7};
    DeviceSpecificArray<double> twiddles(powers.size());
    std::transform(powers.begin(), powers.end(), twiddles.begin(), [p](u64 w) { return centred(w, p); });
    for (u64 i = 0; i < powers.size() / 2; ++i)
        twiddles[lastStage + i] = centred(powers[lastStage + i / 8 * 8 + order[i % 8]], p);
    return twiddles;
}

} // namespace

NTT::NTT(unsigned long degree, unsigned long prime)
    : p_(prime), twoP_(2 * prime), degree_(degree), powerTable_(degree), inversePowerTable_(degree),
      powerTableShoup_(degree), inversePowerTableShoup_(degree) {
    // Degree 0 cannot divide: the second guard refuses it.
    require(degree == 0 || prime % (2 * degree) == 1, message::notNTTFriendly);
    require(std::has_single_bit(degree), message::nttDegreeNotPowerOfTwo);
    require(degree >= 64, message::nttDegreeTooSmall);

    const Modulus modulus(degree, prime, false);
    const u64 psi = smallestPrimitiveRoot(modulus, degree);
    fillPowers(powerTable_, modulus, psi);
    fillPowers(inversePowerTable_, modulus, modulus.inverse(psi));
    inversePowerTable_ = inOrderOfUse(inversePowerTable_);
    fillCompanions(powerTableShoup_, powerTable_, prime);
    fillCompanions(inversePowerTableShoup_, inversePowerTable_, prime);

    const u64 degreeInverse = modulus.inverse(modulus.reduce(degree));
    degreeInverse_ = rows::makeShoupConstant(degreeInverse, prime);
    degreeInverseRoot_ =
        rows::makeShoupConstant(modulus.mult(degreeInverse, inversePowerTable_[degree - 1]), prime);
    const KernelForm form = currentForm();
    if (form == KernelForm::Scalar) return;
    initAVX2Constants();
    if (form >= KernelForm::FMA && prime <= greatestFloatPrime) initFMAConstants();
}

void NTT::initAVX2Constants() {
    const u64 half = degree_ / 2;
    lastPowerTable_ = exchangeMiddles(powerTable_.getData() + half, half);
    lastPowerTableShoup_ = exchangeMiddles(powerTableShoup_.getData() + half, half);
    lastInversePowerTable_ = exchangeMiddles(inversePowerTable_.getData() + 1, half);
    lastInversePowerTableShoup_ = exchangeMiddles(inversePowerTableShoup_.getData() + 1, half);
}

void NTT::initFMAConstants() {
    twiddles_ = centredTwiddles(powerTable_, degree_ / 2, p_);
    inverseTwiddles_ = centredTwiddles(inversePowerTable_, 1, p_);
}

rows::TransformTables NTT::forwardTables() const {
    return {.p = p_,
            .degree = degree_,
            .powers = powerTable_.getData(),
            .companions = powerTableShoup_.getData(),
            .lastStagePowers = lastPowerTable_.getData(),
            .lastStageCompanions = lastPowerTableShoup_.getData(),
            .degreeInverse = degreeInverse_,
            .degreeInverseRoot = degreeInverseRoot_};
}

rows::TransformTables NTT::backwardTables() const {
    return {.p = p_,
            .degree = degree_,
            .powers = inversePowerTable_.getData(),
            .companions = inversePowerTableShoup_.getData(),
            .lastStagePowers = lastInversePowerTable_.getData(),
            .lastStageCompanions = lastInversePowerTableShoup_.getData(),
            .degreeInverse = degreeInverse_,
            .degreeInverseRoot = degreeInverseRoot_};
}

FMA::TransformTables NTT::forwardFMATables() const {
    const auto prime = static_cast<double>(p_);
    return {.p = p_,
            .modulus = {prime, 1.0 / prime},
            .degree = degree_,
            .twiddles = twiddles_.getData(),
            .degreeInverse = centred(degreeInverse_.value, p_),
            .degreeInverseRoot = centred(degreeInverseRoot_.value, p_)};
}

FMA::TransformTables NTT::backwardFMATables() const {
    FMA::TransformTables tables = forwardFMATables();
    tables.twiddles = inverseTwiddles_.getData();
    return tables;
}

template <int k>
void NTT::computeForward(unsigned long* a) const {
    const KernelForm form = hasAVX2Constants() ? formFor(degree_) : KernelForm::Scalar;
    if (k == 1 && form >= KernelForm::FMA && runsInFloatingPoint()) {
        const auto transform =
            form >= KernelForm::AVX512 ? AVX512::forwardFloatTransform : FMA::forwardTransform;
        return transform(a, forwardFMATables());
    }
    if (form >= KernelForm::AVX512) return AVX512::forwardTransform<k>(a, forwardTables());
    if (form >= KernelForm::AVX2) return computeForwardAVX256<k>(a);
    rows::forwardTransform<k, ScalarForm>(a, forwardTables());
}

template <int k>
void NTT::computeBackward(unsigned long* a) const {
    const KernelForm form = hasAVX2Constants() ? formFor(degree_) : KernelForm::Scalar;
    if (k == 1 && form >= KernelForm::FMA && runsInFloatingPoint()) {
        const auto transform =
            form >= KernelForm::AVX512 ? AVX512::backwardFloatTransform : FMA::backwardTransform;
        return transform(a, backwardFMATables());
    }
    if (form >= KernelForm::AVX512) return AVX512::backwardTransform<k>(a, backwardTables());
    if (form >= KernelForm::AVX2) return computeBackwardAVX256<k>(a);
    rows::backwardTransform<k, ScalarForm>(a, backwardTables());
}

template <int k>
void NTT::computeForwardAVX256(unsigned long* a) const {
    AVX2::forwardTransform<k>(a, forwardTables());
}

template <int k>
void NTT::computeBackwardAVX256(unsigned long* a) const {
    AVX2::backwardTransform<k>(a, backwardTables());
}

void NTT::computeForwardNativeSingleStep(unsigned long* a, unsigned long t) const {
    rows::forwardStage<ScalarLanes>(a, t, rows::groupsWithin(0, degree_, t), forwardTables());
}

void NTT::computeBackwardNativeSingleStep(unsigned long* a, unsigned long t) const {
    rows::backwardStage<ScalarLanes>(a, t, rows::groupsWithin(0, degree_, t), backwardTables());
}

void NTT::computeBackwardNativeLast(unsigned long* a) const {
    rows::backwardLastStage<2, ScalarLanes>(a, backwardTables());
}

void NTT::computeForwardAVX256Tn(unsigned long* a, unsigned long t) const {
    AVX2::forwardStage(a, t, forwardTables());
}

void NTT::computeForwardAVX256T2(unsigned long* a) const {
    AVX2::forwardStageTwo(a, forwardTables());
}

void NTT::computeForwardAVX256T1(unsigned long* a) const {
    AVX2::forwardStageOne(a, forwardTables());
}

void NTT::computeBackwardAVX256T1(unsigned long* a) const {
    AVX2::backwardStageOne(a, backwardTables());
}

void NTT::computeBackwardAVX256T2(unsigned long* a) const {
    AVX2::backwardStageTwo(a, backwardTables());
}

void NTT::computeBackwardAVX256Tn(unsigned long* a, unsigned long t) const {
    AVX2::backwardStage(a, t, backwardTables());
}

void NTT::computeBackwardAVX256Last(unsigned long* a) const {
    AVX2::backwardLastStage(a, backwardTables());
}

template void NTT::computeForward<1>(unsigned long*) const;
template void NTT::computeForward<2>(unsigned long*) const;
template void NTT::computeForward<4>(unsigned long*) const;
template void NTT::computeBackward<1>(unsigned long*) const;
template void NTT::computeBackward<2>(unsigned long*) const;

template void NTT::computeForwardAVX256<1>(unsigned long*) const;
template void NTT::computeForwardAVX256<2>(unsigned long*) const;
template void NTT::computeForwardAVX256<4>(unsigned long*) const;
template void NTT::computeBackwardAVX256<1>(unsigned long*) const;
template void NTT::computeBackwardAVX256<2>(unsigned long*) const;

} // namespace Torvo
