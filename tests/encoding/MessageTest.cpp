#include <Torvo/Message.hpp>

#include "support/Expect.hpp"
#include "support/Sanitizer.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <list>
#include <new>
#include <span>
#include <string>
#include <type_traits>
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

TEST(Message, OfMoreSlotsThanAnyMemoryIsRefused) {
    for (const unsigned long logSlots : {60ul, 63ul, 64ul, 32768ul, ~0ul}) {
        const std::string refusal = "[Message] No memory holds the slots of log slots " +
                                    std::to_string(logSlots) + "; give log slots below 60";
        EXPECT_REFUSED((Message(logSlots)), refusal);
        EXPECT_REFUSED(Message(logSlots, 0.5), refusal);
    }
}

TEST(Message, OfMoreSlotsThanThisMemoryFailsInTheAllocator) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    EXPECT_THROW(Message(59), std::bad_alloc);
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

// ---- values in braces

/// Whether values of these types make a message in braces, in either spelling; that they do in one and not in
/// the other is neither.
template <class... T>
concept MakesMessage = requires(T... values) {
    Message{values...};
    Message({values...});
};
template <class... T>
concept InOneSpelling = requires(T... values) {
    Message{values...};
}
|| requires(T... values) {
    Message({values...});
};
template <class... T>
concept IsNoMessage = !InOneSpelling<T...>;
template <class Real, class Imaginary>
concept MakesMessageOfPairs = requires(Real real, Imaginary imaginary) {
    Message({{real, imaginary}, {real, imaginary}});
};
template <class Real, class Imaginary>
concept MakesMessageOfAPair = requires(Real real, Imaginary imaginary) {
    Message({{real, imaginary}});
};

static_assert(MakesMessage<double> && MakesMessage<float> && MakesMessage<long double>);
static_assert(MakesMessage<double, double> && MakesMessage<double, double, double, double>);
static_assert(MakesMessage<float, double> && MakesMessage<Complex, double> && MakesMessage<double, Complex>);
static_assert(MakesMessage<Complex> && MakesMessage<Complex, std::complex<float>>);
static_assert(MakesMessageOfPairs<double, double> && MakesMessageOfAPair<double, float>);

static_assert(IsNoMessage<int> && IsNoMessage<unsigned long> && IsNoMessage<bool> && IsNoMessage<char>);
static_assert(IsNoMessage<unsigned long, double> && IsNoMessage<unsigned long, Complex>);
static_assert(IsNoMessage<double, int> && IsNoMessage<Complex, long> && IsNoMessage<int, int>);
static_assert(IsNoMessage<double, double, int> && IsNoMessage<int, double, double, double>);
static_assert(!MakesMessageOfPairs<int, int> && !MakesMessageOfPairs<double, int>);
static_assert(!MakesMessageOfAPair<int, double> && !MakesMessageOfAPair<unsigned long, double>);
static_assert(!std::is_constructible_v<Message, std::initializer_list<int>>);

// In parentheses all is as it was: a count, a count and a value, and nothing that converts by itself.
static_assert(std::is_constructible_v<Message, unsigned long> && std::is_constructible_v<Message, int>);
static_assert(std::is_constructible_v<Message, int, double> &&
              std::is_constructible_v<Message, int, Complex>);
static_assert(!std::is_convertible_v<unsigned long, Message> && !std::is_convertible_v<double, Message>);
static_assert(!std::is_convertible_v<std::vector<double>, Message>);
static_assert(std::is_nothrow_move_constructible_v<Message> && std::is_copy_constructible_v<Message>);

// Ranges of numbers, and no others.
template <class Range>
constexpr bool isTaken = std::is_constructible_v<Message, Range>;
static_assert(isTaken<std::vector<double>> && isTaken<std::vector<double>&> && isTaken<const double (&)[4]>);
static_assert(isTaken<const std::vector<float>&> && isTaken<std::array<int, 4>> &&
              isTaken<std::span<double>>);
static_assert(isTaken<std::vector<std::complex<float>>> && isTaken<std::initializer_list<double>>);
static_assert(!isTaken<std::string> && !isTaken<const char (&)[4]> && !isTaken<std::vector<bool>>);
static_assert(!isTaken<std::vector<std::string>> && !isTaken<std::vector<std::vector<double>>>);

