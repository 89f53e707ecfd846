#pragma once

#include "core/Integers.hpp"
#include "functions/Messages.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <complex>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

class CachedTransformImpl;

/// Linear transforms of several inputs: for each input those that are added to the results, the same number for each.
using TransformTable = std::vector<std::vector<std::shared_ptr<const CachedTransformImpl>>>;

/// What is known of the numbers in the slots of a ciphertext, without which it cannot be bootstrapped.
struct Range {
    double bound = 1;    ///< of real and imaginary part
    bool isReal = false; ///< whether imaginary parts are errors alone
};

/// What the error of a slot stays below, save with a chance of 2^-50 or so.
struct SlotNoise {
    double rescale = 0;   ///< of one rescale
    double bootstrap = 0; ///< of one bootstrap of numbers in [-1, 1]; 0 where none takes place
};

/// The operations that functions are made of, on one kind of value: ciphertexts, messages in the clear, or what a
/// plan keeps of a ciphertext. A function is written once, for any of them.
///
/// An output may be an operand. Products owe one rescale. Operands at a lower level than their own have the scale of
/// their own level, which whoever writes a function has to account for: `scaleRatio`.
template <class Value>
class Operations {
public:
    Operations() = default;
    Operations(const Operations&) = delete;
    Operations& operator=(const Operations&) = delete;
    virtual ~Operations() = default;

    // ---- what a value is

    /// A value to write into.
    virtual Value unset() const = 0;
    virtual u64 level(const Value& x) const = 0;
    virtual u64 logSlots(const Value& x) const = 0;
    /// The factor by which data of the scale of level `from` is too large for one who takes it for data of level `to`.
    virtual double scaleRatio(u64 from, u64 to) const = 0;
    /// The factor by which a product that owes one rescale at `level` grows in it: a power of two, 1 at the levels of
    /// fresh ciphertexts and below.
    virtual double rescaleGain(u64 level) const = 0;
    /// The largest noise on the way from level `from` down to level `to`.
    virtual SlotNoise noise(u64 from, u64 to, u64 log_slots) const = 0;
    /// log2 of the number of slots that a value can have.
    virtual u64 mostLogSlots() const = 0;
    /// The same numbers read with more slots, and so repeated; or read with fewer, where they repeat.
    virtual void readWithLogSlots(const Value& in, u64 log_slots, Value& out) const = 0;

    // ---- guards

    /// Refuses what a product would refuse of an operand.
    virtual void requireOperand(const Value& x) const = 0;
    /// Names all keys at once that rotations to the left lack: each its own one, where it cannot be composed of others.
    virtual void requireRotations(const std::vector<u64>& indices) const = 0;
    /// Refuses transforms that do not fit the slots, or need more keys than they may; then names all keys at once that
    /// they lack.
    virtual void requireTransforms(const TransformTable& transforms, u64 log_slots) const = 0;
    /// @throws RuntimeException "Failed to load the multiplication key"
    virtual void requireMultiplicationKey() const = 0;
    /// Makes sure that `levels` can be spent on each of `values`, which owe no rescale. `what` says whose levels these
    /// are.
    /// @throws RuntimeException what, " needs ", `levels`, " levels, but ..."
    virtual void prepare(const std::string& what, u64 levels, Range range,
                         std::vector<Value*> values) const = 0;
    /// Whether `prepare` can give levels back. Where it cannot, a function of several stages asks for those of all
    /// stages before it computes, so that a refusal names them together.
    virtual bool givesLevelsBack() const { return false; }
    /// What a stage asks for beforehand, of `levels` that later stages spend.
    u64 levelsAtOnce(u64 levels) const { return givesLevelsBack() ? 0 : levels; }
    /// Refuses a value that has fewer levels than all stages of a function spend on it.
    /// @throws RuntimeException as `prepare`
    void requireAtOnce(const std::string& what, u64 levels, const Value& x) const;

    // ---- sums

