#include "ring/RingSwitcher.hpp"

#include "support/Expect.hpp"
#include "support/Pointers.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Torvo::test {
namespace {

constexpr const char* dimensionsDiffer = "The total dimension of the operands are different";
constexpr const char* doesNotDivide = "The total dimension of op1 does not divide that of op2";
constexpr const char* inNTTForm = "Polynomials should be of non-NTT form in ring switching.";
constexpr const char* noOperand = "Operand is empty so device is not defined";
constexpr const char* devicesDiffer = "Elements of operand are in different devices.";
constexpr const char* vectorsMissDegree =
    "The number of LevelledVectors does not match to the degree of Polynomial";
constexpr const char* polynomialsMissDimension =
    "The number of Polynomials does not match to the dimension of LevelledVector";

using Parts = std::vector<const Polynomial*>;

constexpr Device gpu{DeviceType::GPU, 0};
constexpr Device pinned{DeviceType::PinnedHost, 0};
constexpr Device otherHost{DeviceType::CPU, 1};
constexpr u64 chainLength = 4;

std::string unsupported(const std::string& name) {
    return "Cannot support the function '" + name + "' in the current build configuration";
}

const Context& ringOfDegree(u64 degree) {
    static std::map<u64, Context> made;
    auto& context = made[degree];
    if (context == nullptr) {
        u64 logDegree = 0;
        while (u64{1} << logDegree < degree) ++logDegree;
        context = makeContext(logDegree, chainLength, 55, 45, 55, 2);
    }
    return context;
}

/// Words unset, coefficients.
Polynomial emptyPolynomial(u64 degree) {
    return {ringOfDegree(degree), false, false};
}

void fill(DeviceSpecificArray<u64>& data, Seeded& random) {
    for (u64& word : data) word = random.word();
}

Polynomial randomPolynomial(u64 degree, u64 level, Seeded& random) {
    Polynomial polynomial = emptyPolynomial(degree);
    polynomial.setLevel(level);
    fill(polynomial.getData(), random);
    return polynomial;
}

/// Of no more than a shape: an array without words may lie on any device.
Polynomial onDevice(u64 degree, const Device& device) {
    Polynomial polynomial = emptyPolynomial(degree);
    polynomial.setData(DeviceSpecificArray<u64>(0, device, getDefaultStream()));
    return polynomial;
}

Polynomial inNTT(Polynomial polynomial) {
    polynomial.setNTT(true);
    return polynomial;
}

LevelledElement randomElement(u64 level, Seeded& random) {
    LevelledElement element(ringOfDegree(64), false);
    element.setLevel(level);
    fill(element.getData(), random);
    return element;
}

LevelledElement onDevice(const Device& device) {
    LevelledElement element(ringOfDegree(64), false);
    element.getData() = DeviceSpecificArray<u64>(0, device, getDefaultStream());
    return element;
}

LevelledVector randomVector(u64 dimension, u64 level, Seeded& random) {
    LevelledVector vector(dimension, level);
    fill(vector.getData(), random);
    return vector;
}

LevelledVector vectorOnDevice(u64 dimension, const Device& device) {
    LevelledVector vector(dimension, 0);
    vector.getData() = DeviceSpecificArray<u64>(0, device, getDefaultStream());
    return vector;
}

std::vector<u64> wordsOf(const Polynomial& polynomial) {
    return {polynomial.getData().begin(), polynomial.getData().end()};
}

template <class T, class Make>
std::vector<T> severalOf(u64 count, Make&& make) {
    std::vector<T> all;
    for (u64 i = 0; i < count; ++i) all.push_back(make());
    return all;
}

/// A shape of operands, and the threads that share the work.
struct Shape {
    u64 small, large, level;
    int threads;

    u64 step() const { return large / small; }
};

std::string nameOf(const testing::TestParamInfo<Shape>& info) {
    const Shape& s = info.param;
    return std::to_string(s.small) + "In" + std::to_string(s.large) + "AtLevel" + std::to_string(s.level) +
           "On" + std::to_string(s.threads);
}

class RingMoves : public testing::TestWithParam<Shape> {
protected:
    RingMoves() { omp_set_num_threads(GetParam().threads); }
    ~RingMoves() override { omp_set_num_threads(before_); }

