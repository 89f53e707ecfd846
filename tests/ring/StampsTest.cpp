#include "support/Stamps.hpp"
#include "context/LWEContextContent.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"
#include "support/RingPhases.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

/// Packing puts the owed rescales of its inputs, full slots of its own ring and coefficients on its outputs.
namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;

constexpr u64 chainLength = 3, level = 2;
constexpr RingPacker packer;

/// What a packing into `context` leaves of inputs that owe one rescale.
SeenStamp leftIn(const Context& context) {
    return {getLogFullSlots(context), 1, EncodingType::Coefficient};
}

template <EncryptionType E>
std::vector<CiphertextBase<E>> several(const Context& context, u64 count) {
    Seeded random(991);
    std::vector<CiphertextBase<E>> ciphertexts;
    for (u64 j = 0; j < count; ++j) {
        ciphertexts.push_back(randomOnCoefficients<E>(context, level, random));
        ciphertexts.back().setLogSlots(2);
        ciphertexts.back().setRescaleCounter(1);
    }
    return ciphertexts;
}

/// Outputs that have nothing in common with what is to be left on them, some not even the encoding type.
template <EncryptionType E = RLWE>
std::vector<CiphertextBase<E>> outputs(const Context& context) {
    std::vector<CiphertextBase<E>> all;
    for (const auto& used : usedOutputs<E>(context))
        for (const EncodingType encoding : {EncodingType::Slot, EncodingType::Coefficient})
            all.push_back(stampedOtherwise(used, leftIn(context), encoding));
    return all;
}

TEST(Stamps, OfAComposedCiphertext) {
    const Context small = familyRing(6, chainLength), large = familyRing(8, chainLength);
    const SecretKey smallKey(small), largeKey(large);
    const KeyGenerator generator(large, largeKey);
    const RingSwitchKey key = generator.genComposeKey(smallKey);
    for (const u64 count : {4, 1}) {
        const auto in = several<RLWE>(small, count);
        for (Ciphertext& out : outputs(large)) {
            packer.compose(pointersTo(in), key, out);
            EXPECT_EQ(stampOf(out), leftIn(large));
        }
    }
    // One that is its own output.
    auto itself = several<RLWE>(large, 1);
    packer.compose({itself.data()}, generator.genComposeKey(SecretKey(large)), itself.front());
    EXPECT_EQ(stampOf(itself.front()), leftIn(large));
}

TEST(Stamps, OfTheParts) {
    const Context small = familyRing(6, chainLength), large = familyRing(8, chainLength);
    const SecretKey smallKey(small), largeKey(large);
    const KeyGenerator generator(large, largeKey);
    const RingSwitchKey key = generator.genDecomposeKey(large, smallKey);
    const Ciphertext in = several<RLWE>(large, 1).front();
    for (const Ciphertext& used : outputs(small))
        for (const u64 count : {4, 1}) {
            std::vector<Ciphertext> parts(count, used);
            auto pointers = pointersTo(parts);
            packer.decompose(in, key, pointers);
            for (const Ciphertext& part : parts) EXPECT_EQ(stampOf(part), leftIn(small));
        }
    Ciphertext itself = in;
    std::vector<Ciphertext*> over{&itself};
    packer.decompose(itself, generator.genDecomposeKey(large, SecretKey(large)), over);
    EXPECT_EQ(stampOf(itself), leftIn(large));
}

template <EncryptionType E>
void expectPacked(const Context& to) {
    const Context module = familyModule(6, chainLength, 4), whole = familyRing(8, chainLength);
    const SecretKeyBase<MLWE> from(module);
    const SecretKeyBase<E> toKey(to);
    const ModPackKeyBundle keys = KeyGenerator(whole).genModPackKeyBundle(from, toKey);
    const auto in = several<MLWE>(module, getDegree(to) >> 6);
    for (CiphertextBase<E>& out : outputs<E>(to)) {
        out.setNumPoly(getRank(to) + 1); // or the keys do not fit it
        packer.modPack(pointersTo(in), keys, out);
        EXPECT_EQ(stampOf(out), leftIn(to));
    }
}

TEST(Stamps, OfPackedModules) {
    expectPacked<RLWE>(familyRing(8, chainLength));
    expectPacked<MLWE>(familyModule(7, chainLength, 2));
}

TEST(Stamps, OfPackedAndUnpackedNumbers) {
    const Context ring = smallRingOfSD3();
    const LWE::Context numbers = LWE::makeContext(LWE::ParameterPreset::SD3);
    const ModPackKeyBundle keys =
        KeyGenerator(ring).genModPackKeyBundle(LWE::SecretKey(numbers), SecretKey(ring));
    Seeded random(992);
    std::vector<LWE::Ciphertext> in;
    for (u64 j = 0; j < 64; ++j) {
        in.push_back(randomNumber(numbers, level, random));
        in.back().setRescaleCounter(1);
    }
    for (Ciphertext& out : outputs(ring)) {
        out.setNumPoly(2);
        packer.modPack(pointersTo(std::as_const(in)), keys, out);
        EXPECT_EQ(stampOf(out), leftIn(ring));
    }

    const LWE::Context unpacked = LWE::makeContext(LWE::ParameterPreset::SD3);
    unpacked->parameter.dimension = 64; // no preset has both forms at this degree
    std::vector<LWE::Ciphertext> outs(64, LWE::Ciphertext(unpacked));
    for (LWE::Ciphertext& out : outs) out.setRescaleCounter(2);
    packer.unPack(several<RLWE>(ring, 1).front(), pointersTo(outs));
    for (const LWE::Ciphertext& out : outs) EXPECT_EQ(out.getRescaleCounter(), 1);
}

} // namespace
} // namespace Torvo