    virtual void add(const Value& a, const Value& b, Value& out) const = 0;
    virtual void sub(const Value& a, const Value& b, Value& out) const = 0;
    virtual void add(const Value& in, std::complex<double> c, Value& out) const = 0;
    /// Adds a number of its own to each slot.
    virtual void addSlots(const Value& in, const Message& numbers, Value& out) const = 0;
    virtual void negate(const Value& in, Value& out) const = 0;

    // ---- products

    virtual void multInteger(const Value& in, long n, Value& out) const = 0;
    virtual void multImagUnit(const Value& in, Value& out) const = 0;
    /// `in` at `level` times a number; owing one rescale.
    virtual void multAtLevel(const Value& in, std::complex<double> c, u64 level, Value& out) const = 0;
    /// The same with a number of its own for each slot.
    virtual void multSlotsAtLevel(const Value& in, const Message& factors, u64 level, Value& out) const = 0;
    /// The sum of the terms at `level`, each times its number; owing one rescale. There is at least one.
    virtual void sumMultiplesAtLevel(const std::vector<const Value*>& terms,
                                     const std::vector<std::complex<double>>& factors, u64 level,
                                     Value& out) const;
    /// The raw product at the lower of two levels, owing one rescale.
    virtual void tensor(const Value& a, const Value& b, Value& out) const = 0;
    /// Leaves a value of two elements as it is.
    virtual void relinearize(Value& in_out) const = 0;
    virtual void rescale(Value& in_out) const = 0;
    /// At `level`, with the scale of that level.
    virtual void levelDown(const Value& in, u64 level, Value& out) const = 0;

    // ---- rotations

    virtual void leftRotate(const Value& in, u64 index, Value& out) const = 0;
    virtual void leftRotate(const Value& in, const std::vector<u64>& indices,
                            std::vector<Value>& outs) const = 0;
    virtual void conjugate(const Value& in, Value& out) const = 0;

    // ---- linear transforms

    /// outs[r] = factor times the sum over i of the transform transforms[i][r] of *ins[i], rescaled to the level below
    /// `level`. There is at least one of each. Inputs above `level` are lowered to it.
    virtual std::vector<Value> transform(const std::vector<const Value*>& ins,
                                         const TransformTable& transforms, u64 level,
                                         double factor) const = 0;

    // ---- what follows from these

    /// The product of two numbers, one level below the lower of theirs.
    void mult(const Value& a, const Value& b, Value& out) const;
    void mult(const Value& in, std::complex<double> c, Value& out) const;
    void multSlots(const Value& in, const Message& factors, Value& out) const;
};

template <class Value>
void Operations<Value>::requireAtOnce(const std::string& what, u64 levels, const Value& x) const {
    if (level(x) < levelsAtOnce(levels))
        throw RuntimeException(message::tooFewLevels(what, levels, level(x)));
}

template <class Value>
void Operations<Value>::sumMultiplesAtLevel(const std::vector<const Value*>& terms,
                                            const std::vector<std::complex<double>>& factors, u64 level,
                                            Value& out) const {
    Value sum = unset(), term = unset();
    multAtLevel(*terms[0], factors[0], level, sum);
    for (u64 k = 1; k < terms.size(); ++k) {
        multAtLevel(*terms[k], factors[k], level, term);
        add(sum, term, sum);
    }
    out = std::move(sum);
}

template <class Value>
void Operations<Value>::mult(const Value& a, const Value& b, Value& out) const {
    const u64 lower = std::min(level(a), level(b));
    const Value* first = &a;
    const Value* second = &b;
    Value lowered = unset();
    if (level(a) != level(b)) {
        const Value*& higher = level(a) > lower ? first : second;
        levelDown(*higher, lower, lowered);
        higher = &lowered;
    }
    tensor(*first, *second, out);
    relinearize(out);
    rescale(out);
}

template <class Value>
void Operations<Value>::mult(const Value& in, std::complex<double> c, Value& out) const {
    multAtLevel(in, c, level(in), out);
    rescale(out);
}

template <class Value>
void Operations<Value>::multSlots(const Value& in, const Message& factors, Value& out) const {
    multSlotsAtLevel(in, factors, level(in), out);
    rescale(out);
}

} // namespace Torvo
