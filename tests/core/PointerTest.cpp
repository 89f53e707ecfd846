#include <Torvo/Pointer.hpp>

#include <gtest/gtest.h>

#include <type_traits>

namespace Torvo {
namespace {

/// Counts how many of it live.
struct Counted {
    explicit Counted(int v) : value(v) { ++alive; }
    Counted(const Counted& other) : value(other.value) { ++alive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --alive; }
    int value;
    static inline int alive = 0;
};

using Handle = Pointer<Counted>;

class PointerTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(Counted::alive, 0); }
};

TEST_F(PointerTest, ACopyOwnsACopy) {
    Handle a(new Counted(1));
    const Handle b(a);
    a->value = 2;
    EXPECT_EQ(b->value, 1);
    EXPECT_EQ((*a).value, 2);
    EXPECT_EQ(Counted::alive, 2);
}

TEST_F(PointerTest, CopyAssignmentKeepsThePointee) {
    Handle a(new Counted(1)), b(new Counted(2));
    const Counted* before = &*a;
    a = b;
    EXPECT_EQ(&*a, before);
    EXPECT_EQ(a->value, 2);
    EXPECT_NE(&*a, &*b);
}

TEST_F(PointerTest, SelfAssignmentLeavesTheHandleAsItWas) {
    Handle a(new Counted(1));
    const Counted* before = &*a;
    auto& self = a;
    a = self;
    a = std::move(self);
    EXPECT_EQ(&*a, before);
    EXPECT_EQ(a->value, 1);
}

TEST_F(PointerTest, MoveTakesThePointeeAndLeavesNull) {
    Handle a(new Counted(1));
    const Counted* before = &*a;
    const Handle b(std::move(a));
    EXPECT_EQ(&*b, before);
    EXPECT_EQ(a.operator->(), nullptr);
    EXPECT_EQ(Counted::alive, 1);
}

TEST_F(PointerTest, MoveAssignmentDestroysTheOldPointee) {
    Handle a(new Counted(1)), b(new Counted(2));
    a = std::move(b);
    EXPECT_EQ(a->value, 2);
    EXPECT_EQ(Counted::alive, 1);
}

TEST_F(PointerTest, AHandleThatWasMovedFromCanBeCopiedAndAssignedTo) {
    Handle a(new Counted(1));
    Handle b(std::move(a));
    const Handle copyOfNull(a);
    EXPECT_EQ(copyOfNull.operator->(), nullptr);
    a = b;
    EXPECT_EQ(a->value, 1);
    EXPECT_EQ(Counted::alive, 2);
    a = copyOfNull;
    EXPECT_EQ(a.operator->(), nullptr);
}

} // namespace
} // namespace Torvo
