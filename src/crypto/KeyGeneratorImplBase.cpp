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
    const PrimeModuli& primes = context->primes;
    const u64* pMod = decomposeData.getPMod(Device{});
    const u64* hatQMod = decomposeData.getHatQMod(Device{});
    DeviceSpecificArray<u64> factors(ring.numBase); // P * hatQ of the digit that the prime is in
    for (u64 i = 0; i < ring.numBase; ++i) factors[i] = primes[i].mult(pMod[i], hatQMod[i]);
    for (u64 j = 0; j < ring.gadget_rank; ++j) {
        SecretPolynomial hidden(context, true, ring.numBase - 1);
        sampler_.sampleGaussian(hidden, context);
        primes.forwardNTTLessProduct(ax[j], sTo, hidden);
        const OutputModulusBoundValidator digit(ring.digitBegin(j), ring.digitEnd(j));
        primes.addConstMult(sFrom, factors.getData(), hidden, digit);
        bx[j] = hidden.release();
    }
}

} // namespace Torvo
