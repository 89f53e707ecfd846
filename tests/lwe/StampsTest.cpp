#include "support/Stamps.hpp"
#include "support/LWEPhase.hpp"

#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

/// How many rescales the outputs of plain LWE owe; they have no other stamp.
namespace Torvo::LWE {
namespace {

using test::smallLWEContext;

struct Row {
    const char* name;
    int owed, left;
    std::function<void(const Ciphertext&, Ciphertext&)> apply;
};

class Stamps : public testing::Test {
protected:
    const Context& context = smallLWEContext();
    SecretKey key{context};
    HomEvaluator e{context};

    Ciphertext operand(int owed, u64 level = 2) const {
        Ciphertext x(context);
        Encryptor(context).encrypt(0.5, key, x, level, owed);
        return x;
    }

    std::vector<Row> rows() const {
        const Ciphertext other = operand(1), low = operand(0, 1);
        return {
            {"negate", 1, 1, [&](auto& x, auto& out) { e.negate(x, out); }},
            {"add a number", 1, 1, [&](auto& x, auto& out) { e.add(x, 0.5, out); }},
            {"sub a number", 1, 1, [&](auto& x, auto& out) { e.sub(x, 0.5, out); }},
            {"add", 1, 1, [this, other](auto& x, auto& out) { e.add(x, other, out); }},
            {"add to another", 1, 1, [this, other](auto& x, auto& out) { e.add(other, x, out); }},
            {"sub", 1, 1, [this, other](auto& x, auto& out) { e.sub(x, other, out); }},
            {"add a lower one", 0, 0, [this, low](auto& x, auto& out) { e.add(x, low, out); }},
            {"sub from a lower one", 0, 0, [this, low](auto& x, auto& out) { e.sub(low, x, out); }},
            {"multInteger 3", 1, 1, [&](auto& x, auto& out) { e.multInteger(x, 3, out); }},
            {"multInteger 1", 1, 1, [&](auto& x, auto& out) { e.multInteger(x, 1, out); }},
            {"multInteger -1", 1, 1, [&](auto& x, auto& out) { e.multInteger(x, -1, out); }},
            {"multWithoutRescale", 1, 2, [&](auto& x, auto& out) { e.multWithoutRescale(x, 0.5, out); }},
            {"mult", 1, 1, [&](auto& x, auto& out) { e.mult(x, 0.5, out); }},
            {"levelDown", 0, 0, [&](auto& x, auto& out) { e.levelDown(x, 0, out); }},
            {"levelDown by none", 0, 0, [&](auto& x, auto& out) { e.levelDown(x, 2, out); }},
            {"levelDownOne", 0, 0, [&](auto& x, auto& out) { e.levelDownOne(x, out); }},
            {"rescale", 1, 0,
             [&](auto& x, auto& out) {
                 out = x;
                 e.rescale(out);
             }},
            {"encrypt", 1, 1, [&](auto&, auto& out) { Encryptor(context).encrypt(0.25, key, out, 2, 1); }},
        };
    }
};

TEST_F(Stamps, AreTheOperands) {
    for (const Row& row : rows()) {
        const Ciphertext in = operand(row.owed);
        Ciphertext used(context), foreign(makeContext(3, 3, 45, 40)), itself = in;
        for (Ciphertext* out : {&used, &foreign}) {
            out->setRescaleCounter(row.left == 2 ? 1 : 2);
            row.apply(in, *out);
            EXPECT_EQ(out->getRescaleCounter(), row.left) << row.name;
        }
        row.apply(itself, itself);
        EXPECT_EQ(itself.getRescaleCounter(), row.left) << row.name << ", in place";
    }
}

} // namespace
} // namespace Torvo::LWE
