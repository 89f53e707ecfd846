#include "context/ContextContent.hpp"

#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "support/Expect.hpp"

#include <string>

namespace Torvo {
namespace {

using enum ParameterPreset;

/// Degree 64, base prime of 60 bits.
Context custom(u64 chain_length = 4, u64 gadget_rank = 2, u64 log_qpsize = 40, u64 log_tpsize = 61,
               u64 log_bpsize = 60, u64 log_degree = 6) {
    return makeContext(log_degree, chain_length, log_bpsize, log_qpsize, log_tpsize, gadget_rank);
}

struct KnownHash {
    ParameterPreset preset;
    u64 hash;
};

/// Printed by tools/context_hash.py.
constexpr KnownHash knownHashes[] = {
    {FVa, 0x946a8e87f7953204},       {FVb, 0x1d9f58630ea7efac},      {FGa, 0xd1d77de62a171a25},
    {FGb, 0x84a9a504ce7b5256},       {FTa, 0x4dfd36716bd47b1e},      {FTb, 0x3761113528ebac1e},
    {ST19, 0xabcf7b496ce39514},      {ST14, 0x7107030b8cd9426a},     {ST11, 0x8489c6957ac568ac},
    {ST8, 0x4efd91d7e1ec6cb9},       {ST7, 0x1c6890089d58e705},      {SS7, 0x8ffeea59f2bbb3d8},
    {SD3, 0x47cc5d4b28cb03a6},       {FVc, 0x8a24f338e70f49da},      {FX, 0x78584d3393a816b4},
    {FGd, 0x84a9a504ce7b5256},       {SGd0, 0x6f6f99539962fae0},     {SD3D6R2, 0xc33a9bdb8db74421},
    {FGbL0, 0x9eca329d67556f37},     {FGbD12L0, 0xbd37953c6022088a}, {FGbD8R4L0, 0x454167d8d5eda91f},
    {FGbD6R6L0, 0xd2fb9d6e302412d9},
};

TEST(ContextContent, HashOfEveryPresetIsTheKnownOne) {
    for (const auto& [preset, hash] : knownHashes) {
        const Parameter parameter(preset);
        EXPECT_EQ(computeContextHash(getPrimeList(preset), parameter.degree), hash) << parameter.name;
    }
}

TEST(ContextContent, ContextsCarryTheHashOfTheirRing) {
    EXPECT_EQ(makeContext(FX)->context_hash, 0x78584d3393a816b4);
    EXPECT_EQ(makeContext(SD3D6R2)->context_hash, 0xc33a9bdb8db74421);
    EXPECT_EQ(makeContext(FGbD12L0)->context_hash, 0xbd37953c6022088a);
    EXPECT_EQ(makeContext(FGbD8R4L0)->context_hash, 0x454167d8d5eda91f);
    EXPECT_EQ(makeContext(FGbD6R6L0)->context_hash, 0xd2fb9d6e302412d9);
    const auto own = custom();
    EXPECT_EQ(own->context_hash, computeContextHash(getPrimeList(own), 64));
}

/// The hash depends on neither preset nor rank: a custom ring with the chain of another is the same ring.
TEST(ContextContent, HashDependsOnChainOrderAndDegreeAlone) {
    EXPECT_NE(computeContextHash({3, 5}, 64), computeContextHash({5, 3}, 64));
    EXPECT_NE(computeContextHash({3, 5}, 64), computeContextHash({3, 5}, 128));
    EXPECT_NE(computeContextHash({3, 5}, 64), computeContextHash({3}, 64));
    EXPECT_EQ(custom(4, 2)->context_hash, custom(4, 2)->context_hash);
}

TEST(ContextContent, HoldsWhatItsParameterSays) {
    const auto context = makeContext(FX);
    EXPECT_TRUE(context->devices.empty());
    EXPECT_EQ(context->parameter.name, "FX");
    EXPECT_EQ(context->primes.size(), 30u);
    EXPECT_EQ(context->primes.getDegree(), 64u);
    EXPECT_EQ(context->scale_factors.log_scale, ScaleFactors(FGb).log_scale);
    EXPECT_EQ(context->fft.getDegree(), 64u);
}

TEST(ContextContent, CustomContextHoldsWhatItsNumbersSay) {
    const auto context = custom(6, 3, 45, 61, 58, 7);
    EXPECT_EQ(context->parameter.preset, CUSTOM);
    EXPECT_EQ(context->primes.size(), 8u);
    EXPECT_EQ(context->primes.getDegree(), 128u);
    EXPECT_EQ(context->scale_factors.log_scale.size(), 8u);
    EXPECT_EQ(context->fft.getDegree(), 128u);
    EXPECT_EQ(context->parameter.log_bpsize, 58u);
    EXPECT_EQ(context->parameter.log_qpsize, 45u);
    EXPECT_EQ(context->parameter.log_tpsize, 61u);
}

TEST(ContextContent, RingIsWhatLowerLayersSeeOfIt) {
    const auto context = makeContext(SD3D6R2);
    const Ring ring = ringOf(context);
    EXPECT_EQ(&context->primes, &context->primes);
    EXPECT_EQ(ring.degree, 64u);
    EXPECT_EQ(ring.rank, 4u);
    EXPECT_EQ(ring.numBase, 4u);
    EXPECT_EQ(ring.numTemp, 1u);
    EXPECT_EQ(ring.gadget_rank, 4u);
    EXPECT_EQ(ring.context_hash, context->context_hash);
    EXPECT_EQ(ring.total(), 5u);
    EXPECT_EQ(ring.groupSize(), 1u);
}

TEST(ContextContent, PresetContextsAreEqualByTheNameOfTheirPreset) {
    const auto a = makeContext(FX), b = makeContext(FX), other = makeContext(SD3D6R2);
    EXPECT_TRUE(*a == *b);
    EXPECT_FALSE(*a != *b);
    EXPECT_TRUE(*a != *other);
}

TEST(ContextContent, EqualPrimesDoNotMakePresetsEqual) {
    const auto a = makeContext(FGbD8R4L0), b = makeContext(FGbD6R6L0);
    EXPECT_EQ(getPrimeList(a), getPrimeList(b));
    EXPECT_TRUE(*a != *b);
}

TEST(ContextContent, CustomContextsAreEqualByTheirNumbers) {
    EXPECT_TRUE(*custom() == *custom());
    EXPECT_TRUE(*custom() != *custom(4, 2, 40, 61, 60, 7)); // log_degree
    EXPECT_TRUE(*custom() != *custom(4, 2, 40, 61, 59));    // log_bpsize
    EXPECT_TRUE(*custom() != *custom(4, 2, 40, 60));        // log_tpsize
    EXPECT_TRUE(*custom() != *custom(4, 2, 41));            // log_qpsize
    EXPECT_TRUE(*custom(6, 3) != *custom(4, 2));            // gadget_rank, both with two temporary primes
    EXPECT_TRUE(*custom(6, 2) != *custom(4, 2));            // numTP
}

TEST(ContextContent, ACustomContextEqualsNoPresetWhateverItsPrimes) {
    auto preset = makeContext(FGbD12L0), own = custom();
    own->parameter.log_degree = preset->parameter.log_degree;
    own->parameter.numTP = preset->parameter.numTP;
    own->parameter.gadget_rank = preset->parameter.gadget_rank;
    own->parameter.log_bpsize = own->parameter.log_qpsize = own->parameter.log_tpsize = 0;
    EXPECT_TRUE(*preset != *own);
    EXPECT_TRUE(*own != *preset);
}

TEST(ContextContent, IsSameContextComparesParametersWhereTheOperatorComparesPointers) {
    const Context a = custom(), b = custom(), fx = makeContext(FX);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(isSameContext(a, b));
    EXPECT_TRUE(isSameContext(fx, makeContext(FX)));
    EXPECT_FALSE(isSameContext(a, fx));
    EXPECT_FALSE(isSameContext(fx, a));
    EXPECT_FALSE(isSameContext(a, custom(4, 2, 41)));
}

TEST(ContextContentRealPreset, HashAndPrimesAreThoseOfTheList) {
    const auto context = makeContext(SD3);
    EXPECT_EQ(context->context_hash, 0x47cc5d4b28cb03a6);
    EXPECT_EQ(getPrimeList(context), getPrimeList(SD3));
}

TEST(ContextContentRealPreset, FgbIsMadeOnTheHost) {
    const auto context = makeContext(FGb, {});
    EXPECT_EQ(context->context_hash, 0x84a9a504ce7b5256);
    EXPECT_EQ(getLogFullSlots(context), 15u);
    EXPECT_EQ(getPrimeList(context), getPrimeList(FGb));
}

} // namespace
} // namespace Torvo
