#pragma once

#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Pointer.hpp>

#include <memory>
#include <optional>
#include <set>

namespace Torvo {

class PlannedCiphertextImpl;
class PlanImpl;

/// What a plan keeps of a ciphertext: its level, and the numbers in its slots, once as they should be and once with the
/// errors that the real ciphertext is expected to have.
/// Copies copy the numbers. One thread may write, or many read.
class TORVO_API PlannedCiphertext {
public:
    /// To be written by a function.
    PlannedCiphertext();
    explicit PlannedCiphertext(PlannedCiphertextImpl&& impl);
    PlannedCiphertext(const PlannedCiphertext& other);
    PlannedCiphertext(PlannedCiphertext&& other) noexcept;
    PlannedCiphertext& operator=(const PlannedCiphertext& other);
    PlannedCiphertext& operator=(PlannedCiphertext&& other) noexcept;
    ~PlannedCiphertext();

    unsigned long getLevel() const;
    /// log2 of the number of slots.
    unsigned long getLogSlots() const;
    int getRescaleCounter() const;
    /// What the operations give without any error.
    const Message& getMessage() const;
    /// The same with errors drawn as docs/noise.md predicts them.
    const Message& getNoisyMessage() const;
    /// The root mean square over the slots of the error; an absolute number, not its logarithm.
    double getError() const;
    /// The largest error of a slot.
    double getLargestError() const;

    PlannedCiphertextImpl& impl() { return *impl_; }
    const PlannedCiphertextImpl& impl() const { return *impl_; }

private:
    Pointer<PlannedCiphertextImpl> impl_;
};

/// What the functions of a plan would do.
struct PlanReport {
    unsigned long tensors = 0; ///< products of two ciphertexts
    unsigned long relinearizations = 0;
    unsigned long rotations =
        0; ///< key switches of rotations, those of the steps of linear transforms included
    unsigned long conjugations = 0;
    unsigned long plaintextProducts =
        0; ///< with a number for each slot, and with the diagonals of linear transforms
    unsigned long constantProducts = 0; ///< with one number
    unsigned long rescales = 0;
    unsigned long bootstraps = 0;
    /// The lowest level that a ciphertext came to.
    unsigned long lowestLevel = 0;
    /// The left rotations that need a key, besides those inside a bootstrap.
    std::set<unsigned long> leftRotations{};
    /// The bytes in memory of the keys that are needed: for products, conjugation and the rotations above, and for
    /// bootstraps with batched rotations of all slots.
    unsigned long keyBytes = 0;
    /// The bytes in memory of the constants that are kept: those of linear transforms, each once for a `CachedTransform`,
    /// a number of slots and a level, or for a call that is given a `LinearTransform`; and those of bootstraps, for all
    /// slots and for every other number of slots that is bootstrapped.
    unsigned long constantBytes = 0;

    /// All but those inside a bootstrap.
    unsigned long keySwitches() const { return relinearizations + rotations + conjugations; }
};

/// A dry run: functions that are given a plan in place of an evaluator, and planned ciphertexts in place of
/// ciphertexts, compute nothing on ciphertexts and need no key. They say what they would need, refuse what they would
/// refuse, and predict the error of the result.
///
/// A planned ciphertext holds the numbers of a message. The error of each operation is drawn at random, from a fixed
/// seed, with the variance that docs/noise.md derives. So the prediction is that of one run on one message; give one
/// that is typical.
///
/// A shared handle. One thread at a time.
class TORVO_API Plan {
public:
    /// For an evaluator without bootstraps.
    explicit Plan(const Context& context);
    /// For a bootstrapping evaluator.
    /// @throws RuntimeException "The Parameter does not support bootstrap"; "This parameter does not support extended
    ///         bootstrap"
    Plan(const Context& context, BootstrappingEvaluator::Precision precision);

    /// A fresh encryption under a public key at the encryption level, or at another one.
    /// @throws RuntimeException as `Encryptor::encrypt` for the level and for what cannot be encoded
    PlannedCiphertext encrypt(const Message& message) const;
    PlannedCiphertext encrypt(const Message& message, unsigned long level) const;

    const Context& getContext() const;
    /// The counts of all functions since the plan was made or reset.
    PlanReport getReport() const;
    /// Seconds that the real functions would take on this machine with as many threads as OpenMP gives now: the counts
    /// times what single steps take, which is measured when it is first asked for in a process, in some seconds for each
    /// ring. Without what is done once: keys, and the encoding of constants. An estimate: within a factor of two on a
    /// quiet machine.
    /// @throws RuntimeException as the generation of keys
    double estimateSeconds() const;
    void reset();

    const std::shared_ptr<PlanImpl>& getImpl() const { return impl_; }

private:
    std::shared_ptr<PlanImpl> impl_;
};

} // namespace Torvo