    /// What `move` left is of the level of the operand, on its device, and coefficients.
    void expectShape(const Polynomial& out, u64 degree) const {
        EXPECT_EQ(out.getLevel(), shape.level);
        EXPECT_EQ(out.getDevice(), Device{});
        EXPECT_FALSE(out.isNTT());
        EXPECT_EQ(out.getData().size(), (shape.level + 1) * degree);
    }

    std::vector<Polynomial> randomParts() {
        return severalOf<Polynomial>(shape.step(),
                                     [&] { return randomPolynomial(shape.small, shape.level, random); });
    }
    /// Outputs to be shaped: at the top level, in NTT form, on another device.
    std::vector<Polynomial> emptyParts() {
        Polynomial part = inNTT(emptyPolynomial(shape.small));
        part.allocate(otherHost);
        return severalOf<Polynomial>(shape.step(), [&] { return part; });
    }
    Polynomial emptyWhole() {
        Polynomial whole = inNTT(emptyPolynomial(shape.large));
        whole.allocate(otherHost);
        return whole;
    }

    const Shape shape = GetParam();
    const RingSwitcher switcher{};
    Seeded random{90'100 + shape.large + shape.small + shape.level};

private:
    const int before_ = omp_get_max_threads();
};

INSTANTIATE_TEST_SUITE_P(Shapes, RingMoves,
                         testing::Values(Shape{64, 64, 0, 2}, Shape{64, 64, 3, 2}, Shape{64, 128, 0, 1},
                                         Shape{64, 128, 2, 2}, Shape{64, 256, 0, 3}, Shape{64, 1024, 1, 2},
                                         Shape{64, 2048, 0, 2}, Shape{64, 2048, 3, 1}, Shape{64, 4096, 0, 2},
                                         Shape{512, 4096, 0, 5}, Shape{2048, 4096, 1, 2},
                                         Shape{1024, 1024, 0, 3}),
                         nameOf);

TEST_P(RingMoves, CombineInterleavesItsOperands) {
    SCOPED_TRACE(random.describe());
    const auto in = randomParts();
    Polynomial out = emptyWhole();
    switcher.combine(pointersTo(std::as_const(in)), out);
    expectShape(out, shape.large);
    for (u64 r = 0; r <= shape.level; ++r)
        for (u64 j = 0; j < shape.step(); ++j)
            for (u64 c = 0; c < shape.small; ++c)
                ASSERT_EQ(out.getRow(r)[c * shape.step() + j], in[j].getRow(r)[c])
                    << r << " " << j << " " << c;
}

TEST_P(RingMoves, SplitIsTheInverseOfCombine) {
    SCOPED_TRACE(random.describe());
    const Polynomial in = randomPolynomial(shape.large, shape.level, random);
    auto parts = emptyParts();
    auto out = pointersTo(parts);
    switcher.split(in, out);
    for (u64 j = 0; j < shape.step(); ++j) {
        expectShape(parts[j], shape.small);
        for (u64 r = 0; r <= shape.level; ++r)
            for (u64 c = 0; c < shape.small; ++c)
                ASSERT_EQ(parts[j].getRow(r)[c], in.getRow(r)[c * shape.step() + j])
                    << r << " " << j << " " << c;
    }
    Polynomial again = emptyWhole();
    switcher.combine(pointersTo(std::as_const(parts)), again);
    EXPECT_EQ(wordsOf(again), wordsOf(in));
}

TEST_P(RingMoves, EmbedSpreadsTheCoefficientsOverZeros) {
    SCOPED_TRACE(random.describe());
    const Polynomial in = randomPolynomial(shape.small, shape.level, random);
    Polynomial out = emptyWhole();
    fill(out.getData(), random);
    switcher.embed(in, out);
    expectShape(out, shape.large);
    for (u64 r = 0; r <= shape.level; ++r)
        for (u64 c = 0; c < shape.large; ++c)
            ASSERT_EQ(out.getRow(r)[c], c % shape.step() == 0 ? in.getRow(r)[c / shape.step()] : 0)
                << r << " " << c;
}

TEST_P(RingMoves, ExtractIsTheInverseOfEmbed) {
    SCOPED_TRACE(random.describe());
    const Polynomial in = randomPolynomial(shape.large, shape.level, random);
    Polynomial out = std::move(emptyParts().front());
    switcher.extract(in, out);
    expectShape(out, shape.small);
    for (u64 r = 0; r <= shape.level; ++r)
        for (u64 c = 0; c < shape.small; ++c)
            ASSERT_EQ(out.getRow(r)[c], in.getRow(r)[c * shape.step()]) << r << " " << c;
    Polynomial whole = emptyWhole(), again = emptyPolynomial(shape.small);
    switcher.embed(out, whole);
    switcher.extract(whole, again);
    EXPECT_EQ(wordsOf(again), wordsOf(out));
}

TEST_P(RingMoves, CombineOfElementsLaysThemSideBySideAndSplitTakesThemApart) {
    SCOPED_TRACE(random.describe());
    const auto in =
        severalOf<LevelledElement>(shape.large, [&] { return randomElement(shape.level, random); });
    Polynomial whole = emptyWhole();
    switcher.combine(pointersTo(std::as_const(in)), whole);
    expectShape(whole, shape.large);
    for (u64 r = 0; r <= shape.level; ++r)
        for (u64 j = 0; j < shape.large; ++j) ASSERT_EQ(whole.getRow(r)[j], in[j][r]) << r << " " << j;

    std::vector<LevelledElement> parts(shape.large, LevelledElement(ringOfDegree(64), false));
    parts.front().allocate(otherHost);
    auto out = pointersTo(parts);
    switcher.split(whole, out);
    for (u64 j = 0; j < shape.large; ++j) {
        ASSERT_EQ(parts[j].getLevel(), shape.level);
        ASSERT_EQ(parts[j].getDevice(), Device{});
        for (u64 r = 0; r <= shape.level; ++r) ASSERT_EQ(parts[j][r], in[j][r]) << r << " " << j;
    }
}

TEST_P(RingMoves, SplitIntoAVectorCopiesAllRows) {
    SCOPED_TRACE(random.describe());
    const Polynomial in = randomPolynomial(shape.large, shape.level, random);
    LevelledVector out(shape.large, 1);
    out.allocate(otherHost);
    switcher.split(in, out);
    EXPECT_EQ(out.getLevel(), shape.level);
    EXPECT_EQ(out.getDevice(), Device{});
    EXPECT_EQ(std::vector<u64>(out.getData().begin(), out.getData().end()), wordsOf(in));
}

TEST_P(RingMoves, AnElementGoesToTheConstantCoefficientAndBack) {
    SCOPED_TRACE(random.describe());
    const LevelledElement in = randomElement(shape.level, random);
    Polynomial whole = emptyWhole();
    fill(whole.getData(), random);
    switcher.embed(in, whole);
    expectShape(whole, shape.large);
    for (u64 r = 0; r <= shape.level; ++r)
        for (u64 c = 0; c < shape.large; ++c)
            ASSERT_EQ(whole.getRow(r)[c], c == 0 ? in[r] : 0) << r << " " << c;

    const Polynomial polynomial = randomPolynomial(shape.large, shape.level, random);
    LevelledElement out(ringOfDegree(64), false);
    out.allocate(otherHost);
    switcher.extract(polynomial, out);
    EXPECT_EQ(out.getLevel(), shape.level);
    EXPECT_EQ(out.getDevice(), Device{});
    for (u64 r = 0; r <= shape.level; ++r) EXPECT_EQ(out[r], polynomial.getRow(r)[0]) << r;
}

/// Number of vectors, which is the degree of the polynomials, and their dimension.
class RingBatches : public testing::TestWithParam<Shape> {};

INSTANTIATE_TEST_SUITE_P(Shapes, RingBatches,
                         testing::Values(Shape{64, 64, 0, 2}, Shape{1, 64, 2, 2}, Shape{16, 64, 3, 1},
                                         Shape{45, 128, 1, 3}, Shape{300, 512, 1, 2}, Shape{513, 256, 0, 2}),
                         nameOf);

TEST_P(RingBatches, CombineBatchTransposes) {
    const auto [dimension, degree, level, threads] = GetParam();
    Seeded random{90'200 + dimension};
    SCOPED_TRACE(random.describe());
    const auto in = severalOf<LevelledVector>(
        degree, [&, d = dimension, l = level] { return randomVector(d, l, random); });
    auto polynomials = severalOf<Polynomial>(dimension, [d = degree] { return inNTT(emptyPolynomial(d)); });
    polynomials.back().allocate(otherHost);
    auto out = pointersTo(polynomials);
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    RingSwitcher().combineBatch(pointersTo(std::as_const(in)), out);
    omp_set_num_threads(before);
    for (u64 j = 0; j < dimension; ++j) {
        const Polynomial& polynomial = polynomials[j];
        ASSERT_EQ(polynomial.getLevel(), level);
        ASSERT_EQ(polynomial.getDevice(), Device{});
        ASSERT_FALSE(polynomial.isNTT());
        for (u64 r = 0; r <= level; ++r)
            for (u64 i = 0; i < degree; ++i)
                ASSERT_EQ(polynomial.getRow(r)[i], in[i].getRow(r)[j]) << j << " " << r << " " << i;
    }
}

class RingSwitching : public testing::Test {
protected:
    Seeded random{90'300};
    const RingSwitcher switcher{};
};

TEST_F(RingSwitching, OfOnePolynomialCopiesItAlsoOntoItself) {
    const Polynomial original = randomPolynomial(128, 2, random);
    for (const u64 level : {u64{2}, u64{0}}) {
        Polynomial p = original;
        p.setLevel(level);
        const auto words = wordsOf(p);
        std::vector<Polynomial*> itself{&p};
        switcher.combine(Parts{&p}, p);
        EXPECT_EQ(wordsOf(p), words);
        switcher.split(p, itself);
        EXPECT_EQ(wordsOf(p), words);
        switcher.embed(p, p);
        EXPECT_EQ(wordsOf(p), words);
        switcher.extract(p, p);
        EXPECT_EQ(wordsOf(p), words);
        EXPECT_EQ(p.getLevel(), level);
    }
}

TEST_F(RingSwitching, TakesTheSameOperandMoreThanOnce) {
    const Polynomial part = randomPolynomial(64, 1, random);
    Polynomial whole = emptyPolynomial(128);
    switcher.combine(Parts{&part, &part}, whole);
    for (u64 c = 0; c < 128; ++c) EXPECT_EQ(whole.getRow(1)[c], part.getRow(1)[c / 2]);
}

TEST_F(RingSwitching, EmbedsDegree64InDegree2048WithStep32) {
    const Polynomial in = randomPolynomial(64, 0, random);
    Polynomial out = emptyPolynomial(2048);
    switcher.embed(in, out);
    EXPECT_EQ(out.getRow(0)[32], in.getRow(0)[1]);
    EXPECT_EQ(out.getRow(0)[63 * 32], in.getRow(0)[63]);
    EXPECT_EQ(std::count_if(out.getRow(0), out.getRow(0) + 2048, [](u64 word) { return word != 0; }), 64);
}

TEST_F(RingSwitching, ClearsTheWholeOfAModUpOutputAndLeavesAModUpOperandItsRows) {
    Polynomial modUp(ringOfDegree(128), true, false);
    const Polynomial in = randomPolynomial(64, 1, random);
    fill(modUp.getData(), random);
    switcher.embed(in, modUp);
    EXPECT_EQ(modUp.getRow(1)[126], in.getRow(1)[63]);
    EXPECT_EQ(std::count_if(modUp.getRow(2), modUp.getData().end(), [](u64 word) { return word != 0; }), 0);

    const LevelledElement number = randomElement(1, random);
    fill(modUp.getData(), random);
    switcher.embed(number, modUp);
    EXPECT_EQ(modUp.getRow(1)[0], number[1]);
    EXPECT_EQ(std::count(modUp.getRow(0), modUp.getData().end(), 0), 6 * 128 - 2);

    fill(modUp.getData(), random);
    const auto words = wordsOf(modUp);
    switcher.embed(modUp, modUp);
    EXPECT_EQ(wordsOf(modUp), words);
}

TEST_F(RingSwitching, ForgetsTheGermOfAnOutput) {
    Polynomial part = emptyPolynomial(64);
    part.setGerm(PolyGerm());
    const Polynomial whole = randomPolynomial(128, 1, random);
    switcher.extract(whole, part);
    EXPECT_FALSE(part.getGerm().has_value());
}

TEST_F(RingSwitching, GivesTheSameInsideAnotherTeam) {
    const auto in = severalOf<Polynomial>(4, [&] { return randomPolynomial(64, 0, random); });
    std::vector<Polynomial> wholes(2, emptyPolynomial(256));
    const auto parts = pointersTo(std::as_const(in));
#pragma omp parallel for num_threads(2)
    for (int t = 0; t < 2; ++t) switcher.combine(parts, wholes[static_cast<unsigned>(t)]);
    Polynomial alone = emptyPolynomial(256);
    switcher.combine(parts, alone);
    EXPECT_EQ(wordsOf(wholes[0]), wordsOf(alone));
    EXPECT_EQ(wordsOf(wholes[1]), wordsOf(alone));
}

// ---- refusals: each breaks one rule and all later ones

TEST_F(RingSwitching, CombineLooksAtDimensionThenFormThenDevice) {
    Polynomial out = emptyPolynomial(128);
    const Polynomial host = emptyPolynomial(64), transformed = inNTT(emptyPolynomial(64));
    const Polynomial elsewhere = onDevice(64, gpu), wide = emptyPolynomial(128);
    EXPECT_REFUSED(switcher.combine(Parts{&transformed, &elsewhere, &host}, out), dimensionsDiffer);
    EXPECT_REFUSED(switcher.combine(Parts{&transformed}, out), dimensionsDiffer);
    EXPECT_REFUSED(switcher.combine(Parts{}, out), dimensionsDiffer);
    EXPECT_REFUSED(switcher.combine(Parts{&elsewhere, &transformed}, out), inNTTForm);
    EXPECT_REFUSED(switcher.combine(Parts{&elsewhere, &host}, out), devicesDiffer);
    EXPECT_REFUSED(switcher.combine(Parts{&elsewhere, &elsewhere}, out), unsupported("combineCUDA"));
    Polynomial shapeless;
    EXPECT_REFUSED(switcher.combine(Parts{}, shapeless), noOperand);
}

TEST_F(RingSwitching, CombineRefusesDegreesThatOnlySumUp) {
    Polynomial out = emptyPolynomial(512);
    const Polynomial narrow = emptyPolynomial(64), middle = emptyPolynomial(128), wide = emptyPolynomial(256);
    EXPECT_REFUSED(switcher.combine(Parts{&middle, &narrow, &narrow, &wide}, out), dimensionsDiffer);
}

TEST_F(RingSwitching, CombineOfElementsLooksAtDimensionThenDevice) {
    Polynomial out = emptyPolynomial(64), shapeless;
    const LevelledElement host(ringOfDegree(64), false), elsewhere = onDevice(pinned);
    std::vector<const LevelledElement*> in(63, &host);
    in[5] = &elsewhere;
    EXPECT_REFUSED(switcher.combine(in, out), dimensionsDiffer);
    in.push_back(&host);
    EXPECT_REFUSED(switcher.combine(in, out), devicesDiffer);
    std::fill(in.begin(), in.end(), &elsewhere);
    EXPECT_REFUSED(switcher.combine(in, out), unsupported("combine"));
    EXPECT_REFUSED(switcher.combine(std::vector<const LevelledElement*>{}, shapeless), noOperand);
}

TEST_F(RingSwitching, CombineBatchLooksAtListThenDeviceThenDegreeThenDimension) {
    Polynomial polynomial = emptyPolynomial(64);
    std::vector<Polynomial*> out(3, &polynomial), none;
    const LevelledVector host(2, 0), elsewhere = vectorOnDevice(2, gpu), wide = vectorOnDevice(3, gpu);
    EXPECT_REFUSED(switcher.combineBatch({}, out), noOperand);
    std::vector<const LevelledVector*> in(63, &host);
    in[5] = &elsewhere;
    EXPECT_REFUSED(switcher.combineBatch(in, out), devicesDiffer);
    std::fill(in.begin(), in.end(), &elsewhere);
    EXPECT_REFUSED(switcher.combineBatch(in, out), vectorsMissDegree);
    in.push_back(&elsewhere);
    EXPECT_REFUSED(switcher.combineBatch(in, out), polynomialsMissDimension);
    EXPECT_REFUSED(switcher.combineBatch(in, none), polynomialsMissDimension);
    std::fill(in.begin(), in.end() - 1, &wide);
    EXPECT_REFUSED(switcher.combineBatch(in, out), polynomialsMissDimension);
    in.back() = &wide;
    EXPECT_REFUSED(switcher.combineBatch(in, out), unsupported("combineBatchCUDA"));
    const LevelledVector onPinned = vectorOnDevice(3, pinned);
    std::fill(in.begin(), in.end(), &onPinned);
    EXPECT_REFUSED(switcher.combineBatch(in, out), unsupported("combineBatch"));
}

TEST_F(RingSwitching, SplitLooksAtDimensionThenFormThenDevice) {
    Polynomial part = emptyPolynomial(64);
    std::vector<Polynomial*> two{&part, &part}, three{&part, &part, &part}, none;
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(128, gpu)), three), dimensionsDiffer);
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(128, gpu)), none), dimensionsDiffer);
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(128, gpu)), two), inNTTForm);
    EXPECT_REFUSED(switcher.split(onDevice(128, gpu), two), unsupported("splitCUDA"));
    EXPECT_REFUSED(switcher.split(onDevice(128, pinned), two), unsupported("split"));
    EXPECT_REFUSED(switcher.split(Polynomial(), none), noOperand);
}

