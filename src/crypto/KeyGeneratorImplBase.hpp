#pragma once

#include "arithmetic/Polynomial.hpp"
#include "arithmetic/RNSDecomposeData.hpp"
#include "crypto/RandomSampler.hpp"

#include <Torvo/Context.hpp>

#include <optional>

namespace Torvo {

/// The switching-key formula: (ax_j, bx_j) with bx_j + ax_j * sTo = e_j + P * hatQ * sFrom on the rows of
/// digit j, j < gadget_rank.
class KeyGeneratorImplBase {
public:
    explicit KeyGeneratorImplBase(const Context& context);
    KeyGeneratorImplBase(const Context& context, const Context& contextSparse);

    /// Fills `gadget_rank` polynomials from fresh germs, which they keep.
    void genSwitchingKeyAxWithGerm(const Context& context, Polynomial* ax) const;
    /// The same with the sampler, without germs.
    void genSwitchingKeyAx(const Context& context, Polynomial* ax) const;
    void genSwitchingKeyBx(const Context& context, const RNSDecomposeData& decomposeData,
                           const Polynomial& sFrom, const Polynomial& sTo, const Polynomial* ax,
                           Polynomial* bx) const;

protected:
    Context context_;
    RNSDecomposeData decomposeData_;
    Context contextSparse_;
    std::optional<RNSDecomposeData> decomposeDataSparse_;
    RandomSampler sampler_;
};

} // namespace Torvo
