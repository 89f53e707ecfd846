#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/Feature.hpp"
#include "context/ContextContent.hpp"
#include "support/Expect.hpp"
#include "support/ForcedFeature.hpp"
#include "support/NaiveRing.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace Torvo::test {
namespace {

using Inputs = std::vector<const Polynomial*>;
using Outputs = std::vector<Polynomial*>;

constexpr Device secondHost{DeviceType::CPU, 1};
constexpr Device pinned{DeviceType::PinnedHost, 0};
constexpr Device gpu{DeviceType::GPU, 0};

/// The names that the operations use on a GPU, by their plain names.
const std::map<std::string, std::string> namesOnGPU{
    {"add", "addCUDA"},
    {"sub", "subCUDA"},
    {"negate", "negateCUDA"},
    {"hadamardMult", "mulVectorCUDA"},
    {"hadamardMultTwo", "mulVectorCUDA"},
    {"tensor", "tensorCUDA"},
    {"constAdd", "constAddBatchCUDA"},
    {"constMult", "constMultBatchCUDA"},
    {"constMultTwo", "constMultTwoBatchCUDA"},
    {"subAndConstMult", "subAndConstMultCUDA"},
    {"multMonomial", "multMonomialCUDA"},
    {"frobeniusMapInNTT", "frobeniusMapInNTTCUDA"},
    {"forwardNTT", "execNttBatch"},
    {"backwardNTT", "execinttBatch"},
    {"forwardNTTWithSubAndConstMult", "execNttBatchWithSubAndConstMult"},
};

std::string unsupported(const std::string& name) {
    return "Cannot support the function '" + name + "' in the current build configuration";
}

/// Mod-up polynomials without a word on `device`, which asks for no memory there.
std::vector<Polynomial> withoutWords(const Context& context, u64 count, const Device& device) {
    std::vector<Polynomial> polys;
    for (u64 j = 0; j < count; ++j) {
        polys.emplace_back(context, true, true);
        polys.back().setData(DeviceSpecificArray<u64>(0, device, getDefaultStream()));
    }
    return polys;
}

constexpr long smallNumber = -123456789;
constexpr long realPart = 987654321987, imaginaryPart = -31415926535;
constexpr u64 wordConstant = 0xfedcba9876543210;

/// One constant for each row, any word.
Words rowConstants() {
    Words constants(64);
    for (u64 i = 0; i < constants.size(); ++i) constants[i] = (i + 1) * 0x9e3779b97f4a7c15;
    return constants;
}

/// The row of an oracle.
struct Row {
    u64 i;
    u64 p;
    u64 degree;

    u64 residue(long value) const {
        const u64 r = static_cast<u64>(std::abs(value)) % p;
        return value < 0 ? subMod(0, r, p) : r;
    }
    const NaiveTransform& transform() const { return naiveTransform(degree, p); }
    /// The transformed row of realPart + imaginaryPart * X^(N/2).
    Words complexConstant() const {
        Words f(degree);
        f[0] = residue(realPart);
        f[degree / 2] = residue(imaginaryPart);
        return transform().forward(f);
    }
    Words add(const Words& x, const Words& y) const {
        return wordwise(x, y, [this](u64 a, u64 b) { return addMod(a, b, p); });
    }
    Words sub(const Words& x, const Words& y) const {
        return wordwise(x, y, [this](u64 a, u64 b) { return subMod(a, b, p); });
    }
    Words mult(const Words& x, const Words& y) const {
        return wordwise(x, y, [this](u64 a, u64 b) { return mulMod(a, b, p); });
    }
    Words mult(const Words& x, u64 c) const { return mult(x, Words(x.size(), c % p)); }
    Words add(const Words& x, u64 c) const { return add(x, Words(x.size(), c % p)); }
};

/// An element of the shape and on the device of `model`; without words where there is no memory.
LevelledElement elementLike(const Context& context, const Polynomial& model, long value) {
    const Device device = model.getDevice();
    LevelledElement e(value, context, model.isModUp(), ringOf(context).numBase - 1);
    if (device.type == DeviceType::CPU)
        e.to(device);
    else
        e.getData() = DeviceSpecificArray<u64>(0, device, getDefaultStream());
    return e;
}

struct Call {
    const Context& context;
    const PrimeModuli& primes;
    const Inputs& in;
    const Outputs& out;

    LevelledElement element(long value) const { return elementLike(context, *in[0], value); }
};

/// Where an output's NTT state comes from: an input, or the operation.
constexpr int alwaysNTT = -1, neverNTT = -2;

struct Operation {
    std::string title;
    std::string plainName; ///< what it calls itself on a device without backend
    u64 inputCount;
    std::vector<int> outputNTT;
    std::function<void(const Call&)> run;
    std::function<std::vector<Words>(const Row&, const std::vector<Words>&)> oracle;

