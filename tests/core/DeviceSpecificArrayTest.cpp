#include "core/DeviceSpecificArray.hpp"
#include "support/Expect.hpp"
#include "support/Sanitizer.hpp"

#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <utility>
#include <vector>

namespace Torvo {
namespace {

constexpr Device cpu{DeviceType::CPU, 0}, otherCpu{DeviceType::CPU, 1}, gpu{DeviceType::GPU, 0},
    pinned{DeviceType::PinnedHost, 0}, unknown{DeviceType{2}, 0};
constexpr const char* noCopy = "Not supported. Build with TORVO_CUDA flag.";
constexpr const char* noAllocation =
    "Cannot support the function 'doAllocate' in the current build configuration";
constexpr const char* noResource = "Cannot find a proper memory resource for the requested device.";
const CudaStreamView otherStream{7};

using Array = DeviceSpecificArray<u64>;

Array counting(std::size_t size) {
    Array array(size);
    std::iota(array.begin(), array.end(), u64{100});
    return array;
}

std::vector<u64> wordsOf(const Array& array) {
    return {array.begin(), array.end()};
}

template <class T>
class EveryElementType : public testing::Test {};
using ElementTypes = testing::Types<u64, u64*, double, std::complex<double>, int, bool, u128, i128>;
TYPED_TEST_SUITE(EveryElementType, ElementTypes);

TYPED_TEST(EveryElementType, CountsItsBytesAndIsAligned) {
    const DeviceSpecificArray<TypeParam> array(5);
    EXPECT_EQ(array.size(), 5u);
    EXPECT_EQ(array.capacity(), 5u);
    EXPECT_EQ(array.sizeInBytes(), 5 * sizeof(TypeParam));
    EXPECT_EQ(array.capacityInBytes(), 5 * sizeof(TypeParam));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(array.getData()) % 32, 0u);
}

TYPED_TEST(EveryElementType, CopiesHoldEqualElementsElsewhere) {
    DeviceSpecificArray<TypeParam> array(3);
    array[0] = array[1] = array[2] = TypeParam{};
    const auto copy = array;
    EXPECT_NE(copy.getData(), array.getData());
    EXPECT_TRUE(copy[0] == TypeParam{} && copy[1] == TypeParam{} && copy[2] == TypeParam{});
}

TEST(DeviceSpecificArray, IsClearedFromAPlaceOn) {
    Array array = counting(6);
    array.resize(5);
    array.clear(3);
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102, 0, 0}));
    EXPECT_EQ(array.getData()[5], 105u); // beyond its size
    array.clear(9);
    EXPECT_EQ(array[2], 102u);
    array.clear();
    EXPECT_EQ(wordsOf(array), std::vector<u64>(5));
    Array onPinned(2, pinned, getDefaultStream());
    onPinned.clear(); // has no memory that the host could write
    EXPECT_EQ(onPinned.getData(), nullptr);
}

TEST(DeviceSpecificArray, DefaultIsEmptyOnTheHost) {
    const Array array;
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(array.capacityInBytes(), 0u);
    EXPECT_EQ(array.getData(), nullptr);
    EXPECT_EQ(array.getDevice(), cpu);
    EXPECT_EQ(array.getStream(), getDefaultStream());
}

TEST(DeviceSpecificArray, WithoutElementsItIsNullOnAnyKindOfDevice) {
    for (const Device& device : {cpu, gpu, pinned}) {
        const Array array(0, device, otherStream);
        EXPECT_EQ(array.getData(), nullptr);
        EXPECT_EQ(array.capacityInBytes(), 0u);
        EXPECT_EQ(array.getDevice(), device);
        EXPECT_EQ(array.getStream(), otherStream);
    }
}

TEST(DeviceSpecificArray, AllocationOnAGpuIsRefused) {
    EXPECT_REFUSED(Array(1, gpu, getDefaultStream()), noAllocation);
}

TEST(DeviceSpecificArray, AllocationOnAnUnknownKindOfDeviceIsRefusedEvenWhenEmpty) {
    EXPECT_REFUSED(Array(0, unknown, getDefaultStream()), noResource);
}

