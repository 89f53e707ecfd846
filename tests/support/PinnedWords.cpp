#include "support/PinnedWords.hpp"

#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <optional>

namespace Torvo::test {

namespace {

struct PinnedRow {
    const char *group, *name, *digest;
};

constexpr PinnedRow table[] = {
#include "words/PinnedWords.inc"
};

std::string pinnedDigest(const std::string& group, const std::string& name) {
    for (const PinnedRow& row : table)
        if (group == row.group && name == row.name) return row.digest;
    return "no such row";
}

void printIfAsked(const std::string& group, const std::string& row, const std::string& digest) {
    if (std::getenv("TORVO_PRINT_WORDS") == nullptr) return;
    std::printf("{\"%s\", \"%s\", \"%s\"},\n", group.c_str(), row.c_str(), digest.c_str());
}

/// In [-1, 1), with 53 bits.
double numberOf(Seeded& words) {
    return static_cast<double>(words.word() >> 11) * 0x1p-52 - 1;
}

} // namespace

PinnedGroup::PinnedGroup(std::string name) : name_(std::move(name)) {}

PinnedGroup::~PinnedGroup() {
    for (const PinnedRow& row : table)
        EXPECT_TRUE(name_ != row.group || shown_.contains(row.name))
            << name_ << ", " << row.name << " was not shown";
}

void PinnedGroup::expectDigest(const std::string& row, const std::string& digest) {
    if (shown_.insert(row).second) printIfAsked(name_, row, digest);
    EXPECT_EQ(digest, pinnedDigest(name_, row)) << name_ << ", " << row;
}

void inEveryWay(const std::function<void()>& run) {
    const auto inOneWay = [&](const char* name, int threads, std::optional<KernelForm> form) {
        SCOPED_TRACE(name);
        const Team team(threads);
        std::optional<ForcedFeature> forced;
        if (form) forced.emplace(*form);
        run();
    };
    inOneWay("one thread", 1, std::nullopt);
    inOneWay("four threads", 4, std::nullopt);
    for (const KernelForm form : everyForm)
        if (processorRuns(form)) inOneWay(nameOf(form), 1, form);
}

void fill(Polynomial& poly, Seeded& words) {
    for (u64 i = 0; i < poly.rowEnd(); ++i)
        if (poly.isLiveRow(i))
            for (u64 k = 0; k < poly.getDegree(); ++k) poly.getRow(i)[k] = words.word() % poly.getPrimes()[i];
}

Plaintext wordsOfPlaintext(const Context& context, u64 level, u64 seed) {
    Plaintext plaintext(context);
    plaintext.setLevel(level);
    Seeded words(seed);
    fill(plaintext.getMx(), words);
    return plaintext;
}

template <EncryptionType E>
CiphertextBase<E> wordsOfCiphertext(const Context& context, u64 level, u64 seed, bool isModUp) {
    CiphertextBase<E> ciphertext(context, isModUp);
    ciphertext.setLevel(level);
    Seeded words(seed);
    for (u64 i = 0; i < ciphertext.getNumPoly(); ++i) fill(ciphertext.getPoly(i), words);
    return ciphertext;
}

template CiphertextBase<RLWE> wordsOfCiphertext(const Context&, u64, u64, bool);
template CiphertextBase<MLWE> wordsOfCiphertext(const Context&, u64, u64, bool);

Message slotsOf(u64 logSlots, u64 seed) {
    Message message(logSlots);
    Seeded words(seed);
    for (auto& slot : message) {
        const double real = numberOf(words);
        slot = {real, numberOf(words)};
    }
    return message;
}

std::vector<double> numbersOf(u64 count, u64 seed) {
    std::vector<double> numbers(count);
    Seeded words(seed);
    for (double& number : numbers) number = numberOf(words);
    return numbers;
}

bool hasTheMathematicsOf(const std::string& row, u64 degree, const std::vector<unsigned long>& primes) {
    std::vector<double> values;
    const double n = static_cast<double>(degree);
    for (u64 k = 0; k < 2 * degree; ++k) {
        const auto root = std::exp(std::complex<double>(0, static_cast<double>(k) * std::numbers::pi / n));
        values.insert(values.end(), {root.real(), root.imag()});
    }
    for (const unsigned long p : primes) {
        const double logarithm = std::log2(static_cast<double>(p));
        for (const double x : {logarithm, -logarithm}) values.insert(values.end(), {x, std::pow(2.0, x)});
    }
    for (int k = -4096; k <= 4096; ++k)
        values.insert(values.end(), {std::pow(2.0, k / 61.0), std::cbrt(k / 61.0)});
    const std::string digest = WordDigest().add(values).hex();
    printIfAsked("mathematics", row, digest);
    return digest == pinnedDigest("mathematics", row);
}

} // namespace Torvo::test