    u64 outputCount() const { return outputNTT.size(); }
};

void PrintTo(const Operation& operation, std::ostream* os) {
    *os << operation.title;
}

const std::vector<Operation>& operations() {
    static const Words constants = rowConstants();
    using Rows = std::vector<Words>;
    static const std::vector<Operation> all{
        {"Add",
         "add",
         2,
         {0},
         [](const Call& c) { c.primes.add(*c.in[0], *c.in[1], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.add(in[0], in[1])}; }},
        {"Sub",
         "sub",
         2,
         {0},
         [](const Call& c) { c.primes.sub(*c.in[0], *c.in[1], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.sub(in[0], in[1])}; }},
        {"Negate",
         "negate",
         1,
         {0},
         [](const Call& c) { c.primes.negate(*c.in[0], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.sub(Words(r.degree), in[0])}; }},
        {"HadamardMult",
         "hadamardMult",
         2,
         {alwaysNTT},
         [](const Call& c) { c.primes.hadamardMult(*c.in[0], *c.in[1], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.mult(in[0], in[1])}; }},
        {"HadamardMultAdd",
         "hadamardMult",
         3,
         {alwaysNTT},
         [](const Call& c) {
             const u64 level = std::min(c.in[0]->getLevel(), c.in[1]->getLevel());
             const ModUpOutputModulusBoundEvalValidator live(level, c.in[0]->getNumBase());
             c.primes.hadamardMultAdd(*c.in[0], *c.in[1], *c.in[2], *c.out[0], live);
         },
         [](const Row& r, const Rows& in) { return Rows{r.add(r.mult(in[0], in[1]), in[2])}; }},
        {"ForwardNTTLessProduct",
         "hadamardMult",
         3,
         {alwaysNTT},
         [](const Call& c) {
             if (c.out[0] == c.in[2]) return c.primes.forwardNTTLessProduct(*c.in[0], *c.in[1], *c.out[0]);
             const Polynomial a = *c.in[0], b = *c.in[1];
             Polynomial minuend = *c.in[2];
             minuend.setLevel(std::min(minuend.getLevel(), b.getLevel()));
             if (minuend.getDevice() == Device{})
                 c.primes.constMult(minuend, 1, *c.out[0]);
             else
                 *c.out[0] = minuend;
             c.primes.forwardNTTLessProduct(a, b, *c.out[0]);
         },
         [](const Row& r, const Rows& in) {
             return Rows{r.sub(r.transform().forward(in[2]), r.mult(in[0], in[1]))};
         }},
        {"AddConstMult",
         "constMult",
         2,
         {1},
         [](const Call& c) {
             const u64 level = std::min(c.in[0]->getLevel(), c.in[1]->getLevel());
             const ModUpOutputModulusBoundEvalValidator live(level, c.in[0]->getNumBase());
             if (c.out[0] == c.in[1])
                 return c.primes.addConstMult(*c.in[0], constants.data(), *c.out[0], live);
             const Polynomial a = *c.in[0];
             *c.out[0] = *c.in[1];
             c.primes.addConstMult(a, constants.data(), *c.out[0], live);
         },
         [](const Row& r, const Rows& in) { return Rows{r.add(in[1], r.mult(in[0], constants[r.i]))}; }},
        {"HadamardMultTwo",
         "hadamardMultTwo",
         3,
         {alwaysNTT, alwaysNTT},
         [](const Call& c) { c.primes.hadamardMultTwo(*c.in[0], *c.in[1], *c.in[2], *c.out[0], *c.out[1]); },
         [](const Row& r, const Rows& in) {
             return Rows{r.mult(in[0], in[1]), r.mult(in[0], in[2])};
         }},
        {"Tensor",
         "tensor",
         4,
         {alwaysNTT, alwaysNTT, alwaysNTT},
         [](const Call& c) {
             c.primes.tensor(*c.in[0], *c.in[1], *c.in[2], *c.in[3], *c.out[0], *c.out[1], *c.out[2]);
         },
         [](const Row& r, const Rows& in) {
             return Rows{r.add(r.mult(in[0], in[3]), r.mult(in[1], in[2])), r.mult(in[1], in[3]),
                         r.mult(in[0], in[2])};
         }},
        {"ConstAddInteger",
         "constAdd",
         1,
         {alwaysNTT},
         [](const Call& c) { c.primes.constAdd(*c.in[0], c.element(smallNumber), *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.add(in[0], r.residue(smallNumber))}; }},
        {"ConstAddComplex",
         "constAdd",
         1,
         {alwaysNTT},
         [](const Call& c) {
             c.primes.constAdd(*c.in[0], c.element(realPart), c.element(imaginaryPart), *c.out[0]);
         },
         [](const Row& r, const Rows& in) { return Rows{r.add(in[0], r.complexConstant())}; }},
        {"ConstMultWord",
         "constMult",
         1,
         {0},
         [](const Call& c) { c.primes.constMult(*c.in[0], wordConstant, *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.mult(in[0], wordConstant)}; }},
        {"ConstMultInteger",
         "constMult",
         1,
         {0},
         [](const Call& c) { c.primes.constMult(*c.in[0], c.element(smallNumber), *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.mult(in[0], r.residue(smallNumber))}; }},
        {"ConstMultRowConstants",
         "constMult",
         1,
         {0},
         [](const Call& c) {
             const ModUpOutputModulusBoundEvalValidator live(c.in[0]->getLevel(), c.in[0]->getNumBase());
             c.primes.constMult(*c.in[0], constants.data(), *c.out[0], live);
         },
         [](const Row& r, const Rows& in) { return Rows{r.mult(in[0], constants[r.i])}; }},
        {"ConstMultComplex",
         "constMult",
         1,
         {alwaysNTT},
         [](const Call& c) {
             c.primes.constMult(*c.in[0], c.element(realPart), c.element(imaginaryPart), *c.out[0]);
         },
         [](const Row& r, const Rows& in) { return Rows{r.mult(in[0], r.complexConstant())}; }},
        {"ConstMultTwoWord",
         "constMultTwo",
         2,
         {0, 1},
         [](const Call& c) { c.primes.constMultTwo(*c.in[0], *c.in[1], wordConstant, *c.out[0], *c.out[1]); },
         [](const Row& r, const Rows& in) {
             return Rows{r.mult(in[0], wordConstant), r.mult(in[1], wordConstant)};
         }},
        {"ConstMultTwoInteger",
         "constMultTwo",
         2,
         {0, 1},
         [](const Call& c) {
             c.primes.constMultTwo(*c.in[0], *c.in[1], c.element(smallNumber), *c.out[0], *c.out[1]);
         },
         [](const Row& r, const Rows& in) {
             const u64 e = r.residue(smallNumber);
             return Rows{r.mult(in[0], e), r.mult(in[1], e)};
         }},
        {"ConstMultTwoComplex",
         "constMultTwo",
         2,
         {alwaysNTT, alwaysNTT},
         [](const Call& c) {
             c.primes.constMultTwo(*c.in[0], *c.in[1], c.element(realPart), c.element(imaginaryPart),
                                   *c.out[0], *c.out[1]);
         },
         [](const Row& r, const Rows& in) {
             const Words e = r.complexConstant();
             return Rows{r.mult(in[0], e), r.mult(in[1], e)};
         }},
        {"SubAndConstMult",
         "subAndConstMult",
         2,
         {0},
         [](const Call& c) { c.primes.subAndConstMult(*c.in[0], *c.in[1], constants.data(), *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.mult(r.sub(in[0], in[1]), constants[r.i])}; }},
        {"MultMonomialUp",
         "multMonomial",
         1,
         {neverNTT},
         [](const Call& c) { c.primes.multMonomial(*c.in[0], *c.out[0], 5); },
         [](const Row& r, const Rows& in) { return Rows{timesMonomial(in[0], 5, r.p)}; }},
        {"MultMonomialDown",
         "multMonomial",
         1,
         {neverNTT},
         [](const Call& c) { c.primes.multMonomial(*c.in[0], *c.out[0], -1); },
         [](const Row& r, const Rows& in) { return Rows{timesMonomial(in[0], -1, r.p)}; }},
        {"FrobeniusRotation",
         "frobeniusMapInNTT",
         1,
         {alwaysNTT},
         [](const Call& c) { c.primes.frobeniusMapInNTT<false>(*c.in[0], 25, *c.out[0]); },
         [](const Row& r, const Rows& in) {
             return Rows{r.transform().forward(automorphism(r.transform().backward(in[0]), 25, r.p))};
         }},
        {"FrobeniusConjugation",
         "frobeniusMapInNTT",
         1,
         {alwaysNTT},
         [](const Call& c) { c.primes.frobeniusMapInNTT<false>(*c.in[0], -1, *c.out[0]); },
         [](const Row& r, const Rows& in) {
             return Rows{r.transform().forward(automorphism(r.transform().backward(in[0]), -1, r.p))};
         }},
        {"FrobeniusAdded",
         "frobeniusMapInNTT",
         2,
         {alwaysNTT},
         [](const Call& c) {
             if (c.out[0] == c.in[1]) return c.primes.frobeniusMapInNTT<true>(*c.in[0], 5, *c.out[0]);
             const Polynomial a = *c.in[0];
             *c.out[0] = *c.in[1];
             c.primes.frobeniusMapInNTT<true>(a, 5, *c.out[0]);
         },
         [](const Row& r, const Rows& in) {
             const Words f = automorphism(r.transform().backward(in[0]), 5, r.p);
             return Rows{r.add(in[1], r.transform().forward(f))};
         }},
        {"ForwardNTT",
         "forwardNTT",
         1,
         {alwaysNTT},
         [](const Call& c) { c.primes.forwardNTT(*c.in[0], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.transform().forward(in[0])}; }},
        {"BackwardNTT",
         "backwardNTT",
         1,
         {neverNTT},
         [](const Call& c) { c.primes.backwardNTT(*c.in[0], *c.out[0]); },
         [](const Row& r, const Rows& in) { return Rows{r.transform().backward(in[0])}; }},
        {"ForwardNTTWithSubAndConstMult",
         "forwardNTTWithSubAndConstMult",
         2,
         {alwaysNTT},
         [](const Call& c) {
             const u64 level = std::min(c.in[0]->getLevel(), c.in[1]->getLevel());
             const ModUpOutputModulusBoundEvalValidator live(level, c.in[0]->getNumBase());
             c.primes.forwardNTTWithSubAndConstMult(*c.in[0], *c.in[1], constants.data(), *c.out[0], live);
         },
         [](const Row& r, const Rows& in) {
             return Rows{r.mult(r.sub(in[1], r.transform().forward(in[0])), constants[r.i])};
         }},
    };
    return all;
}

struct Variant {
    std::string title;
    Context context;
    bool modUp;
};

const std::vector<Variant>& variants() {
    static const Context preset = makeContext(ParameterPreset::FX);
    static const Context custom = makeContext(6, 4, 50, 40, 51, 2, {});
    static const std::vector<Variant> all{{"preset", preset, false},
                                          {"preset, mod-up", preset, true},
                                          {"custom", custom, false},
                                          {"custom, mod-up", custom, true}};
    return all;
}

/// Input j is at level top - 1 - j mod 2, so that operands differ in level and mod-up ones have holes.
std::vector<Polynomial> randomInputs(const Variant& variant, u64 count, Seeded& random) {
    const u64 top = ringOf(variant.context).numBase - 1;
    std::vector<Polynomial> inputs;
    for (u64 j = 0; j < count; ++j)
        inputs.push_back(
            randomPolynomial(variant.context, variant.modUp, j % 2 == 0, top - 1 - j % 2, random));
    return inputs;
}

Inputs addresses(const std::vector<Polynomial>& inputs) {
    Inputs pointers;
    for (const Polynomial& p : inputs) pointers.push_back(&p);
    return pointers;
}

u64 smallestLevel(const Inputs& in) {
    u64 level = in[0]->getLevel();
    for (const Polynomial* p : in) level = std::min(level, p->getLevel());
    return level;
}

/// The expected outputs of an operation, computed from the inputs before the operation may overwrite them.
class Expected {
public:
    Expected(const Operation& operation, const Inputs& in) : level_(smallestLevel(in)) {
        for (const int source : operation.outputNTT)
            isNTT_.push_back(source == alwaysNTT || (source >= 0 && in[static_cast<u64>(source)]->isNTT()));
        Polynomial shape = *in[0];
        shape.setLevel(level_);
        for (u64 i = 0; i < shape.rowEnd(); ++i) {
            if (!shape.isLiveRow(i)) continue;
            std::vector<Words> rows;
            for (const Polynomial* p : in) rows.push_back(rowOf(*p, i));
            rows_[i] = operation.oracle({i, shape.getPrimes()[i], shape.getDegree()}, rows);
        }
    }

