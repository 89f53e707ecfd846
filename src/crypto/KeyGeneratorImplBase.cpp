#include "crypto/KeyGeneratorImplBase.hpp"

#include "arithmetic/elements/PolyGerm.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "crypto/SecretPolynomial.hpp"

namespace Torvo {

KeyGeneratorImplBase::KeyGeneratorImplBase(const Context& context)
    : context_(context), decomposeData_(context) {}

KeyGeneratorImplBase::KeyGeneratorImplBase(const Context& context, const Context& context_sparse)
    : context_(context), decomposeData_(context), context_sparse_(context_sparse),
      decomposeDataSparse_(std::in_place, context_sparse) {}

void KeyGeneratorImplBase::genSwitchingKeyAxWithGerm(const Context& context, Polynomial* ax) const {
    for (u64 j = 0; j < context->parameter.gadget_rank; ++j) populateUniformPoly(ax[j], true);
}

void KeyGeneratorImplBase::genSwitchingKeyAx(const Context& context, Polynomial* ax) const {
    for (u64 j = 0; j < context->parameter.gadget_rank; ++j) sampler_.sampleUniform(ax[j], context);
}

void KeyGeneratorImplBase::genSwitchingKeyBx(const Context& context, const RNSDecomposeData& decomposeData,
                                             const Polynomial& sFrom, const Polynomial& sTo,
                                             const Polynomial* ax, Polynomial* bx) const {
    const Ring ring = ringOf(context);
    const u64* pMod = decomposeData.getPMod(Device{});
    const u64* hatQMod = decomposeData.getHatQMod(Device{});
    SecretPolynomial error(context, true, ring.numBase - 1);
    SecretPolynomial gadget(context, true, ring.numBase - 1);
    for (u64 j = 0; j < ring.gadget_rank; ++j) {
        sampler_.sampleGaussian(error, context);
        context->primes.forwardNTT(error, error);
        SecretPolynomial hidden(context, true, ring.numBase - 1);
        context->primes.hadamardMult(ax[j], sTo, hidden);
        context->primes.sub(error, hidden, hidden);

        const OutputModulusBoundValidator block(ring.digitBegin(j), ring.digitEnd(j));
        context->primes.constMult(sFrom, pMod, gadget, block);
        context->primes.constMult(gadget, hatQMod, gadget, block);
        context->primes.add(hidden, gadget, hidden, block);
        bx[j] = hidden.release();
    }
}

} // namespace Torvo
