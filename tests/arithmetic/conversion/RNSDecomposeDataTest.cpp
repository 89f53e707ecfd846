#include "arithmetic/conversion/RNSDecomposeData.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "support/BigIntegers.hpp"
#include "support/Expect.hpp"

#include <gtest/gtest.h>

namespace Torvo {

namespace {

using namespace test;

struct Shape {
    u64 chainLength, gadgetRank, logTemporary;
};

Context contextOf(const Shape& shape) {
    return makeContext(6, shape.chainLength, 50, 42, shape.logTemporary, shape.gadgetRank);
}

// Digits of one prime, of two, of three, one digit for all.
const std::vector<Shape> shapes{{3, 3, 51}, {4, 2, 50}, {6, 2, 50}, {6, 1, 50}, {1, 1, 51}};

BigInt digitModulus(const Context& context, u64 g) {
    const u64 length = getPrimeList(context).size();
    const Ring ring = ringOf(context);
    EXPECT_EQ(ring.numBase + ring.numTemp, length);
    const u64 size = ring.numBase / ring.gadget_rank;
    return productOf(slice(getPrimeList(context), g * size, (g + 1) * size));
}

BigInt chainModulus(const Context& context) {
    return productOf(slice(getPrimeList(context), 0, ringOf(context).numBase));
}

} // namespace

TEST(RNSDecomposeData, TablesHoldTheProductsOfTheirDefinition) {
    for (const Shape& shape : shapes) {
        const Context context = contextOf(shape);
        const Ring ring = ringOf(context);
        const auto primes = getPrimeList(context);
        const BigInt P = productOf(slice(primes, ring.numBase, primes.size()));
        const RNSDecomposeData data(context);
        for (u64 i = 0; i < ring.numBase; ++i) {
            SCOPED_TRACE(testing::Message()
                         << "chain " << shape.chainLength << " digits " << shape.gadgetRank << " i=" << i);
            const u64 g = i / (shape.chainLength / shape.gadgetRank);
            const BigInt hat = chainModulus(context) / digitModulus(context, g);
            EXPECT_EQ(data.getPMod(Device{})[i], wordResidueOf(P, primes[i]));
            EXPECT_EQ(data.getHatQMod(Device{})[i], wordResidueOf(hat, primes[i]));
            EXPECT_EQ(data.getHatQInvMod(Device{})[i], wordResidueOf(inverseOf(hat, primes[i]), primes[i]));
        }
    }
}

// The sum over the digits g of hatQ_g * (hatQ_g^-1 mod Q_g) is 1 modulo every prime: so digits times gadget
// elements add up to P times the polynomial.
TEST(RNSDecomposeData, GadgetElementsAreOneOnTheirDigitAndZeroElsewhere) {
    const Context context = makeContext(ParameterPreset::FX);
    const Ring ring = ringOf(context);
    const auto primes = getPrimeList(context);
    const RNSDecomposeData data(context);
    for (u64 i = 0; i < ring.numBase; ++i) {
        const BigInt product = BigInt(data.getHatQMod(Device{})[i]) * data.getHatQInvMod(Device{})[i];
        EXPECT_EQ(product % primes[i], 1) << "i=" << i;
        for (u64 g = 0; g < ring.gadget_rank; ++g) {
            const bool isOwn = ring.digitBegin(g) <= i && i < ring.digitEnd(g);
            const BigInt hat = chainModulus(context) / digitModulus(context, g);
            EXPECT_EQ(hat % primes[i] == 0, !isOwn) << "i=" << i << " g=" << g;
        }
    }
}

TEST(RNSDecomposeData, ADeviceWithoutTablesIsNotFound) {
    const RNSDecomposeData data(contextOf(shapes.front()));
    for (const Device device : {Device{DeviceType::GPU, 0}, Device{DeviceType::CPU, 1}}) {
        EXPECT_THROW_TEXT(data.getPMod(device), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(data.getHatQMod(device), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(data.getHatQInvMod(device), std::out_of_range, "map::at");
    }
    EXPECT_EQ(data.getHatQInvMod(Device{})[0] != 0, true); // the locks were given back
}

} // namespace Torvo