    void check(const Outputs& out) const {
        for (u64 o = 0; o < out.size(); ++o) {
            SCOPED_TRACE("output " + std::to_string(o));
            EXPECT_EQ(out[o]->getLevel(), level_);
            EXPECT_EQ(out[o]->isNTT(), isNTT_[o]);
            EXPECT_EQ(out[o]->getData().size(), out[o]->rowEnd() * out[o]->getDegree());
            for (const auto& [i, rows] : rows_) ASSERT_EQ(rowOf(*out[o], i), rows[o]) << "row " << i;
        }
    }

private:
    u64 level_;
    std::vector<bool> isNTT_;
    std::map<u64, std::vector<Words>> rows_;
};

class PolynomialOperations : public testing::TestWithParam<Operation> {
protected:
    static void run(const Variant& variant, const Inputs& in, const Outputs& out) {
        GetParam().run({variant.context, variant.context->primes, in, out});
    }

    /// Fresh outputs at the top level.
    static std::vector<Polynomial> freshOutputs(const Variant& variant) {
        const u64 top = ringOf(variant.context).numBase - 1;
        return std::vector<Polynomial>(GetParam().outputCount(),
                                       untouchedPolynomial(variant.context, variant.modUp, false, top));
    }

    static Outputs addressesOf(std::vector<Polynomial>& outputs) {
        Outputs pointers;
        for (Polynomial& p : outputs) pointers.push_back(&p);
        return pointers;
    }
};

TEST_P(PolynomialOperations, EqualTheirDefinitionRowByRow) {
    for (const Variant& variant : variants()) {
        for (const u64 feature : {u64{0}, detail::readProcessorFeature()}) {
            Seeded random(11 + feature);
            SCOPED_TRACE(variant.title + ", " + random.describe());
            const ForcedFeature forced(feature);
            const auto inputs = randomInputs(variant, GetParam().inputCount, random);
            const Expected expected(GetParam(), addresses(inputs));
            auto outputs = freshOutputs(variant);
            run(variant, addresses(inputs), addressesOf(outputs));
            expected.check(addressesOf(outputs));
        }
    }
}

TEST_P(PolynomialOperations, LeaveTheHolesOfModUpPolynomialsAlone) {
    for (const Variant& variant : variants()) {
        if (!variant.modUp) continue;
        Seeded random(12);
        auto inputs = randomInputs(variant, GetParam().inputCount, random);
        auto outputs = freshOutputs(variant);
        run(variant, addresses(inputs), addressesOf(outputs));
        for (const Polynomial& out : outputs) {
            for (u64 i = 0; i < out.rowEnd(); ++i) {
                if (out.isLiveRow(i)) continue;
                EXPECT_EQ(rowOf(out, i), Words(out.getDegree(), untouched)) << "row " << i;
            }
        }
    }
}

// Every way of giving some outputs the place of inputs: for output o, choice j < inputCount stands for input
// j and inputCount for an object of its own.
TEST_P(PolynomialOperations, MayWriteOverAnyOfTheirInputs) {
    const Operation& operation = GetParam();
    const u64 choices = operation.inputCount + 1;
    u64 combinations = 1;
    for (u64 o = 0; o < operation.outputCount(); ++o) combinations *= choices;
    for (const Variant& variant : variants()) {
        Seeded random(13);
        SCOPED_TRACE(variant.title + ", " + random.describe());
        const auto inputs = randomInputs(variant, operation.inputCount, random);
        const Expected expected(operation, addresses(inputs));
        for (u64 combination = 0; combination < combinations; ++combination) {
            auto working = inputs;
            auto fresh = freshOutputs(variant);
            Outputs out;
            bool distinct = true;
            for (u64 o = 0, rest = combination; o < operation.outputCount(); ++o, rest /= choices) {
                const u64 choice = rest % choices;
                Polynomial* place = choice == operation.inputCount ? &fresh[o] : &working[choice];
                distinct = distinct && std::find(out.begin(), out.end(), place) == out.end();
                out.push_back(place);
            }
            if (!distinct) continue;
            SCOPED_TRACE("combination " + std::to_string(combination));
            run(variant, addresses(working), out);
            expected.check(out);
        }
    }
}

TEST_P(PolynomialOperations, TakeOneObjectForAllOperandsAndTheFirstOutput) {
    for (const Variant& variant : variants()) {
        Seeded random(14);
        SCOPED_TRACE(variant.title + ", " + random.describe());
        auto inputs = randomInputs(variant, 1, random);
        const Inputs in(GetParam().inputCount, &inputs[0]);
        const Expected expected(GetParam(), in);
        auto outputs = freshOutputs(variant);
        Outputs out = addressesOf(outputs);
        out[0] = &inputs[0];
        run(variant, in, out);
        expected.check(out);
    }
}

TEST_P(PolynomialOperations, GiveTheSameWordsFromAnyTeamAndInsideOne) {
    const int before = omp_get_max_threads();
    for (const Variant& variant : variants()) {
        Seeded random(15);
        SCOPED_TRACE(variant.title + ", " + random.describe());
        const auto inputs = randomInputs(variant, GetParam().inputCount, random);
        const Expected expected(GetParam(), addresses(inputs));
        for (const int threads : {1, 2, 7}) {
            omp_set_num_threads(threads);
            auto outputs = freshOutputs(variant);
            run(variant, addresses(inputs), addressesOf(outputs));
            expected.check(addressesOf(outputs));
        }
        auto outputs = freshOutputs(variant);
#pragma omp parallel num_threads(2)
        {
#pragma omp single
            run(variant, addresses(inputs), addressesOf(outputs));
        }
        expected.check(addressesOf(outputs));
    }
    omp_set_num_threads(before);
}

class OperationsOnSeveralPolynomials : public PolynomialOperations {};

TEST_P(OperationsOnSeveralPolynomials, RefuseOperandsOnDifferentDevices) {
    const Variant& variant = variants()[0];
    Seeded random(16);
    for (u64 j = 1; j < GetParam().inputCount; ++j) {
        auto inputs = randomInputs(variant, GetParam().inputCount, random);
        inputs[j].to(secondHost);
        auto outputs = freshOutputs(variant);
        EXPECT_REFUSED(run(variant, addresses(inputs), addressesOf(outputs)),
                       "Operands are in different devices.");
    }
}

TEST_P(PolynomialOperations, RefuseADeviceThatTheContextDoesNotServe) {
    const Variant& variant = variants()[0];
    Seeded random(17);
    auto inputs = randomInputs(variant, GetParam().inputCount, random);
    for (Polynomial& p : inputs) p.to(secondHost);
    auto outputs = freshOutputs(variant);
    EXPECT_REFUSED(run(variant, addresses(inputs), addressesOf(outputs)),
                   "The generated context does not support the operation with current operands; check the "
                   "device.");
}

TEST_P(PolynomialOperations, NameThemselvesOnADeviceWithoutBackend) {
    const Variant& variant = variants()[0];
    Seeded random(18);
    const PrimeModuli served(ParameterPreset::FX, ringOf(variant.context).total(), 64, {pinned});
    auto inputs = randomInputs(variant, GetParam().inputCount, random);
    for (Polynomial& p : inputs) p.allocate(pinned);
    auto outputs = freshOutputs(variant);
    const Inputs in = addresses(inputs);
    Outputs out = addressesOf(outputs);
    if (GetParam().inputCount > out.size()) out[0] = &inputs.back(); // where a sum is added to an operand
    EXPECT_REFUSED(GetParam().run({variant.context, served, in, out}), unsupported(GetParam().plainName));
}

TEST_P(PolynomialOperations, NameTheirFormForTheGPUOnOne) {
    const Context& context = variants()[0].context;
    const PrimeModuli served(ParameterPreset::FX, ringOf(context).total(), 64, {gpu});
    auto inputs = withoutWords(context, GetParam().inputCount, gpu);
    auto outputs = withoutWords(context, GetParam().outputCount(), gpu);
    const Inputs in = addresses(inputs);
    Outputs out = addressesOf(outputs);
    if (GetParam().inputCount > out.size()) out[0] = &inputs.back(); // where a sum is added to an operand
    EXPECT_REFUSED(GetParam().run({context, served, in, out}),
                   unsupported(namesOnGPU.at(GetParam().plainName)));
}

TEST_P(PolynomialOperations, RunOnAnyDeviceOfTheHostThatTheContextServes) {
    const Variant& variant = variants()[0];
    Seeded random(19);
    const PrimeModuli served(ParameterPreset::FX, ringOf(variant.context).total(), 64, {secondHost});
    auto inputs = randomInputs(variant, GetParam().inputCount, random);
    const Expected expected(GetParam(), addresses(inputs));
    for (Polynomial& p : inputs) p.to(secondHost);
    auto outputs = freshOutputs(variant);
    const Inputs in = addresses(inputs);
    const Outputs out = addressesOf(outputs);
    GetParam().run({variant.context, served, in, out});
    expected.check(out);
    for (const Polynomial* p : out) EXPECT_EQ(p->getDevice(), secondHost);
}

std::string titleOf(const testing::TestParamInfo<Operation>& tested) {
    return tested.param.title;
}

std::vector<Operation> operationsOnSeveral() {
    auto several = operations();
    std::erase_if(several, [](const Operation& operation) { return operation.inputCount < 2; });
    return several;
}

INSTANTIATE_TEST_SUITE_P(All, PolynomialOperations, testing::ValuesIn(operations()), titleOf);
INSTANTIATE_TEST_SUITE_P(All, OperationsOnSeveralPolynomials, testing::ValuesIn(operationsOnSeveral()),
                         titleOf);

// ---- further properties of single operations

class PolynomialOperation : public testing::Test {
protected:
    const Context& context = variants()[0].context;
    const Ring ring = ringOf(context);
    const PrimeModuli& primes = context->primes;
    Seeded random{20};

