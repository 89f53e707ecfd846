#pragma once

#include "arithmetic/kernels/NTTFMA.hpp"
#include "arithmetic/kernels/TransformRows.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Negacyclic number-theoretic transform of one row for one prime. It maps the coefficients of a polynomial
/// in Z_p[X]/(X^N + 1) to its values at psi^(2i+1), i < N, where psi is the smallest primitive 2N-th root of
/// unity modulo p. The value at psi^(2i+1) is at position rev(i), the bit reversal of i over log2 N bits.
///
/// Harvey's lazy butterflies: forward words stay below 4p, backward words below 2p; p < 2^61. Source: D.
/// Harvey, "Faster arithmetic for number-theoretic transforms", J. Symb. Comp. 60 (2014). Const members use
/// no scratch memory; any number of threads may transform different rows.
class alignas(32) NTT {
public:
    /// @throws RuntimeException in this order: "Not an NTT-friendly prime given.", "[NTT] degree must be a
    ///         power of two.", "[NTT] degree should be >= 64."
    NTT(unsigned long degree, unsigned long prime);

    /// In place; words in [0, 4p), out in [0, k*p), k = 1, 2, 4.
    template <int k>
    void computeForward(unsigned long* a) const;
    /// In place; words in [0, 2p), out in [0, k*p), k = 1, 2.
    template <int k>
    void computeBackward(unsigned long* a) const;

    /// One forward stage of butterfly distance `t`, scalar.
    void computeForwardNativeSingleStep(unsigned long* a, unsigned long t) const;
    /// One backward stage of distance `t`, scalar.
    void computeBackwardNativeSingleStep(unsigned long* a, unsigned long t) const;
    /// The last backward stage, distance N/2, with the multiplication by 1/N folded in; scalar.
    void computeBackwardNativeLast(unsigned long* a) const;

    // The AVX2 form: same ranges, same words. It may run only on processors that have AVX2, and only on
    // transforms that were constructed on one.

    template <int k>
    void computeForwardAVX256(unsigned long* a) const;
    template <int k>
    void computeBackwardAVX256(unsigned long* a) const;
    /// One stage of distance t >= 4, of distance 2, of distance 1.
    void computeForwardAVX256Tn(unsigned long* a, unsigned long t) const;
    void computeForwardAVX256T2(unsigned long* a) const;
    void computeForwardAVX256T1(unsigned long* a) const;
    void computeBackwardAVX256T1(unsigned long* a) const;
    void computeBackwardAVX256T2(unsigned long* a) const;
    void computeBackwardAVX256Tn(unsigned long* a, unsigned long t) const;
    void computeBackwardAVX256Last(unsigned long* a) const;

    /// Whether transforms into range 1 run in floating point. They do if the processor has AVX2 and FMA and
    /// the prime is small enough; the words are the same.
    bool runsInFloatingPoint() const { return twiddles_.size() != 0; }

    unsigned long getPrime() const { return p_; }
    unsigned long getTwoP() const { return twoP_; }
    unsigned long getDegree() const { return degree_; }
    /// psi^i is at position rev(i).
    const DeviceSpecificArray<unsigned long>& getPowerTable() const { return powerTable_; }
    /// Powers of psi^-1 in the order in which the backward stages use them.
    const DeviceSpecificArray<unsigned long>& getInversePowerTable() const { return inversePowerTable_; }
    unsigned long getDegreeInverse() const { return degreeInverse_.value; }

private:
    void initAVX2Constants();
    void initFMAConstants();
    bool hasAVX2Constants() const { return lastPowerTable_.size() != 0; }
    rows::TransformTables forwardTables() const;
    rows::TransformTables backwardTables() const;
    FMA::TransformTables forwardFMATables() const;
    FMA::TransformTables backwardFMATables() const;

    u64 p_;
    u64 twoP_;
    u64 degree_;
    DeviceSpecificArray<unsigned long> powerTable_;
    DeviceSpecificArray<unsigned long> inversePowerTable_;
    DeviceSpecificArray<unsigned long> powerTableShoup_;
    DeviceSpecificArray<unsigned long> inversePowerTableShoup_;
    rows::ShoupConstant degreeInverse_{};
    /// N^-1 times the single twiddle of the last backward stage.
    rows::ShoupConstant degreeInverseRoot_{};
    // Twiddles of the stage of distance 1, with the two middle words of every four exchanged; empty without
    // AVX2.
    DeviceSpecificArray<unsigned long> lastPowerTable_;
    DeviceSpecificArray<unsigned long> lastPowerTableShoup_;
    DeviceSpecificArray<unsigned long> lastInversePowerTable_;
    DeviceSpecificArray<unsigned long> lastInversePowerTableShoup_;
    // The two tables of powers for FMA::TransformTables; empty without FMA and for primes above its limit.
    DeviceSpecificArray<double> twiddles_;
    DeviceSpecificArray<double> inverseTwiddles_;
};

} // namespace Torvo