TEST(DeviceSpecificArray, PinnedMemoryIsNullButCounted) {
    const Array array(4, pinned, getDefaultStream());
    EXPECT_EQ(array.getData(), nullptr);
    EXPECT_EQ(array.capacityInBytes(), 32u);
    EXPECT_EQ(array.size(), 4u);
}

TEST(DeviceSpecificArray, CountsThatOverflowTheBytesFailAsAllocationsDo) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    EXPECT_THROW(Array(std::numeric_limits<std::size_t>::max() / 8 + 1), std::bad_alloc);
    Array array = counting(3);
    EXPECT_THROW(array.resize(std::size_t{1} << 61), std::bad_alloc);
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102}));
}

TEST(DeviceSpecificArray, CopyTakesSizeDeviceAndStreamOfTheSource) {
    Array source(2, otherCpu, otherStream);
    source[0] = 1, source[1] = 2;
    source.resize(1);
    const Array copy(source);
    EXPECT_EQ(copy.getDevice(), otherCpu);
    EXPECT_EQ(copy.getStream(), otherStream);
    EXPECT_EQ(copy.capacity(), 1u);
    EXPECT_EQ(wordsOf(copy), std::vector<u64>{1});
}

TEST(DeviceSpecificArray, CopyAssignmentKeepsAnAllocationThatSuffices) {
    Array target = counting(8);
    const u64* before = target.getData();
    const Array source = counting(3);
    target = source;
    EXPECT_EQ(target.getData(), before);
    EXPECT_EQ(target.capacity(), 8u);
    EXPECT_EQ(wordsOf(target), wordsOf(source));
}

TEST(DeviceSpecificArray, CopyAssignmentTakesANewAllocationWhenTheOldIsTooSmall) {
    Array target = counting(2);
    const Array source = counting(3);
    target = source;
    EXPECT_EQ(target.capacity(), 3u);
    EXPECT_EQ(wordsOf(target), wordsOf(source));
}

TEST(DeviceSpecificArray, CopyAssignmentAcrossDevicesOrStreamsTakesThoseOfTheSource) {
    for (const auto& [device, stream] : {std::pair{otherCpu, getDefaultStream()}, {cpu, otherStream}}) {
        Array target = counting(8);
        Array source(1, device, stream);
        source[0] = 5;
        target = source;
        EXPECT_EQ(target.getDevice(), device);
        EXPECT_EQ(target.getStream(), stream);
        EXPECT_EQ(target.capacity(), 1u);
        EXPECT_EQ(wordsOf(target), std::vector<u64>{5});
    }
}

TEST(DeviceSpecificArray, SelfAssignmentChangesNothing) {
    Array array = counting(3);
    const u64* before = array.getData();
    const auto& self = array;
    array = self;
    EXPECT_EQ(array.getData(), before);
    array = std::move(const_cast<Array&>(self));
    EXPECT_EQ(array.getData(), before);
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102}));
}

TEST(DeviceSpecificArray, MoveLeavesTheSourceEmptyOnTheHostAndReassignable) {
    Array source(2, otherCpu, otherStream);
    source[0] = 1, source[1] = 2;
    const u64* data = source.getData();
    const Array target(std::move(source));
    EXPECT_EQ(target.getData(), data);
    EXPECT_EQ(target.getDevice(), otherCpu);
    EXPECT_EQ(target.getStream(), otherStream);
    EXPECT_EQ(source.getDevice(), cpu);
    EXPECT_EQ(source.getStream(), getDefaultStream());
    EXPECT_EQ(source.size(), 0u);
    EXPECT_EQ(source.getData(), nullptr);
    source = target;
    EXPECT_EQ(wordsOf(source), (std::vector<u64>{1, 2}));
}

TEST(DeviceSpecificArray, MoveAssignmentTradesTheAllocations) {
    Array target = counting(5), source = counting(2);
    const u64 *targetData = target.getData(), *sourceData = source.getData();
    target = std::move(source);
    EXPECT_EQ(target.getData(), sourceData);
    EXPECT_EQ(target.size(), 2u);
    EXPECT_EQ(source.getData(), targetData);
    EXPECT_EQ(source.size(), 5u);
}