    Polynomial polynomial(bool modUp, bool isNTT, u64 level) {
        return randomPolynomial(context, modUp, isNTT, level, random);
    }
};

TEST_F(PolynomialOperation, AddOfLevelsFiveAndThreeProcessesFourRows) {
    const Polynomial a = polynomial(false, true, 5), b = polynomial(false, true, 3);
    Polynomial out = untouchedPolynomial(context, false, false, 5);
    primes.add(a, b, out);
    EXPECT_EQ(out.getLevel(), 3u);
    EXPECT_EQ(out.getData().size(), 4 * ring.degree);
    EXPECT_NE(rowOf(out, 3), Words(ring.degree, untouched));
    EXPECT_EQ(rowOf(out, 4), Words(ring.degree, untouched)) << "beyond the size, within the capacity";
}

TEST_F(PolynomialOperation, AddOfModUpPolynomialsTouchesNothingBetweenTheLevelAndTheTemporaryRows) {
    const Polynomial a = polynomial(true, true, 2), b = polynomial(true, true, 2);
    Polynomial out = untouchedPolynomial(context, true, false, ring.numBase - 1);
    primes.add(a, b, out);
    for (u64 i = 0; i < ring.total(); ++i) {
        const bool isLive = i <= 2 || i >= ring.numBase;
        EXPECT_EQ(rowOf(out, i) != Words(ring.degree, untouched), isLive) << "row " << i;
    }
}

TEST_F(PolynomialOperation, AddRefusesDifferentModUpStatesBeforeAnythingElse) {
    const Polynomial a = polynomial(false, true, 5);
    Polynomial b = polynomial(true, true, 4);
    b.to(secondHost);
    Polynomial out = untouchedPolynomial(context, false, false, 6);
    EXPECT_REFUSED(primes.add(a, b, out), "Operands have different mod-up states.");
    EXPECT_EQ(out.getLevel(), 6u);
}

TEST_F(PolynomialOperation, OperandsOfDifferentModUpStatesMeetOnTheRowsOfBoth) {
    const Polynomial a = polynomial(true, true, 4), b = polynomial(false, true, 3);
    Polynomial out = untouchedPolynomial(context, true, false, ring.numBase - 1);
    primes.sub(a, b, out);
    EXPECT_EQ(out.getLevel(), 3u);
    for (u64 i = 0; i < ring.total(); ++i)
        EXPECT_EQ(rowOf(out, i) != Words(ring.degree, untouched), i <= 3) << "row " << i;
}

TEST_F(PolynomialOperation, AnOutputThatIsNotModUpGetsTheLiveBaseRowsOfModUpOperands) {
    const Polynomial a = polynomial(true, true, 3);
    Polynomial out(context, false, false);
    primes.negate(a, out);
    EXPECT_FALSE(out.isModUp());
    ASSERT_EQ(out.getData().size(), 4 * ring.degree);
    Polynomial expected(context, true, true);
    primes.negate(a, expected);
    for (u64 i = 0; i <= 3; ++i) EXPECT_EQ(rowOf(out, i), rowOf(expected, i)) << "row " << i;
}

TEST_F(PolynomialOperation, AConstantOfALowerLevelBringsTheResultDown) {
    const Polynomial a = polynomial(false, true, 5);
    Polynomial out(context, false, false);
    primes.constMult(a, LevelledElement(7, context, false, 2), out);
    EXPECT_EQ(out.getLevel(), 2u);
    primes.constMult(a, LevelledElement(7, context, false, 4), LevelledElement(1, context, false, 1), out);
    EXPECT_EQ(out.getLevel(), 1u);
}

TEST_F(PolynomialOperation, AConstantOnAnotherDeviceIsRefused) {
    const Polynomial a = polynomial(false, true, 5);
    Polynomial out(context, false, false);
    LevelledElement there(7, context, false, 5);
    const LevelledElement here = there;
    there.to(secondHost);
    EXPECT_REFUSED(primes.constMult(a, there, out), "Operands are in different devices.");
    EXPECT_REFUSED(primes.constAdd(a, here, there, out), "Operands are in different devices.");
}

// Rows that a validator accepts change, the others stay.
template <class Validator, class Run>
void expectRows(u64 rowCount, const Polynomial& fresh, Validator validator, Run&& run) {
    Polynomial out = fresh;
    run(out, validator);
    for (u64 i = 0; i < rowCount; ++i)
        EXPECT_EQ(rowOf(out, i) != rowOf(fresh, i), validator.validate(i)) << "row " << i;
}

template <class Run>
void expectRowsOfEveryValidator(u64 numBase, u64 rowCount, const Polynomial& fresh, Run&& run) {
    expectRows(rowCount, fresh, AlwaysValidator(), run);
    expectRows(rowCount, fresh, OutputModulusBoundValidator(2, 5), run);
    expectRows(rowCount, fresh, ModUpOutputModulusBoundEvalValidator(3, numBase), run);
    expectRows(rowCount, fresh, ModUpOutputModulusBoundValidator(1, 3, 4, numBase - 1), run);
}

TEST_F(PolynomialOperation, ActsOnTheRowsThatItsValidatorLetsPass) {
    const Words constants = rowConstants();
    const u64 top = ring.numBase - 1;
    const Polynomial a = polynomial(true, true, top), b = polynomial(true, true, top);
    const Polynomial fresh = untouchedPolynomial(context, true, false, top);
    const auto check = [&](auto&& run) {
        expectRowsOfEveryValidator(ring.numBase, ring.total(), fresh, run);
    };
    check([&](Polynomial& out, auto rows) { primes.add(a, b, out, rows); });
    check([&](Polynomial& out, auto rows) { primes.constMult(a, constants.data(), out, rows); });
    check([&](Polynomial& out, auto rows) { primes.forwardNTT(a, out, rows); });
    check([&](Polynomial& out, auto rows) { primes.backwardNTT(a, out, rows); });
    check([&](Polynomial& out, auto rows) {
        primes.forwardNTTWithSubAndConstMult(a, b, constants.data(), out, rows);
    });
}

TEST_F(PolynomialOperation, BackwardAfterForwardGivesThePolynomialBack) {
    const Polynomial a = polynomial(true, false, 3);
    Polynomial there(context, true, false), back(context, true, true);
    primes.forwardNTT(a, there);
    EXPECT_TRUE(there.isNTT());
    primes.backwardNTT(there, back);
    EXPECT_FALSE(back.isNTT());
    for (const u64 i : {u64{0}, u64{3}, ring.numBase, ring.total() - 1})
        EXPECT_EQ(rowOf(back, i), rowOf(a, i)) << "row " << i;
}

TEST_F(PolynomialOperation, BackwardNTTWithConstMultHasNoFormOnAnyDevice) {
    const Words constants = rowConstants();
    const Polynomial a = polynomial(false, true, 3);
    Polynomial out(context, false, true);
    EXPECT_REFUSED(primes.backwardNTTWithConstMult(a, constants.data(), out, AlwaysValidator()),
                   "Cannot support the function 'backwardNTTWithConstMult' in the current build "
                   "configuration");
}

TEST_F(PolynomialOperation, TheHalvesOfAComplexConstantAreItsValuesAtBothRootsOfMinusOne) {
    const LevelledElement re(realPart, context, true, 0), im(imaginaryPart, context, true, 0);
    const auto pairs = primes.computeConstantCoefficients(re, im);
    ASSERT_EQ(pairs.size(), 2 * ring.total());
    for (u64 i = 0; i < ring.total(); ++i) {
        const u64 p = primes.getPrime(i), unit = naiveTransform(ring.degree, p).imaginaryUnit();
        const u64 imaginary = mulMod(im[i], unit, p);
        EXPECT_EQ(pairs[2 * i], addMod(re[i], imaginary, p)) << "row " << i;
        EXPECT_EQ(pairs[2 * i + 1], subMod(re[i], imaginary, p)) << "row " << i;
    }
}

TEST_F(PolynomialOperation, ARealConstantIsGivenByItsOwnWords) {
    const LevelledElement re(realPart, context, false, 3);
    const auto words = primes.computeConstantCoefficients(re);
    EXPECT_EQ(Words(words.begin(), words.end()), Words(re.getData().begin(), re.getData().end()));
}

TEST_F(PolynomialOperation, IsZeroLooksAtAllLiveRowsAndAtNoOther) {
    Polynomial p = untouchedPolynomial(context, true, true, 2);
    for (u64 i = 0; i < p.rowEnd(); ++i)
        if (p.isLiveRow(i)) std::fill_n(p.getRow(i), ring.degree, 0);
    EXPECT_TRUE(primes.isZero(p));
    for (const u64 i : {u64{0}, u64{2}, ring.numBase, ring.total() - 1}) {
        p.getRow(i)[ring.degree - 1] = 1;
        EXPECT_FALSE(primes.isZero(p)) << "row " << i;
        p.getRow(i)[ring.degree - 1] = 0;
    }
}

TEST_F(PolynomialOperation, IsZeroFailsUnderTheNameOfTheKindOfDevice) {
    const PrimeModuli served(ParameterPreset::FX, ring.total(), 64, {pinned, gpu});
    Polynomial p = polynomial(false, true, 2);
    p.setData(DeviceSpecificArray<u64>(0, gpu, getDefaultStream()));
    EXPECT_REFUSED(served.isZero(p), unsupported("isZeroCUDA"));
    p.allocate(pinned);
    EXPECT_REFUSED(served.isZero(p), unsupported("isZero"));
    EXPECT_REFUSED(primes.isZero(p), "The generated context does not support the operation with current "
                                     "operands; check the device.");
}

// ---- inner products

class PolynomialInnerProduct : public PolynomialOperation {
protected:
    std::vector<Polynomial> polynomials(u64 count, bool modUp, u64 level) {
        std::vector<Polynomial> polys;
        for (u64 j = 0; j < count; ++j) polys.push_back(polynomial(modUp, true, level));
        return polys;
    }

