#include "ring/MLWEKeySwitch.hpp"

#include "arithmetic/kernels/RowLoop.hpp"
#include "arithmetic/kernels/ThrowingLoop.hpp"
#include "context/ContextContent.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/KeySwitcher.hpp"
#include "ring/RingSwitcher.hpp"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace Torvo {

namespace {

/// A polynomial in coefficient form, data unset.
Polynomial coefficientsOf(const Context& context, u64 level, const Device& device) {
    Polynomial polynomial(context, false, false);
    polynomial.setLevel(level);
    polynomial.allocate(device);
    return polynomial;
}

/// How many keys to multiply at once, which saves reductions and sums: as many as fit a core's cache together
/// with their digits.
u64 keysAtOnce(const Context& large, u64 level) {
    constexpr u64 cacheBytes = u64{1} << 20;
    const Parameter& ring = large->parameter;
    const u64 digits = level / ring.numTP + 1;
    const u64 digitBytes = (ring.chain_length + ring.numTP) * ring.degree * sizeof(u64);
    return std::max<u64>(1, cacheBytes / (3 * digits * digitBytes));
}

/// The key switches of several groups of components and their sum before the division by the temporary
/// primes.
class GroupSum {
public:
    GroupSum(const Context& small, const Context& large, u64 rank, u64 level, const Device& device)
        : small_(small), large_(large), batch_(keysAtOnce(large, level)),
          interleaved_(coefficientsOf(large, level, device)), parts_(rank) {
        for (u64 i = 1; i < rank; ++i) shifted_.push_back(coefficientsOf(small, level, device));
    }

    /// Collects groups until there are enough for one product, or until `finish`.
    void add(const KeySwitcher& switcher, std::span<const Polynomial> group, EvaluationKey& key) {
        interleave(group);
        switcher.modUpPQ(interleaved_, digits_.emplace_back());
        keys_.push_back(&key);
        if (keys_.size() == batch_) finish(switcher);
    }
    void finish(const KeySwitcher& switcher) {
        if (keys_.empty()) return;
        add(switcher.multEvalKeys(digits_, keys_));
        digits_.clear();
        keys_.clear();
    }
    void add(Ciphertext&& product) {
        if (!sum_) {
            sum_ = std::move(product);
            return;
        }
        for (u64 j = 0; j < 2; ++j)
            large_->primes.add(sum_->getPoly(j), product.getPoly(j), sum_->getPoly(j));
    }

    Ciphertext& sum() { return *sum_; }

private:
    /// sum over i of group[i](X^r) X^-i. Its product with the interleaved secret has the sum of the products
    /// of the components at the multiples of X^r. X^-i is X^(r - i) times an X^-1 of the small ring.
    void interleave(std::span<const Polynomial> group) {
        const u64 rank = group.size();
        parts_[0] = &group.front();
        for (u64 i = 1; i < rank; ++i) {
            small_->primes.multMonomial(group[i], shifted_[i - 1], -1);
            parts_[rank - i] = &shifted_[i - 1];
        }
        RingSwitcher{}.combine(parts_, interleaved_);
    }

    Context small_, large_;
    u64 batch_;
    Polynomial interleaved_;
    std::vector<Polynomial> shifted_;
    std::vector<const Polynomial*> parts_;
    std::vector<std::vector<Polynomial>> digits_;
    std::vector<EvaluationKey*> keys_;
    std::optional<Ciphertext> sum_;
};

/// The sum of the key switches of all groups. Each thread sums its own share: a sum for every group would
/// take as much memory as the keys.
Ciphertext sumOverGroups(const KeySwitcher& switcher, std::span<const Polynomial> components,
                         const ModPackKeyBundle& keys, const Context& small) {
    const u64 num_keys = keys.getNumKeys(), rank = components.size() / num_keys;
    const Device device = components.front().getDevice();
    std::vector<EvaluationKey*> keyOf;
    for (u64 k = 0; k < num_keys; ++k) {
        keyOf.push_back(keys.getModPackKey(k).get());
        keyOf.back()->copyTo(device); // so that only memory is left to fail in the loop
    }
    const u64 numShares = std::min(num_keys, teamSize());
    std::vector<GroupSum> shares;
    for (u64 t = 0; t < numShares; ++t)
        shares.emplace_back(small, keys.getContext(), rank, components.front().getLevel(), device);

    forEachIndexOrThrow(numShares, [&](u64 t) {
        for (u64 k = t * num_keys / numShares; k < (t + 1) * num_keys / numShares; ++k)
            shares[t].add(switcher, components.subspan(k * rank, rank), *keyOf[k]);
        shares[t].finish(switcher);
    });
    for (u64 t = 1; t < numShares; ++t) shares[0].add(std::move(shares[t].sum()));
    return std::move(shares[0].sum());
}

/// out[1 + i] = component i, of rank r, that times s_i adds up to the multiples of X^r in `a` times the
/// interleaved secret: the coefficients of `a` at c r - i.
template <EncryptionType E>
void splitComponents(const Polynomial& a, CiphertextBase<E>& out) {
    const Context& context = out.getContext();
    const u64 rank = out.getNumPoly() - 1;
    std::vector<Polynomial> pieces;
    for (u64 i = 1; i < rank; ++i) pieces.push_back(coefficientsOf(context, a.getLevel(), a.getDevice()));
    std::vector<Polynomial*> parts{&out.getPoly(1)};
    for (Polynomial& piece : pieces) parts.push_back(&piece);
    RingSwitcher{}.split(a, parts);
    const std::vector<Polynomial>& pieceOf = pieces;
    forEachIndexOrThrow(pieces.size(),
                        [&](u64 i) { context->primes.multMonomial(pieceOf[i], out.getPoly(rank - i), 1); });
}

} // namespace

template <EncryptionType E>
void mlweKeySwitch(const std::vector<Polynomial>& polys, const ModPackKeyBundle& keys,
                   CiphertextBase<E>& out) {
    const Context context = out.getContext();
    const PrimeModuli& primes = context->primes;
    const Polynomial& b = polys.front();
    const KeySwitcher switcher(keys.getContext());
    Ciphertext switched = unsetCiphertext(keys.getContext());
    switcher.modDown(sumOverGroups(switcher, std::span(polys).subspan(1), keys, context), switched, false);

    const u64 numPoly = out.getNumPoly();
    shapeOutput(context, false, out);
    out.getPolys().setSize(numPoly);
    out.setLevel(b.getLevel());
    out.allocate(b.getDevice());
    splitComponents(switched.getPoly(1), out);
    RingSwitcher{}.extract(switched.getPoly(0), out.getPoly(0));
    primes.add(out.getPoly(0), b, out.getPoly(0));
}

template void mlweKeySwitch(const std::vector<Polynomial>&, const ModPackKeyBundle&,
                            CiphertextBase<EncryptionType::MLWE>&);
template void mlweKeySwitch(const std::vector<Polynomial>&, const ModPackKeyBundle&,
                            CiphertextBase<EncryptionType::RLWE>&);

} // namespace Torvo
