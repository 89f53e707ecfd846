#include <Torvo/LinearFunctions.hpp>

#include "core/Failure.hpp"
#include "evaluator/Messages.hpp"
#include "functions/AnalysisGuards.hpp"
#include "functions/CachedMatrixProductImpl.hpp"
#include "functions/MatrixProductImpl.hpp"

#include <algorithm>
#include <string>
#include <utility>

namespace Torvo {

namespace {

/// What all linear functions ask of their inputs, and the copies of those that they compute on.
template <class Value>
class LinearInputs {
public:
    /// The guards but those for levels. `transforms` are all that the function applies. Keeps a reference to the
    /// operations.
    LinearInputs(const Operations<Value>& operations, const std::string& function,
                 const std::vector<const Value*>& ins, const LinearBounds& bounds,
                 const TransformTable& transforms)
        : operations_(operations), function_(function), range_{bounds.bound, bounds.isReal}, ins_(ins) {
        for (const Value* in : ins) operations.requireOperand(*in);
        const u64 log_slots = operations.logSlots(*ins.front());
        for (const Value* in : ins)
            require(operations.logSlots(*in) == log_slots, message::differentLogSlots);
        requireBound(function, bounds.bound);
        if (bounds.resultBound != 0) requireBound(function, bounds.resultBound);
        operations.requireTransforms(transforms, log_slots);
    }

    /// Copies with `levels` to spend. An input that is there twice has one.
    void prepare(u64 levels, double resultBound) {
        copies_.reserve(ins_.size()); // pointers into it are given away
        std::vector<Value*> prepared;
        for (const Value* in : ins_) {
            const auto first = std::ranges::find(ins_, in) - ins_.begin();
            prepared.push_back(first < std::ssize(prepared) ? prepared[static_cast<u64>(first)]
                                                            : &copies_.emplace_back(*in));
        }
        prepareFor(operations_, function_, levels, range_, resultBound, prepared);
        values_.assign(prepared.begin(), prepared.end());
    }

    const std::vector<const Value*>& values() const { return values_; }
    u64 lowestLevel() const {
        u64 lowest = operations_.level(*values_.front());
        for (const Value* value : values_) lowest = std::min(lowest, operations_.level(*value));
        return lowest;
    }

private:
    const Operations<Value>& operations_;
    std::string function_;
    Range range_;
    std::vector<const Value*> ins_;
    std::vector<Value> copies_;
    std::vector<const Value*> values_;
};

/// What parts of the results don't exceed where those of the inputs don't exceed 1.
double gainOf(const TransformTable& transforms) {
    double largest = 0;
    for (u64 r = 0; r < transforms.front().size(); ++r) {
        double sum = 0;
        for (const auto& ofInput : transforms) sum += ofInput[r]->transform()->largestRow();
        largest = std::max(largest, sum);
    }
    return largest;
}

template <class Value>
std::vector<Value> transformed(const Operations<Value>& operations, const std::string& function,
                               const std::vector<const Value*>& ins, const TransformTable& transforms,
                               const LinearBounds& bounds) {
    LinearInputs<Value> inputs(operations, function, ins, bounds, transforms);
    const bool isTold = !operations.givesLevelsBack() || bounds.resultBound != 0;
    inputs.prepare(1, isTold ? bounds.resultBound : gainOf(transforms) * bounds.bound);
    return operations.transform(inputs.values(), transforms, inputs.lowestLevel(), 1);
}

} // namespace

template <class Value>
void applyTransform(Evaluating<Value> on, const Value& in, const CachedTransform& transform, Value& out,
                    const LinearBounds& bounds) {
    out = std::move(
        transformed<Value>(on.operations(), "applyTransform", {&in}, {{transform.getImpl()}}, bounds)
            .front());
}

template <class Value>
void applyTransform(Evaluating<Value> on, const Value& in, const std::vector<CachedTransform>& transforms,
                    std::vector<Value>& outs, const LinearBounds& bounds) {
    if (transforms.empty()) {
        outs.clear();
        return;
    }
    TransformTable table(1);
    for (const CachedTransform& transform : transforms) table.front().push_back(transform.getImpl());
    outs = transformed<Value>(on.operations(), "applyTransform", {&in}, table, bounds);
}

template <class Value>
void sumOfTransforms(Evaluating<Value> on, const std::vector<Value>& ins,
                     const std::vector<CachedTransform>& transforms, Value& out, const LinearBounds& bounds) {
    const std::string function = "sumOfTransforms";
    requirePairs(function, ins.size(), transforms.size());
    std::vector<const Value*> pointers;
    TransformTable table;
    for (u64 k = 0; k < ins.size(); ++k) {
        pointers.push_back(&ins[k]);
        table.push_back({transforms[k].getImpl()});
    }
    out = std::move(transformed<Value>(on.operations(), function, pointers, table, bounds).front());
}

/// A rescale that makes numbers grow is met by the shifts of the first operand.
template <class Value>
void multiplyMatrices(Evaluating<Value> on, const Value& a, const Value& b,
                      const CachedMatrixProduct& product, Value& out, const LinearBounds& bounds) {
    const Operations<Value>& operations = on.operations();
    const CachedMatrixProductImpl& impl = product.impl();
    LinearInputs<Value> inputs(operations, "multiplyMatrices", {&a, &b}, bounds, {impl.all()});
    operations.requireMultiplicationKey();
    const double largest =
        (bounds.isReal ? 1 : 2) * static_cast<double>(impl.getDimension()) * bounds.bound * bounds.bound;
    inputs.prepare(levelsOfMatrixProduct, bounds.resultBound != 0 ? bounds.resultBound : largest);

    const u64 level = inputs.lowestLevel();
    const double factor = 1 / operations.rescaleGain(level - 2);
    const auto sheared = [&](u64 k, const CachedMatrixProductImpl::Side& side) {
        return std::move(operations.transform({inputs.values()[k]}, {{side.shear}}, level, 1).front());
    };
    const Value first = sheared(0, impl.first()), second = sheared(1, impl.second());
    out = sumOfShiftedProducts(operations, impl.getDimension(), [&](bool isFirst, u64 begin, u64 end) {
        const auto& shifts = (isFirst ? impl.first() : impl.second()).shifts;
        TransformTable table(1);
        for (u64 k = begin; k < end; ++k) table.front().push_back(shifts[k]);
        return operations.transform({isFirst ? &first : &second}, table, level - 1, isFirst ? factor : 1);
    });
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void applyTransform(Evaluating<Value>, const Value&, const CachedTransform&, Value&,  \
                                           const LinearBounds&);                                             \
    template TORVO_API void applyTransform(Evaluating<Value>, const Value&,                                  \
                                           const std::vector<CachedTransform>&, std::vector<Value>&,         \
                                           const LinearBounds&);                                             \
    template TORVO_API void sumOfTransforms(Evaluating<Value>, const std::vector<Value>&,                    \
                                            const std::vector<CachedTransform>&, Value&,                     \
                                            const LinearBounds&);                                            \
    template TORVO_API void multiplyMatrices(Evaluating<Value>, const Value&, const Value&,                  \
                                             const CachedMatrixProduct&, Value&, const LinearBounds&)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