    void run(const std::vector<Polynomial>& a, const std::vector<Polynomial>& x,
             const std::vector<Polynomial>& y, Polynomial& out1, Polynomial& out2) const {
        const auto self = [](const Polynomial& p) -> const Polynomial& { return p; };
        primes.innerProduct(PolyIter(a.begin(), self), PolyIter(a.end(), self), PolyIter(x.begin(), self),
                            PolyIter(y.begin(), self), out1, out2);
    }

    static Words sumOfProducts(const std::vector<Polynomial>& a, const std::vector<Polynomial>& x, u64 i) {
        const u64 p = a[0].getPrimes()[i];
        Words sum(a[0].getDegree());
        for (u64 j = 0; j < a.size(); ++j) {
            for (u64 k = 0; k < sum.size(); ++k)
                sum[k] = addMod(sum[k], mulMod(a[j].getRow(i)[k], x[j].getRow(i)[k], p), p);
        }
        return sum;
    }
};

TEST_F(PolynomialInnerProduct, EqualsTheNaiveSumsOnLiveRowsForKeysOfAnyHigherLevel) {
    for (const bool modUp : {false, true}) {
        for (const u64 count : {1, 2, 3, 5}) {
            const u64 level = 2;
            const auto a = polynomials(count, modUp, level);
            const auto x = polynomials(count, modUp, ring.numBase - 1), y = polynomials(count, modUp, level);
            Polynomial out1 = untouchedPolynomial(context, modUp, false, ring.numBase - 1), out2 = out1;
            run(a, x, y, out1, out2);
            EXPECT_EQ(out1.getLevel(), level);
            EXPECT_EQ(out2.getLevel(), level);
            EXPECT_TRUE(out1.isNTT() && out2.isNTT());
            for (u64 i = 0; i < out1.rowEnd(); ++i) {
                SCOPED_TRACE("row " + std::to_string(i) + " of " + std::to_string(count) + " terms");
                const Words nothing(ring.degree, untouched);
                EXPECT_EQ(rowOf(out1, i), out1.isLiveRow(i) ? sumOfProducts(a, x, i) : nothing);
                EXPECT_EQ(rowOf(out2, i), out1.isLiveRow(i) ? sumOfProducts(a, y, i) : nothing);
            }
        }
    }
}

TEST_F(PolynomialInnerProduct, IsTheSameOnEveryFormOfTheKernelsAndInsideATeam) {
    const auto a = polynomials(3, true, 2), x = polynomials(3, true, 2), y = polynomials(3, true, 2);
    Polynomial out1(context, true, true), out2(context, true, true);
    for (const u64 feature : {u64{0}, detail::readProcessorFeature()}) {
        const ForcedFeature forced(feature);
#pragma omp parallel num_threads(2)
        {
#pragma omp single
            run(a, x, y, out1, out2);
        }
        for (const u64 i : {u64{0}, u64{2}, ring.numBase}) {
            EXPECT_EQ(rowOf(out1, i), sumOfProducts(a, x, i));
            EXPECT_EQ(rowOf(out2, i), sumOfProducts(a, y, i));
        }
    }
}

TEST_F(PolynomialInnerProduct, MayWriteOverAnyOfItsOperands) {
    const auto a = polynomials(3, false, 2), x = polynomials(3, false, 2), y = polynomials(3, false, 2);
    const std::vector<Words> sums{sumOfProducts(a, x, 1), sumOfProducts(a, y, 1)};
    for (u64 first = 0; first < 9; ++first) {
        for (u64 second = 0; second < 9; ++second) {
            if (first == second) continue;
            std::vector<std::vector<Polynomial>> working{a, x, y};
            Polynomial &out1 = working[first / 3][first % 3], &out2 = working[second / 3][second % 3];
            run(working[0], working[1], working[2], out1, out2);
            EXPECT_EQ(rowOf(out1, 1), sums[0]) << "outputs " << first << ", " << second;
            EXPECT_EQ(rowOf(out2, 1), sums[1]) << "outputs " << first << ", " << second;
        }
    }
}

TEST_F(PolynomialInnerProduct, TellsTheFirstRuleThatItsOperandsBreak) {
    auto a = polynomials(2, true, 2), x = polynomials(2, true, 2), y = polynomials(2, true, 2);
    Polynomial out1(context, true, true), out2(context, true, true);
    y[1] = polynomial(false, true, 1); // of another level, mod-up state and device
    y[1].to(secondHost);
    EXPECT_REFUSED(run({}, x, y, out1, out2), "Operand is empty so device is not defined");
    EXPECT_REFUSED(run(a, x, y, out1, out2), "Operands have different levels.");
    y[1].setLevel(2);
    EXPECT_REFUSED(run(a, x, y, out1, out2), "Operands have different mod-up states.");
    y[1] = a[1];
    y[1].to(secondHost);
    EXPECT_REFUSED(run(a, x, y, out1, out2), "Operands are in different devices.");
    for (auto* operands : {&a, &x, &y})
        for (Polynomial& p : *operands) p.to(secondHost);
    EXPECT_REFUSED(run(a, x, y, out1, out2), "The generated context does not support the operation with "
                                             "current operands; check the device.");
    a[1].setLevel(1);
    EXPECT_REFUSED(run(a, x, y, out1, out2), "Operands have different levels.");
}

TEST_F(PolynomialInnerProduct, NamesItselfOnDevicesWithoutBackend) {
    const PrimeModuli served(ParameterPreset::FX, ring.total(), 64, {pinned, gpu});
    for (const auto& [device, name] :
         {std::pair{gpu, "innerProductCUDA"}, std::pair{pinned, "innerProduct"}}) {
        const auto operands = withoutWords(context, 2, device);
        auto outputs = withoutWords(context, 2, device);
        const auto self = [](const Polynomial& p) -> const Polynomial& { return p; };
        const PolyIter begin(operands.begin(), self), end(operands.end(), self);
        EXPECT_REFUSED(served.innerProduct(begin, end, begin, begin, outputs[0], outputs[1]),
                       unsupported(name));
    }
}

} // namespace
} // namespace Torvo::test