TEST(DeviceSpecificArray, ShrinkingAndGrowingBackKeepsElementsAndPointer) {
    Array array = counting(6);
    const u64* before = array.getData();
    array.resize(2);
    EXPECT_EQ(array.size(), 2u);
    EXPECT_EQ(array.capacity(), 6u);
    array.resize(6);
    EXPECT_EQ(array.getData(), before);
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102, 103, 104, 105}));
}

TEST(DeviceSpecificArray, GrowingKeepsElementsDeviceAndStream) {
    Array array(2, otherCpu, otherStream);
    array[0] = 8, array[1] = 9;
    array.resize(5);
    EXPECT_EQ(array.capacity(), 5u);
    EXPECT_EQ(array.getDevice(), otherCpu);
    EXPECT_EQ(array.getStream(), otherStream);
    EXPECT_EQ(array[0], 8u);
    EXPECT_EQ(array[1], 9u);
}

TEST(DeviceSpecificArray, ToItsOwnDeviceReplacesTheStreamOnly) {
    Array array = counting(3);
    const u64* before = array.getData();
    array.to(cpu, otherStream);
    EXPECT_EQ(array.getData(), before);
    EXPECT_EQ(array.getStream(), otherStream);
    array.to(cpu);
    EXPECT_EQ(array.getStream(), getDefaultStream());
}

TEST(DeviceSpecificArray, ToAnotherHostMovesTheElements) {
    Array array = counting(6);
    array.resize(3);
    array.to(otherCpu, otherStream);
    EXPECT_EQ(array.getDevice(), otherCpu);
    EXPECT_EQ(array.getStream(), otherStream);
    EXPECT_EQ(array.capacity(), 3u);
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102}));
}

TEST(DeviceSpecificArray, FailedMovesLeaveTheArrayUnchanged) {
    Array array = counting(3);
    const u64* before = array.getData();
    EXPECT_REFUSED(array.to(gpu), noAllocation);
    EXPECT_REFUSED(array.to(pinned, otherStream), noCopy);
    EXPECT_REFUSED(array.to(unknown), noResource);
    EXPECT_EQ(array.getData(), before);
    EXPECT_EQ(array.getDevice(), cpu);
    EXPECT_EQ(array.getStream(), getDefaultStream());
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101, 102}));
}

TEST(DeviceSpecificArray, OnlyHostToHostCopies) {
    Array host = counting(1), onGpu(0, gpu, getDefaultStream()), onPinned(1, pinned, getDefaultStream());
    EXPECT_REFUSED(host.copyDataFrom(onGpu), noCopy);
    EXPECT_REFUSED(host.copyDataFrom(onPinned), noCopy);
    EXPECT_REFUSED(onGpu.copyDataFrom(host), noCopy);
    EXPECT_REFUSED(onGpu.copyDataFrom(onGpu), noCopy);
    EXPECT_REFUSED(onPinned.copyDataFrom(host), noCopy);
    EXPECT_REFUSED(onPinned.copyDataFrom(onPinned), noCopy);
    EXPECT_REFUSED(Array{onGpu}, noCopy);
    EXPECT_REFUSED(host = onPinned, noCopy);
    EXPECT_EQ(wordsOf(host), std::vector<u64>{100});
}

TEST(DeviceSpecificArray, FailedResizeLeavesTheArrayUnchanged) {
    Array onGpu(0, gpu, getDefaultStream()), onPinned(1, pinned, getDefaultStream());
    EXPECT_REFUSED(onGpu.resize(1), noAllocation);
    EXPECT_EQ(onGpu.size(), 0u);
    EXPECT_REFUSED(onPinned.resize(2), noCopy);
    EXPECT_EQ(onPinned.size(), 1u);
    EXPECT_EQ(onPinned.capacityInBytes(), 8u);
}

TEST(DeviceSpecificArray, CopyDataChangesNeitherSize) {
    Array target = counting(4);
    Array source(2);
    source[0] = 1, source[1] = 2;
    target.copyDataFrom(source, otherStream);
    EXPECT_EQ(source.size(), 2u);
    EXPECT_EQ(target.getStream(), getDefaultStream());
    EXPECT_EQ(wordsOf(target), (std::vector<u64>{1, 2, 102, 103}));
}

