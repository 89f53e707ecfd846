#include <Torvo/Message.hpp>

#include "support/Expect.hpp"

#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;

constexpr Device cpu{DeviceType::CPU, 0}, otherCpu{DeviceType::CPU, 1}, gpu{DeviceType::GPU, 0};
constexpr const char* noPowerOfTwo = "[Message] The size of message must be a power of two";
constexpr const char* noAllocation =
    "Cannot support the function 'doAllocate' in the current build configuration";

std::vector<Complex> slotsOf(const Message& message) {
    return {message.begin(), message.end()};
}

const std::vector<Complex> four{{1, 2}, {3, 4}, {-5, 6}, {0, -1}};

TEST(Message, DefaultIsEmptyOnTheHost) {
    const Message message;
    EXPECT_TRUE(message.isEmpty());
    EXPECT_EQ(message.getSize(), 0u);
    EXPECT_EQ(message.getLogSlots(), 0u);
    EXPECT_EQ(message.getDevice(), cpu);
    EXPECT_EQ(message.begin(), message.end());
}

TEST(Message, OfLogSlotsHasTwoToThatPower) {
    for (unsigned long logSlots = 0; logSlots <= 16; ++logSlots) {
        const Message message(logSlots);
        EXPECT_EQ(message.getSize(), 1ul << logSlots);
        EXPECT_EQ(message.getLogSlots(), logSlots);
        EXPECT_FALSE(message.isEmpty());
        EXPECT_EQ(message.getDevice(), cpu);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(message.begin()) % 32, 0u);
    }
}

TEST(Message, OfOneSlotDiffersFromAnEmptyOneBySizeAlone) {
    const Message one(0), none;
    EXPECT_EQ(one.getLogSlots(), none.getLogSlots());
    EXPECT_EQ(one.getSize(), 1u);
    EXPECT_NE(one.isEmpty(), none.isEmpty());
}

TEST(Message, OfMoreSlotsThanMemoryHasFailsInTheAllocator) {
    for (const unsigned long logSlots : {60ul, 63ul, 64ul, ~0ul})
        EXPECT_THROW(Message{logSlots}, std::bad_alloc) << logSlots;
}

TEST(Message, OfAValueHasItInEverySlot) {
    const Message message(2, Complex(0.5, -3));
    EXPECT_EQ(slotsOf(message), std::vector<Complex>(4, Complex(0.5, -3)));
}

TEST(Message, OfAVectorIsItsCopy) {
    const Message message(four);
    EXPECT_EQ(slotsOf(message), four);
    EXPECT_EQ(message.getLogSlots(), 2u);
    EXPECT_TRUE(Message(std::vector<Complex>{}).isEmpty());
    EXPECT_EQ(Message(std::vector<Complex>{{7, 0}}).getSize(), 1u);
}

TEST(Message, OfAVectorWhoseSizeIsNoPowerOfTwoIsRefused) {
    for (const std::size_t size : {3ul, 5ul, 6ul, 7ul, 12ul, 1000ul})
        EXPECT_REFUSED(Message(std::vector<Complex>(size)), noPowerOfTwo);
}

TEST(Message, SlotsAreReadAndWrittenByIndex) {
    Message message(four);
    message[2] = {9, 9};
    EXPECT_EQ(std::as_const(message)[2], Complex(9, 9));
    EXPECT_EQ(&message[1], message.begin() + 1);
    EXPECT_EQ(message.end() - message.begin(), 4);
    EXPECT_EQ(std::as_const(message).begin(), message.begin());
    EXPECT_EQ(std::as_const(message).end(), message.end());
}

TEST(Message, ResizeTakesAnyCountAndKeepsTheLeadingSlots) {
    Message message(four);
    message.resize(3);
    EXPECT_EQ(message.getSize(), 3u);
    EXPECT_EQ(message.getLogSlots(), 1u);
    EXPECT_EQ(message[2], four[2]);
    message.resize(9);
    EXPECT_EQ(message.getLogSlots(), 3u);
    EXPECT_EQ(message[1], four[1]);
    message.resize(0);
    EXPECT_TRUE(message.isEmpty());
}

TEST(Message, ACopySharesNothingWithItsSource) {
    Message source(four);
    Message copy(source), assigned;
    assigned = source;
    source[0] = {100, 100};
    EXPECT_EQ(slotsOf(copy), four);
    EXPECT_EQ(slotsOf(assigned), four);
    copy[1] = {200, 200};
    EXPECT_EQ(source[1], four[1]);
}

TEST(Message, CopyAssignmentReusesTheSlots) {
    Message target(4);
    const auto* before = target.begin();
    const Message source(four);
    target = source;
    EXPECT_EQ(target.begin(), before);
    EXPECT_EQ(slotsOf(target), four);
}

TEST(Message, MoveTakesTheSlotsAndTheSourceMayBeAssignedTo) {
    Message source(four);
    const auto* data = source.begin();
    Message target(std::move(source));
    EXPECT_EQ(target.begin(), data);
    source = target;
    EXPECT_EQ(slotsOf(source), four);
    Message other;
    other = std::move(target);
    EXPECT_EQ(other.begin(), data);
}

TEST(Message, SelfAssignmentLeavesItAsItWas) {
    Message message(four);
    auto& self = message;
    message = self;
    message = std::move(self);
    EXPECT_EQ(slotsOf(message), four);
}

TEST(Message, MovesBetweenHostsWithItsSlots) {
    Message message(four);
    message.to(otherCpu);
    EXPECT_EQ(message.getDevice(), otherCpu);
    EXPECT_EQ(slotsOf(message), four);
}

TEST(Message, MoveToAGpuIsRefusedAndLeavesItOnTheHost) {
    Message message(four);
    EXPECT_REFUSED(message.to(gpu), noAllocation);
    EXPECT_EQ(message.getDevice(), cpu);
    EXPECT_EQ(slotsOf(message), four);
}

TEST(Message, AllocateOnItsOwnDeviceDoesNothing) {
    Message message(four);
    const auto* before = message.begin();
    message.allocate(cpu);
    EXPECT_EQ(message.begin(), before);
    EXPECT_EQ(slotsOf(message), four);
}

TEST(Message, AllocateElsewhereKeepsTheSize) {
    Message message(four);
    message.allocate(otherCpu);
    EXPECT_EQ(message.getDevice(), otherCpu);
    EXPECT_EQ(message.getSize(), 4u);
    Message none;
    none.allocate(gpu);
    EXPECT_EQ(none.getDevice(), gpu);
    EXPECT_TRUE(none.isEmpty());
}

TEST(Message, AllocateOnAGpuIsRefusedAndLeavesItOnTheHost) {
    Message message(four);
    EXPECT_REFUSED(message.allocate(gpu), noAllocation);
    EXPECT_EQ(message.getDevice(), cpu);
    EXPECT_EQ(slotsOf(message), four);
}

} // namespace
} // namespace Torvo