TEST_F(RingSwitching, SplitIntoElementsLooksAtDimensionThenFormThenDevice) {
    LevelledElement element(ringOfDegree(64), false);
    std::vector<LevelledElement*> fewer(63, &element), all(64, &element), none;
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(64, gpu)), fewer), dimensionsDiffer);
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(64, gpu)), all), inNTTForm);
    EXPECT_REFUSED(switcher.split(onDevice(64, gpu), all), unsupported("splitCUDA"));
    EXPECT_REFUSED(switcher.split(onDevice(64, pinned), all), unsupported("split"));
    EXPECT_REFUSED(switcher.split(Polynomial(), none), noOperand);
}

TEST_F(RingSwitching, SplitIntoAVectorLooksAtDimensionThenFormThenDevice) {
    LevelledVector wide(65, 0), vector(64, 0);
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(64, gpu)), wide), dimensionsDiffer);
    EXPECT_REFUSED(switcher.split(inNTT(onDevice(64, gpu)), vector), inNTTForm);
    EXPECT_REFUSED(switcher.split(onDevice(64, gpu), vector), unsupported("splitCUDA"));
    EXPECT_REFUSED(switcher.split(onDevice(64, pinned), vector), unsupported("split"));
}

TEST_F(RingSwitching, EmbedLooksAtDimensionThenFormThenDevice) {
    Polynomial narrow = emptyPolynomial(64), wide = emptyPolynomial(256), shapeless;
    EXPECT_REFUSED(switcher.embed(inNTT(onDevice(128, gpu)), narrow), doesNotDivide);
    EXPECT_REFUSED(switcher.embed(inNTT(onDevice(128, gpu)), shapeless), doesNotDivide);
    EXPECT_REFUSED(switcher.embed(Polynomial(), wide), doesNotDivide);
    EXPECT_REFUSED(switcher.embed(inNTT(onDevice(128, gpu)), wide), inNTTForm);
    EXPECT_REFUSED(switcher.embed(onDevice(128, gpu), wide), unsupported("embedCUDA"));
    EXPECT_REFUSED(switcher.embed(onDevice(128, pinned), wide), unsupported("embed"));
    EXPECT_REFUSED(switcher.embed(onDevice(gpu), wide), unsupported("embedCUDA"));
    EXPECT_REFUSED(switcher.embed(onDevice(pinned), wide), unsupported("embed"));
}

