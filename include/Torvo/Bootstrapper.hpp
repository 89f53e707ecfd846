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

/// Gives an exhausted ciphertext its levels back: takes a ciphertext of level 3 or higher and returns one of
/// the same message at `getLevelAfterFullSlotBootstrap()`.
///
/// The message must lie within the unit disc (real and imaginary part in [-1, 1] each), and the ciphertext
/// must owe no rescale. Besides the keys for multiplication and conjugation, the evaluator's pack must hold
/// the rotation keys of `KeyGenerator::genRotKeysForBootstrap`, made with the same `compact` as
/// `sequential_rotations` here. Precision and failure probability of each preset: `ParameterPreset`; their
/// derivation, time and memory: docs/bootstrapping.md.
///
/// What comes out is encoded on slots, as many as went in; it has two ring elements, in NTT form, and owes no
/// rescale. An output may be the input, and what it held before does not matter. A refused call
/// leaves the object fit for use, and an input that is no output as it was; outputs may have been written.
///
/// A shared handle. Const members may run at once on different outputs; `makeBootConstants` must not run
/// beside any other call on the same object.
///
/// The steps, in the order in which they run: down to level 3, slots to coefficients (three levels), modulus
/// raise, coefficients to slots (three levels), sine.
class TORVO_API Bootstrapper {
public:
    /// Builds the constants for full slots. They take 8 N bytes for each diagonal of a transform and prime of
    /// its level, 2.1 GiB on `FGb` and 5.9 GiB on `FVa`, and fewer slots take less; the rotation keys
    /// take 5.6 GiB more on `FGb`, or 1.2 GiB in sequence (docs/bootstrapping.md, "Memory"). The flag is a
    /// `bool` and nothing that only converts to one, so that a number in its place is a `log_slots`.
    /// @param sequential_rotations  false: a rotation key for each index, batched rotations, fast; true: few
    ///                              keys, one rotation after the other, slow and small
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

    /// Whether the constants for `log_slots` are there; a message of one slot needs none.
    bool isBootstrapReady(unsigned long log_slots) const;
    /// Builds the constants for `log_slots` unless they are there.
    /// @throws RuntimeException "log_slots should not exceed " and log2 of the number of slots
    void makeBootConstants(unsigned long log_slots);
    /// Copies the constants to `device` unless they are there.
    /// @throws RuntimeException "Bootstrapping constants for log slots ", log_slots, " do not exist."
    void loadBootConstants(unsigned long log_slots, const Device& device) const;

    /// The level of a bootstrapped ciphertext. (One-slot messages on `FVa` come out one level higher.)
    unsigned long getLevelAfterFullSlotBootstrap() const;
    /// The lowest level that a ciphertext to be bootstrapped may have: 3.
    unsigned long getMinLevelForBootstrap() const;

    /// `in` at level 3 or above, to `getLevelAfterFullSlotBootstrap()` whatever its level.
    /// @param is_complex  false keeps the real parts alone, at about half the cost of the sine
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots";
    ///         "[bootstrap] Level of ciphertext should be >= 3."; "[bootstrap] Size should be 2"; "The
    ///         Operand should have rescale counter zero"; "Bootstrapping constants for log slots ", log
    ///         slots, " do not exist."; then, when a key is needed that the pack lacks, "Failed to load the
    ///         left rotation key for index " and the index ("[Load Rotation Key] no left rotation key for
    ///         index " in sequence), "Failed to load sparse secret encapsulation key", "Failed to load the
    ///         conjugation key" or "Failed to load the multiplication key"
    void bootstrap(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;
    /// Real and imaginary parts apart, each as a real message; refuses as the other form. The two outputs are
    /// different objects.
    void bootstrap(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;

    /// Two passes, the second on what the first left over: more bits (hardly any on `FVa`), at
    /// twice the time. Needs one level more, and the constants for full slots.
    /// @param is_complex  with false the message must be real: only the first pass, which it saves a sine,
    ///                    drops an imaginary part. The second takes that for something that the first left
    ///                    over, and so returns it, but shifted up before: more bent than by `bootstrap`, or
    ///                    wrapped around where it leaves the range of the sine (`FVc`)
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots" (one
    ///         output); "This parameter does not support extended bootstrap"; "[bootstrap extended] Level of
    ///         ciphertext should be >= 4."; "[bootstrap extended] Size should be 2"; "The Operand should have
    ///         rescale counter zero"; "The operand have to encode the message on its slots" (two outputs);
    ///         then as `bootstrap`: constants, those for full slots too, and keys
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;

    /// The first half: a coefficient-encoded ciphertext at level 0, out of NTT form. For n slots coefficient
    /// k below n is the real part, and coefficient n + k the imaginary part, of the slot whose index is k
    /// with its log2(n) bits reversed: the transform is left in the order in which it comes, which `halfBoot`
    /// takes.
    /// @throws RuntimeException in this order: "The operand have to encode the message on its slots";
    ///         "[slotToCoeff] Level of ciphertext should be >= 3"; "Bootstrapping constants for log slots ",
    ///         log slots, " do not exist."; "The Operand should have rescale counter zero"; for two slots or
    ///         more "Size should be 2"; the refusals of `bootstrap` for missing rotation keys
    void slotToCoeff(const Ciphertext& in, Ciphertext& out) const;
    /// The second half: from the coefficients that `slotToCoeff` leaves, at any level, back to slots at a
    /// high level, as `bootstrap` returns them.
    /// @throws RuntimeException "The operand have to encode the message on its coefficients"; then as
    ///         `bootstrap`, but for its rule about levels
    void halfBoot(const Ciphertext& in, Ciphertext& out, bool is_complex = false) const;

private:
    std::shared_ptr<BootstrapperImpl> impl_;
};

/// The signed rotation indices that bootstrapping at `log_slots` needs, batched form.
/// @throws RuntimeException "The parameter dose not support bootstrap."; "log_slots should not exceed "
///         and log2 of the number of slots
TORVO_API std::set<long> getRotIndicesForBootstrap(const Context& context, unsigned long log_slots);

} // namespace Torvo
