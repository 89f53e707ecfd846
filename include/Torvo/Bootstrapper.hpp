#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>

#include <concepts>
#include <memory>
#include <set>

namespace Torvo {

class BootstrapperImpl;

/// Gives an exhausted ciphertext its levels back: the input is a ciphertext at level 3 or higher, the result
/// encrypts the same message at `getLevelAfterFullSlotBootstrap()`.
///
/// Real and imaginary part of every slot must lie in [-1, 1], and the ciphertext must owe no rescale. Besides the keys for multiplication and conjugation, the evaluator's pack must hold
/// the rotation keys of `KeyGenerator::genRotKeysForBootstrap`, made with the same `compact` as
/// `sequential_rotations` here. Precision and failure probability of each preset: `ParameterPreset`; their
/// derivation, time and memory: docs/bootstrapping.md.
///
/// The result is encoded on slots, as many as the input has. It has two ring elements, in NTT form, and owes
/// no rescale. An output may be the input; its previous content does not matter. After a refused call the
/// object remains usable, and an input that is not also an output is unchanged; outputs may have been
/// written.
///
/// A shared handle. Const members may run at once on different outputs; `makeBootConstants` must not run
/// beside any other call on the same object.
///
/// The steps, in the order in which they run: down to level 3, slots to coefficients (three levels), modulus
/// raise, coefficients to slots (three levels), sine.
class TORVO_API Bootstrapper {
public:
    /// Builds the constants for full slots. They take 8 N bytes for each diagonal of a transform and each
    /// prime of its level: 2.1 GiB on `FGb`, 5.9 GiB on `FVa`, less for fewer slots. The rotation keys take
    /// another 5.6 GiB on `FGb`, or 1.2 GiB with sequential rotations (docs/bootstrapping.md, "Memory"). The
    /// flag must be a `bool`, not a type that converts to `bool`, so that a number in its place is read as
    /// `log_slots`.
    /// @param sequential_rotations  false: one rotation key for each index, batched rotations; fast. true:
    ///                              few keys, one rotation after the other; slower, with less memory
    /// @throws RuntimeException "The Parameter does not support bootstrap"
    template <std::same_as<bool> Flag = bool>
    explicit Bootstrapper(const HomEvaluator& eval, Flag sequential_rotations = false)
        : Bootstrapper(eval, getLogFullSlots(eval.getContext()), sequential_rotations) {}
    /// Builds the constants for `log_slots`.
    /// @throws RuntimeException also "log_slots should not exceed " and log2 of the number of slots
    Bootstrapper(const HomEvaluator& eval, unsigned long log_slots, bool sequential_rotations = false);
    /// With a second context for sparse secret encapsulation.
    /// @throws RuntimeException also "[Bootstrapper] context does not support sparse secret encapsulation",
    ///         "[Bootstrapper] parameter of context and context_sparse does not match"
    template <std::same_as<bool> Flag = bool>
    Bootstrapper(const HomEvaluator& eval, const Context& context_sparse, Flag sequential_rotations = false)
        : Bootstrapper(eval, context_sparse, getLogFullSlots(eval.getContext()), sequential_rotations) {}
    Bootstrapper(const HomEvaluator& eval, const Context& context_sparse, unsigned long log_slots,
                 bool sequential_rotations = false);

    /// Whether the constants for `log_slots` have been built; a message of one slot needs none.
    bool isBootstrapReady(unsigned long log_slots) const;
    /// Builds the constants for `log_slots` unless they have been built.
    /// @throws RuntimeException "log_slots should not exceed " and log2 of the number of slots
    void makeBootConstants(unsigned long log_slots);
    /// Copies the constants to `device` unless that has been done.
    /// @throws RuntimeException "Bootstrapping constants for log slots ", log_slots, " do not exist."
    void loadBootConstants(unsigned long log_slots, const Device& device) const;

    /// The level of a bootstrapped ciphertext. (One-slot messages on `FVa` come out one level higher.)
    unsigned long getLevelAfterFullSlotBootstrap() const;
    /// The lowest level that a ciphertext to be bootstrapped may have: 3.
    unsigned long getMinLevelForBootstrap() const;

    /// Brings `in`, at level 3 or above, to `getLevelAfterFullSlotBootstrap()`, whatever its level.
    /// @param is_complex  false keeps only the real parts, at about half the cost of the sine
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots";
    ///         "[bootstrap] Level of ciphertext should be >= 3."; "[bootstrap] Size should be 2"; "The
    ///         Operand should have rescale counter zero"; "Bootstrapping constants for log slots ", log
    ///         slots, " do not exist."; then, when a key is needed that the pack lacks, "Failed to load the
    ///         left rotation key for index " and the index ("[Load Rotation Key] no left rotation key for
    ///         index " in sequence), "Failed to load sparse secret encapsulation key", "Failed to load the
    ///         conjugation key" or "Failed to load the multiplication key"
    void bootstrap(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;
    /// Writes the real and the imaginary parts to separate outputs, each as a real message. Refuses as the
    /// other form does. The two outputs must be different objects.
    void bootstrap(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;

    /// Bootstraps in two passes, the second on the error of the first: more bits (hardly any on `FVa`), at
    /// twice the time. Needs one level more, and the constants for full slots.
    /// @param is_complex  false requires a real message, and saves the first pass one sine. If the message
    ///                    has an imaginary part, the first pass drops it and the second pass treats it as the
    ///                    first pass's error. The result then contains it, but less precisely than
    ///                    `bootstrap` would give it, and on `FVc` it may wrap around, since shifted up it
    ///                    leaves the range of the sine
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots" (one
    ///         output); "This parameter does not support extended bootstrap"; "[bootstrap extended] Level of
    ///         ciphertext should be >= 4."; "[bootstrap extended] Size should be 2"; "The Operand should have
    ///         rescale counter zero"; "The operand have to encode the message on its slots" (two outputs);
    ///         then as `bootstrap`: constants, those for full slots too, and keys
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;

    /// The first half of a bootstrap. The result is a coefficient-encoded ciphertext at level 0, not in NTT
    /// form. With n slots, for k below n, coefficient k is the real part and coefficient n + k the imaginary
    /// part of the slot whose index is k with its log2(n) bits reversed. The transform leaves this order, and
    /// `halfBoot` expects it.
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots";
    ///         "[slotToCoeff] Level of ciphertext should be >= 3"; "Bootstrapping constants for log slots ",
    ///         log slots, " do not exist."; "The Operand should have rescale counter zero"; for two slots or
    ///         more "Size should be 2"; the refusals of `bootstrap` for missing rotation keys
    void slotToCoeff(const Ciphertext& in, Ciphertext& out) const;
    /// The second half of a bootstrap: takes coefficients in the order of `slotToCoeff`, at any level, to
    /// slots at a high level, as `bootstrap` returns them.
    /// @throws RuntimeException "The operand have to encode the message on its coefficients"; then as
    ///         `bootstrap`, without its rule about levels
    void halfBoot(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;

private:
    std::shared_ptr<BootstrapperImpl> impl_;
};

/// The signed rotation indices that bootstrapping at `log_slots` needs with batched rotations.
/// @throws RuntimeException "The parameter dose not support bootstrap."; "log_slots should not exceed "
///         and log2 of the number of slots
TORVO_API std::set<long> getRotIndicesForBootstrap(const Context& context, unsigned long log_slots);

} // namespace Torvo
