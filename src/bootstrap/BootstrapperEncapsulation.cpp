#include "bootstrap/BootstrapperImpl.hpp"
#include "bootstrap/Messages.hpp"
#include "core/Failure.hpp"
#include "encoding/Stamp.hpp"
#include "evaluator/Messages.hpp"

namespace Torvo {

namespace {

/// Transforms a polynomial to NTT form or back, unless it has that form.
void setForm(const PrimeModuli& primes, Polynomial& polynomial, bool ntt) {
    if (polynomial.isNTT() == ntt) return;
    if (ntt)
        primes.forwardNTT(polynomial, polynomial);
    else
        primes.backwardNTT(polynomial, polynomial);
}

/// `in` under another secret: its second element is switched by `key`, then its first is added, both in form
/// `ntt`.
Ciphertext switchSecret(const KeySwitcher& switcher, const PrimeModuli& primes, const Ciphertext& in,
                        EvaluationKey& key, bool ntt) {
    Ciphertext out = switcher.switchKey(in.getPoly(1), key, ntt);
    Polynomial first = in.getPoly(0);
    setForm(primes, first, ntt);
    primes.add(out.getPoly(0), first, out.getPoly(0));
    Stamp::of(in).putKeepingEncoding(out);
    return out;
}

} // namespace

std::shared_ptr<SparseSecretEncapsulationKey> BootstrapperImpl::encapsulationKey() const {
    auto key = evaluator_->getKeyPack().getSparseSecretEncapsulationKey();
    require(key != nullptr, message::noEncapsulationKey);
    return key;
}

void BootstrapperImpl::switchKeyDTS(const Ciphertext& in, Ciphertext& out, bool ntt) const {
    // A bootstrapper without the sparse context has no encapsulation key either.
    require(context_sparse_.has_value(), message::noEncapsulationKey);
    Ciphertext sparse(*context_sparse_, in);
    require(sparse.getNumPoly() == 2, message::sizeNotTwo);
    for (u64 i = 0; i < 2; ++i) sparse.getPoly(i).setNTT(in.getPoly(0).isNTT());
    const auto key = encapsulationKey();
    // At level 0 both contexts have the same prime.
    out = Ciphertext(context_,
                     switchSecret(*sparse_key_switcher_, context_->primes, sparse, *key->getDTSPart(), ntt));
    for (u64 i = 0; i < 2; ++i) out.getPoly(i).setNTT(ntt);
}

void BootstrapperImpl::switchKeySTD(const Ciphertext& in, Ciphertext& out, bool ntt) const {
    require(in.getNumPoly() == 2, message::sizeNotTwo);
    const auto key = encapsulationKey();
    out = switchSecret(evaluator_->getKeySwitcher(), context_->primes, in, *key->getSTDPart(), ntt);
}

} // namespace Torvo
