#pragma once

#include "support/Seeded.hpp"
#include "support/WordDigest.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/Randomseeds.hpp>

#include <omp.h>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Words of valid operations are the same for ever: from one seed come the same keys and encryptions, and
/// from the same operands the same results, with any number of threads and with every form of the kernels.
/// The digests of words/PinnedWords.inc were taken once. Whoever changes one of them changes what was
/// promised; a new row is found by `TORVO_PRINT_WORDS=1 build/debug/tests/wordsTests | grep '^{' | sort -u`.
namespace Torvo::test {

/// The rows of one group of the table. Everything shown must have the digest of its row, and each row must be
/// shown before the group is destroyed.
class PinnedGroup {
public:
    explicit PinnedGroup(std::string name);
    ~PinnedGroup();
    PinnedGroup(const PinnedGroup&) = delete;
    PinnedGroup& operator=(const PinnedGroup&) = delete;

    template <class T>
    void holds(const std::string& row, const T& object) {
        expectDigest(row, WordDigest().add(object).hex());
    }

    /// Runs an operation that writes to a copy of `output`, in every way.
    template <class T, class Operation>
    void result(const std::string& row, const T& output, Operation operation);

private:
    void expectDigest(const std::string& row, const std::string& digest);

    std::string name_;
    std::set<std::string> shown_;
};

/// During its lifetime teams have this size.
class Team {
public:
    explicit Team(int threads) : before_(omp_get_max_threads()) { omp_set_num_threads(threads); }
    ~Team() { omp_set_num_threads(before_); }
    Team(const Team&) = delete;
    Team& operator=(const Team&) = delete;

private:
    int before_;
};

/// The result of `draw` with the words that follow `seed`. Each thread has a generator of its own, and only
/// that of the calling one is seeded, so it works alone.
template <class Draw>
auto drawnFrom(u64 seed, Draw draw) {
    const Team alone(1);
    setSeed({seed, 2, 3, 4});
    return draw();
}

/// Calls `run` in every way in which the words must be the same: with one thread and with four, and with each
/// form of the kernels.
void inEveryWay(const std::function<void()>& run);

template <class T, class Operation>
void PinnedGroup::result(const std::string& row, const T& output, Operation operation) {
    inEveryWay([&] {
        T out = output;
        operation(out);
        holds(row, out);
    });
}

// Operands whose words come from nowhere in the library.

void fill(Polynomial& poly, Seeded& words);
Plaintext wordsOfPlaintext(const Context& context, u64 level, u64 seed);
/// With two elements, or with one more than the rank.
template <EncryptionType E>
CiphertextBase<E> wordsOfCiphertext(const Context& context, u64 level, u64 seed, bool isModUp = false);
/// Slots with all bits of a double in [-1, 1).
Message slotsOf(u64 logSlots, u64 seed);
std::vector<double> numbersOf(u64 count, u64 seed);

/// Whether exp, log2, pow and cbrt round on this machine as they did on the one where the table was made, at
/// the roots of unity of `degree`, at the primes, and in between. The C library chooses a form of them by the
/// processor, and no two promise the same last bit. What is computed by them is pinned where they agree.
bool hasTheMathematicsOf(const std::string& row, u64 degree, const std::vector<unsigned long>& primes);

} // namespace Torvo::test

/// First in a test of words to which these functions contribute.
#define SKIP_UNLESS_MATHEMATICS_AGREE(row, context)                                                          \
    if (!::Torvo::test::hasTheMathematicsOf(row, getDegree(context), getPrimeList(context)))                 \
    GTEST_SKIP() << "the C library rounds exp, log2, pow or cbrt otherwise than where the table was made"