TEST(Message, OfBracesHoldsTheirValues) {
    EXPECT_EQ(slotsOf(Message({1.0, 2.0})), (std::vector<Complex>{1.0, 2.0}));
    EXPECT_EQ(slotsOf(Message{1.0, -2.0}), (std::vector<Complex>{1.0, -2.0}));
    EXPECT_EQ(slotsOf(Message({3.0})), std::vector<Complex>{3.0});
    EXPECT_EQ(slotsOf(Message{3.0}), std::vector<Complex>{3.0});
    EXPECT_EQ(slotsOf(Message({1.5f, 2.5f})), (std::vector<Complex>{1.5, 2.5}));
    EXPECT_EQ(slotsOf(Message({1.5f, 2.5})), (std::vector<Complex>{1.5, 2.5}));
    EXPECT_EQ(slotsOf(Message({1.5, Complex(0, 2)})), (std::vector<Complex>{1.5, {0, 2}}));
    EXPECT_EQ(slotsOf(Message({Complex(1, 2)})), (std::vector<Complex>{{1, 2}}));
    EXPECT_EQ(slotsOf(Message({{0.5, 0.25}, {1.0, 2.0}})), (std::vector<Complex>{{0.5, 0.25}, {1, 2}}));
    EXPECT_EQ(slotsOf(Message({{0.5, 0.25}})), (std::vector<Complex>{{0.5, 0.25}}));
}

TEST(Message, OfBracesAroundNothingIsEmpty) {
    EXPECT_TRUE(Message{}.isEmpty());
    EXPECT_TRUE(Message({}).isEmpty());
    EXPECT_TRUE(Message(std::initializer_list<double>{}).isEmpty());
    EXPECT_TRUE(Message(std::vector<double>{}).isEmpty());
}

TEST(Message, InParenthesesCountsSlots) {
    EXPECT_EQ(Message(3).getSize(), 8u);
    EXPECT_EQ(slotsOf(Message(2, 0.5)), std::vector<Complex>(4, 0.5));
    EXPECT_EQ(slotsOf(Message(1, {0.5, -0.25})), std::vector<Complex>(2, Complex(0.5, -0.25)));
}

TEST(Message, OfBracesKeepsWhatIsNoNumberAndTheSignOfZero) {
    const double infinity = std::numeric_limits<double>::infinity();
    const Message message{std::nan(""), -infinity, -0.0, std::numeric_limits<double>::denorm_min()};
    ASSERT_EQ(message.getSize(), 4u);
    EXPECT_TRUE(std::isnan(message[0].real()));
    EXPECT_EQ(message[1], Complex(-infinity));
    EXPECT_TRUE(std::signbit(message[2].real()));
    EXPECT_EQ(message[3].real(), std::numeric_limits<double>::denorm_min());
    for (const auto& slot : message) EXPECT_FALSE(std::signbit(slot.imag()));
    EXPECT_TRUE(std::isnan(Message({{0.5, std::nan("")}})[0].imag()));
}

TEST(Message, OfARangeHoldsItsNumbers) {
    const std::vector<Complex> expected{1.0, 2.0, -3.0, 4.0};
    const std::vector<double> reals{1.0, 2.0, -3.0, 4.0};
    std::vector<float> floats{1.0f, 2.0f, -3.0f, 4.0f};
    const std::array<int, 4> integers{1, 2, -3, 4};
    const double array[] = {1.0, 2.0, -3.0, 4.0};
    const std::list<std::complex<float>> list{1.0f, 2.0f, -3.0f, 4.0f};
    EXPECT_EQ(slotsOf(Message(reals)), expected);
    EXPECT_EQ(slotsOf(Message{reals}), expected);
    EXPECT_EQ(slotsOf(Message(floats)), expected);
    EXPECT_EQ(slotsOf(Message(integers)), expected);
    EXPECT_EQ(slotsOf(Message(array)), expected);
    EXPECT_EQ(slotsOf(Message(list)), expected);
    EXPECT_EQ(slotsOf(Message(std::span(reals).first(2))), (std::vector<Complex>{1.0, 2.0}));
}

TEST(Message, OfAMessageIsItsCopyInEverySpelling) {
    Message source(four);
    const Message inBraces{source}, inParentheses(source), inBoth({source});
    for (const Message* copy : {&inBraces, &inParentheses, &inBoth}) EXPECT_EQ(slotsOf(*copy), four);
}

TEST(Message, OfValuesWhoseCountIsNoPowerOfTwoIsRefused) {
    EXPECT_REFUSED(Message({1.0, 2.0, 3.0}), noPowerOfTwo);
    EXPECT_REFUSED((Message{1.0, Complex(2.0), 3.0f}), noPowerOfTwo);
    EXPECT_REFUSED(Message(std::vector<double>(6)), noPowerOfTwo);
    EXPECT_REFUSED(Message(std::array<int, 5>{}), noPowerOfTwo);
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