TEST(DeviceSpecificArray2D, IsAnArrayWithAShape) {
    DeviceSpecificArray2D<u64> table(3, 4);
    std::iota(table.begin(), table.end(), u64{0});
    EXPECT_EQ(table.size(), 12u);
    EXPECT_EQ(table.rows(), 3u);
    EXPECT_EQ(table.columns(), 4u);
    EXPECT_EQ(table.row(2)[1], 9u);
    const auto copy = table;
    EXPECT_EQ(copy.columns(), 4u);
    EXPECT_EQ(copy.row(1)[0], 4u);
}

// ---- borrowed memory

/// Words of an owner that tells whether it is still there.
struct Lender {
    std::shared_ptr<const std::vector<u64>> words =
        std::make_shared<const std::vector<u64>>(std::vector<u64>{100, 101, 102, 103});

    Array lend() const { return Array::borrowed(words, words->data(), words->size()); }
    long borrowers() const { return words.use_count() - 1; }
};

TEST(BorrowedArray, ReadsTheWordsWhereTheyLie) {
    const Lender lender;
    const Array array = lender.lend();
    EXPECT_EQ(array.getData(), lender.words->data());
    EXPECT_EQ(array.size(), 4u);
    EXPECT_EQ(array.sizeInBytes(), 32u);
    EXPECT_EQ(array.capacity(), 0u);
    EXPECT_EQ(array.getDevice(), cpu);
    EXPECT_EQ(wordsOf(array), *lender.words);
}

TEST(BorrowedArray, KeepsTheOwnerUntilTheLastOneGoes) {
    const Lender lender;
    {
        const Array first = lender.lend();
        Array second = lender.lend();
        EXPECT_EQ(lender.borrowers(), 2);
        const Array moved = std::move(second);
        EXPECT_EQ(lender.borrowers(), 2);
        EXPECT_EQ(moved.getData(), lender.words->data());
    }
    EXPECT_EQ(lender.borrowers(), 0);
}

TEST(BorrowedArray, OfNothingKeepsNobody) {
    const Lender lender;
    const Array array = Array::borrowed(lender.words, lender.words->data(), 0);
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(lender.borrowers(), 0);
}

TEST(BorrowedArray, IsCopiedToAnArrayLikeAnyOther) {
    const Lender lender;
    const Array array = lender.lend();
    Array copy = array;
    EXPECT_EQ(copy.capacity(), 4u);
    copy[0] = 7;
    EXPECT_EQ(array[0], 100u);
    EXPECT_EQ(lender.borrowers(), 1);
}

// The lent words are constants: to write to them would be seen, or end the process.
TEST(BorrowedArray, IsAssignedToInMemoryOfItsOwn) {
    const Lender lender;
    for (const std::size_t size : {std::size_t{1}, std::size_t{4}, std::size_t{9}}) {
        Array array = lender.lend();
        array = counting(size);
        EXPECT_EQ(wordsOf(array), wordsOf(counting(size)));
        const Array other = counting(size);
        Array again = lender.lend();
        again = other;
        EXPECT_EQ(wordsOf(again), wordsOf(other));
        EXPECT_NE(again.getData(), lender.words->data());
    }
    EXPECT_EQ(lender.borrowers(), 0);
    EXPECT_EQ(wordsOf(lender.lend()), (std::vector<u64>{100, 101, 102, 103}));
}

TEST(BorrowedArray, GrowsInMemoryOfItsOwnAndShrinksWhereItIs) {
    const Lender lender;
    Array array = lender.lend();
    array.resize(4);
    EXPECT_EQ(array.getData(), lender.words->data());
    array.resize(2);
    EXPECT_EQ(array.getData(), lender.words->data());
    EXPECT_EQ(wordsOf(array), (std::vector<u64>{100, 101}));
    array.resize(3);
    EXPECT_NE(array.getData(), lender.words->data());
    EXPECT_EQ(array[1], 101u);
    EXPECT_EQ(lender.borrowers(), 0);
}

TEST(BorrowedArray, MovesToAnotherDeviceAsACopy) {
    const Lender lender;
    Array array = lender.lend();
    array.to(otherCpu);
    EXPECT_NE(array.getData(), lender.words->data());
    EXPECT_EQ(wordsOf(array), *lender.words);
    EXPECT_EQ(lender.borrowers(), 0);
}

} // namespace
} // namespace Torvo
