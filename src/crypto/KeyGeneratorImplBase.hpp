#pragma once

#include "arithmetic/conversion/RNSDecomposeData.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "crypto/RandomSampler.hpp"

#include <Torvo/Context.hpp>

#include <optional>

namespace Torvo {

/// The switching-key formula: (ax_j, bx_j) for each digit j < gadget_rank, with bx_j + ax_j * sTo equal to a
/// fresh error e_j on every row, plus P * hatQ_j * sFrom on the rows of digit j. (On the other rows that
/// product is 0: hatQ_j is a multiple of their primes, or P is.)
class KeyGeneratorImplBase {
public:
    explicit KeyGeneratorImplBase(const Context& context);
    KeyGeneratorImplBase(const Context& context, const Context& context_sparse);

    /// Fills `gadget_rank` polynomials from fresh germs, which they keep.
    void genSwitchingKeyAxWithGerm(const Context& context, Polynomial* ax) const;
    /// The same with the sampler, without germs.
    void genSwitchingKeyAx(const Context& context, Polynomial* ax) const;
    /// `sFrom` and `sTo` are mod-up, in NTT form. The errors are wiped.
    void genSwitchingKeyBx(const Context& context, const RNSDecomposeData& decomposeData,
                           const Polynomial& sFrom, const Polynomial& sTo, const Polynomial* ax,
                           Polynomial* bx) const;

protected:
    Context context_;
    RNSDecomposeData decomposeData_;
    Context context_sparse_;
    std::optional<RNSDecomposeData> decomposeDataSparse_;
    RandomSampler sampler_;
};

} // namespace Torvo
