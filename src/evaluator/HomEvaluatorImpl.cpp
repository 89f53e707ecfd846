#include "evaluator/HomEvaluatorImpl.hpp"

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/KeyPackImpl.hpp"

#include <utility>

namespace Torvo {

namespace {

/// Passes the pack on, so that it is checked before any table is made.
KeyPack requireOwnPack(const Context& context, KeyPack&& keyPack) {
    requireSameRing(keyPack.getImpl()->getContext(), context, message::evaluatorForeignKeys);
    return std::move(keyPack);
}

} // namespace

HomEvaluatorImpl::HomEvaluatorImpl(const Context& context, const std::string& keyDirPath)
    : HomEvaluatorImpl(context, KeyPack(context, keyDirPath)) {}

HomEvaluatorImpl::HomEvaluatorImpl(const Context& context, KeyPack keyPack)
    : context_(requireContext(context)), keyPack_(requireOwnPack(context, std::move(keyPack))),
      constantEnDecoder_(std::make_shared<ConstantEnDecoder>(context)),
      enDecoder_(std::make_shared<EnDecoder>(context)), keySwitcher_(std::make_shared<KeySwitcher>(context)) {
    keyPack_.loadMultKey();
}

EncodedConstant HomEvaluatorImpl::encodeConstant(std::complex<double> c, u64 level, int rescale_counter,
                                                 const Device& device) const {
    const auto encodePart = [&](double part) {
        LevelledElement residues = constantEnDecoder_->encodeConst(part, level, rescale_counter);
        if (residues.getDevice() != device) residues.to(device);
        return residues;
    };
    EncodedConstant encoded{encodePart(c.real()), std::nullopt};
    // A NaN is not zero, so it is refused and not dropped.
    if (!(c.imag() == 0.0)) encoded.imag = encodePart(c.imag());
    return encoded;
}

Encoding HomEvaluatorImpl::reencode(const Plaintext& plaintext, u64 level, int rescale_counter) const {
    return {context_, enDecoder_->decode(plaintext), level, rescale_counter};
}

long HomEvaluatorImpl::galoisElement(u64 index, const Device& device) const {
    // The powers of 5 repeat after one turn of the slots.
    return static_cast<long>(context_->fft.getGaloisElement(index % context_->parameter.num_slots, device));
}

} // namespace Torvo
