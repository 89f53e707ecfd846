#include "evaluator/KeySwitcher.hpp"

#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/Validators.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/Messages.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <utility>

namespace Torvo {

namespace {

/// Rotations that share a decomposition at most. With more, it is made again: what they all keep until the
/// division would fill as much memory as whole digits.
constexpr std::size_t keysAtOnce = 8;

Device requireCommonDevice(const std::vector<Polynomial>& polys) {
    require(!polys.empty(), message::noOperand);
    const Device& device = polys.front().getDevice();
    require(std::ranges::all_of(polys, [&](const Polynomial& p) { return p.getDevice() == device; }),
            message::elementsOnDifferentDevices);
    return device;
}

} // namespace

KeySwitcher::KeySwitcher(const Context& context)
    : context_(context), baseConv_(context), decomposeData_(context) {}

Polynomial KeySwitcher::timesGadgetFactors(const Polynomial& poly) const {
    require(isOfRing(context_, poly), message::operandsOfOtherRing);
    // The tables would be missed before a kernel could tell.
    context_->primes.requireServed(poly.getDevice(), true);
    Polynomial scaled(context_, false, poly.isNTT());
    scaled.setLevel(poly.getLevel());
    scaled.allocate(poly.getDevice());
    // The factors are those of the full chain at every level, so that one key serves all levels.
    context_->primes.constMult(poly, decomposeData_.getHatQInvMod(poly.getDevice()), scaled,
                               OutputModulusBoundValidator{0, poly.getLevel() + 1});
    return scaled;
}

void KeySwitcher::modUpPQ(const Polynomial& poly, std::vector<Polynomial>& out) const {
    PolynomialVector blocks = baseConv_.modUp(timesGadgetFactors(poly));
    out = std::move(blocks.getPolys());
}

void KeySwitcher::requireFit(const EvaluationKey& key, const Device& device, u64 digits) const {
    const Ring ring = ringOf(context_);
    const auto& ax = key.impl().ax.at(device);
    const auto& bx = key.impl().bx.at(device);
    const u64 pairs = std::min(ax.size(), bx.size());
    const auto fits = [&](const Polynomial& p) { return p.isModUp() && p.hasShapeOf(ring); };
    const auto used = static_cast<std::ptrdiff_t>(digits);
    if (digits <= pairs && std::all_of(ax.begin(), ax.begin() + used, fits) &&
        std::all_of(bx.begin(), bx.begin() + used, fits))
        return;
    const Context& itsContext = key.getContext();
    const std::string name = itsContext ? itsContext->parameter.name : "without a context";
    refuseMeeting(message::switchByForeignKey, RingShape(pairs == 0 ? Polynomial() : ax.front(), pairs, name),
                  RingShape(context_));
}

Ciphertext KeySwitcher::unsetProduct(const Polynomial& like) const {
    Ciphertext product(PolynomialVector(context_, 2, true, true));
    product.setLevel(like.getLevel());
    if (product.getDevice() != like.getDevice()) product.allocate(like.getDevice());
    return product;
}

Ciphertext KeySwitcher::multEvalKey(const std::vector<Polynomial>& polys, EvaluationKey& key) const {
    const Device device = requireCommonDevice(polys);
    key.copyTo(device);
    requireFit(key, device, polys.size());
    Ciphertext product = unsetProduct(polys.front());
    context_->primes.innerProduct(polys.begin(), polys.end(), key.getAxIter(device), key.getBxIter(device),
                                  product.getPoly(1), product.getPoly(0));
    return product;
}

Ciphertext KeySwitcher::multEvalKeys(const std::vector<std::vector<Polynomial>>& polys,
                                     const std::vector<EvaluationKey*>& keys) const {
    require(!polys.empty(), message::noOperand);
    const Device device = requireCommonDevice(polys.front());
    std::vector<const Polynomial*> digits, ax, bx;
    for (u64 i = 0; i < keys.size(); ++i) {
        keys[i]->copyTo(device);
        requireFit(*keys[i], device, polys[i].size());
        for (u64 j = 0; j < polys[i].size(); ++j) {
            digits.push_back(&polys[i][j]);
            ax.push_back(keys[i]->getAxIter(device) + j);
            bx.push_back(keys[i]->getBxIter(device) + j);
        }
    }
    Ciphertext product = unsetProduct(*digits.front());
    const auto at = [](std::vector<const Polynomial*>::const_iterator it) {
        return PolyIter(it, [](const Polynomial* p) -> const Polynomial& { return *p; });
    };
    context_->primes.innerProduct(at(digits.begin()), at(digits.end()), at(ax.begin()), at(bx.begin()),
                                  product.getPoly(1), product.getPoly(0));
    return product;
}

void KeySwitcher::modDown(const Ciphertext& in, Ciphertext& out, bool isNTT) const {
    require(in.isModUp() && isOfRing(context_, in), message::operandsOfOtherRing);
    out = baseConv_.modDown(in, isNTT);
}

KeyRows KeySwitcher::rowsFor(const Polynomial& poly, EvaluationKey& key) const {
    const Device& device = poly.getDevice();
    const u64 level = poly.getLevel(), digits = ringOf(context_).liveDigits(level);
    key.copyTo(device);
    requireFit(key, device, digits);
    const KeyRows rows{key.getAxIter(device), key.getBxIter(device), digits};
    const auto everyPair = [&](auto&& holds) {
        return std::all_of(rows.ax, rows.ax + digits, holds) && std::all_of(rows.bx, rows.bx + digits, holds);
    };
    require(everyPair([&](const Polynomial& p) { return p.getLevel() >= level; }),
            message::operandsDifferInLevel);
    require(everyPair([&](const Polynomial& p) { return context_->primes.isOwn(p); }),
            message::operandsOfOtherRing);
    return rows;
}

Ciphertext KeySwitcher::switchKey(const Polynomial& poly, EvaluationKey& key, bool isNTT) const {
    const Polynomial scaled = timesGadgetFactors(poly);
    const MappedKey rows{nullptr, rowsFor(poly, key)};
    return std::move(baseConv_.switchKeys(scaled, std::span(&rows, 1), isNTT).front());
}

Ciphertext KeySwitcher::switchAndAdd(const Polynomial& poly, EvaluationKey& key, const Polynomial& first,
                                     const Polynomial& second) const {
    for (const Polynomial* addend : {&first, &second}) requireAddend(poly, *addend);
    const Polynomial scaled = timesGadgetFactors(poly);
    const MappedKey rows{nullptr, rowsFor(poly, key), {{&first, &second}}};
    return std::move(baseConv_.switchKeys(scaled, std::span(&rows, 1), true).front());
}

std::vector<Ciphertext> KeySwitcher::rotate(const Ciphertext& in, std::span<const KeyOfMap> keys) const {
    const Polynomial &a = in.getPoly(1), &b = in.getPoly(0);
    requireAddend(a, b);
    if (keys.empty()) return {};
    // With one key it is cheaper to map the polynomial than its digits.
    const bool isAlone = keys.size() == 1;
    std::vector<Automorphism> maps;
    maps.reserve(keys.size());
    for (const KeyOfMap& key : keys) maps.emplace_back(ringOf(context_).degree, key.galois);
    Polynomial image(context_, false, true);
    if (isAlone) context_->primes.frobeniusMapInNTT<false>(a, maps.front(), image);
    const Polynomial scaled = timesGadgetFactors(isAlone ? image : a);
    std::vector<MappedKey> rows;
    for (std::size_t k = 0; k < keys.size(); ++k)
        rows.push_back({isAlone ? nullptr : &maps[k], rowsFor(a, *keys[k].key), {{&b, nullptr}, &maps[k]}});
    std::vector<Ciphertext> all;
    for (std::span<const MappedKey> rest(rows); !rest.empty();) {
        const u64 few = std::min(rest.size(), keysAtOnce);
        std::ranges::move(baseConv_.switchKeys(scaled, rest.first(few), true), std::back_inserter(all));
        rest = rest.subspan(few);
    }
    return all;
}

std::vector<Ciphertext> KeySwitcher::diagonalProducts(const SummedDiagonals& operand) const {
    const auto& [in, rotations, results] = operand;
    const Polynomial &a = in.getPoly(1), &b = in.getPoly(0);
    const Polynomial scaled = timesGadgetFactors(a);
    std::map<long, Automorphism> maps;
    const auto mapOf = [&](const KeyOfMap& step) -> const Automorphism* {
        if (step.key == nullptr) return nullptr;
        return &maps.try_emplace(step.galois, ringOf(context_).degree, step.galois).first->second;
    };
    std::vector<BabyStep> babies;
    for (const KeyOfMap& rotation : rotations)
        babies.push_back({mapOf(rotation), rotation.key == nullptr ? KeyRows{} : rowsFor(a, *rotation.key)});
    std::vector<Ciphertext> products;
    products.reserve(results.size()); // the sums point into them
    std::vector<DiagonalSum> sums;
    for (const auto& groups : results) {
        Ciphertext& product = products.emplace_back(unsetProduct(a));
        auto& [giants, out] = sums.emplace_back(DiagonalSum{{}, {&product.getPoly(0), &product.getPoly(1)}});
        for (const RotatedSum& group : groups) {
            if (group.step.key != nullptr) rowsFor(a, *group.step.key); // refuses before the long way
            giants.push_back({mapOf(group.step), group.terms});
        }
    }
    const HoistedInput input{b, a, scaled, decomposeData_.getPMod(a.getDevice())};
    DiagonalSums diagonals = baseConv_.sumDiagonals(input, babies, sums);
    diagonals.run();
    Polynomial quotient = a.sameShape();
    for (u64 r = 0; r < results.size(); ++r)
        for (u64 g = 0; g < results[r].size(); ++g) {
            if (results[r][g].step.key == nullptr) continue;
            diagonals.quotient(r, g, quotient);
            multiplyDigits(quotient, *results[r][g].step.key, true, products[r]);
        }
    return products;
}

std::vector<Ciphertext> KeySwitcher::sumDiagonals(std::span<const SummedDiagonals> operands) const {
    for (const SummedDiagonals& operand : operands)
        for (u64 i = 0; i < 2; ++i) requireAddend(operands.front().in.getPoly(1), operand.in.getPoly(i));
    std::vector<Ciphertext> sums = diagonalProducts(operands.front());
    for (const SummedDiagonals& operand : operands.subspan(1)) {
        const std::vector<Ciphertext> products = diagonalProducts(operand);
        for (u64 r = 0; r < sums.size(); ++r)
            for (u64 i = 0; i < 2; ++i)
                context_->primes.add(sums[r].getPoly(i), products[r].getPoly(i), sums[r].getPoly(i));
    }
    std::vector<Ciphertext> outs;
    outs.reserve(sums.size());
    for (const Ciphertext& sum : sums) modDown(sum, outs.emplace_back(unsetCiphertext(context_)), true);
    return outs;
}

void KeySwitcher::requireAddend(const Polynomial& poly, const Polynomial& addend) const {
    require(isOfRing(context_, addend) && addend.getLevel() == poly.getLevel() && addend.isNTT() &&
                addend.getDevice() == poly.getDevice(),
            message::operandsOfOtherRing);
}

void KeySwitcher::multiplyDigits(const Polynomial& poly, EvaluationKey& key, bool accumulate,
                                 Ciphertext& sum) const {
    const Polynomial scaled = timesGadgetFactors(poly);
    const KeyRows rows = rowsFor(poly, key);
    if (!accumulate) sum = unsetProduct(poly);
    baseConv_.multiplyDigits(scaled, rows, accumulate, sum);
}

} // namespace Torvo