TEST_F(RingSwitching, ExtractLooksAtDimensionThenFormThenDevice) {
    Polynomial narrow = emptyPolynomial(64), wide = emptyPolynomial(256), shapeless;
    LevelledElement element(ringOfDegree(64), false);
    EXPECT_REFUSED(switcher.extract(inNTT(onDevice(128, gpu)), wide), doesNotDivide);
    EXPECT_REFUSED(switcher.extract(inNTT(onDevice(128, gpu)), shapeless), doesNotDivide);
    EXPECT_REFUSED(switcher.extract(inNTT(onDevice(128, gpu)), narrow), inNTTForm);
    EXPECT_REFUSED(switcher.extract(onDevice(128, gpu), narrow), unsupported("extractCUDA"));
    EXPECT_REFUSED(switcher.extract(onDevice(128, pinned), narrow), unsupported("extract"));
    EXPECT_REFUSED(switcher.extract(inNTT(onDevice(128, gpu)), element), inNTTForm);
    EXPECT_REFUSED(switcher.extract(onDevice(128, gpu), element), unsupported("extractCUDA"));
    EXPECT_REFUSED(switcher.extract(onDevice(128, pinned), element), unsupported("extract"));
}

TEST_F(RingSwitching, LeavesAnOutputAsItWasWhenItRefuses) {
    Polynomial out = randomPolynomial(128, 1, random);
    const auto words = wordsOf(out);
    EXPECT_REFUSED(switcher.embed(onDevice(64, pinned), out), unsupported("embed"));
    EXPECT_EQ(wordsOf(out), words);
    EXPECT_EQ(out.getLevel(), 1u);
    EXPECT_EQ(out.getDevice(), Device{});
}

} // namespace
} // namespace Torvo::test
