#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>

#include <concepts>
#include <iosfwd>
#include <memory>
#include <set>
#include <string>

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
/// A shared handle. Const members may run at once on different outputs; `makeBootConstants`, `mapBootConstants` and
/// `readBootConstants` must not run beside any other call on the same object.
///
/// Constants that were saved once need not be built again: make the object for `log_slots` 0, which builds nothing,
/// and map them.
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

    /// Whether the constants for `log_slots` exist; a message of one slot needs none.
    bool isBootstrapReady(unsigned long log_slots) const;
    /// Builds the constants for `log_slots` unless they exist.
    /// @throws RuntimeException "log_slots should not exceed " and log2 of the number of slots
    void makeBootConstants(unsigned long log_slots);
    /// Saves the constants for `log_slots`, which are the same for all keys: 2.1 GiB on `FGb` for full slots. They
    /// are no secret. A file is replaced as a whole, so processes that have mapped the old one keep it; one that these
    /// constants are mapped from stays as it is.
    /// @throws RuntimeException "A message of one slot needs no constants. Give log_slots from 1 on.";
    ///         "Bootstrapping constants for log slots ", log_slots, " do not exist."; as `Plaintext::save`
    void saveBootConstants(unsigned long log_slots, const std::string& path) const;
    void saveBootConstants(unsigned long log_slots, std::ostream& stream) const;
    /// Takes the constants for `log_slots` from a file, where they stay: pages are read from it when they are used,
    /// and processes that map one file share their memory. The words are those that `makeBootConstants` builds. They
    /// take the place of constants that exist; a refused call leaves those.
    ///
    /// **The file must not be changed or shortened while any copy of this object lives**: the system ends a process
    /// that reads beyond the end of a mapped file. To remove it, or to replace it as a save does, is harmless.
    /// @param check  whether the rows are compared with their digest, for which they all are read. Without it damage
    ///               of the rows is not noticed and gives wrong results; the head and the length of the file are
    ///               always checked
    /// @throws RuntimeException in this order: "log_slots should not exceed " and log2 of the number of slots; "A
    ///         message of one slot needs no constants. Give log_slots from 1 on."; "Cannot open file ", the path, ": "
    ///         and the reason that the system gives; "Cannot map file ", the path, ": " and that reason, or "it is no
    ///         regular file; give the path of a file that was saved"; "Cannot take bootstrapping constants from ", the
    ///         path, ": " and one of "it holds none; give what saveBootConstants wrote", "its head is damaged; save
    ///         them again", "they are of another ring; make the bootstrapper with the context that they were saved
    ///         with", "they are for log slots ", a number, ", not ", `log_slots`, "; give theirs or save others",
    ///         "they were made with other parameters of bootstrapping, or where numbers round otherwise; save them
    ///         again", "it holds ", a number, " bytes, not ", a number, "; save them again" (first if it is shorter
    ///         than a head), "the constants in it are damaged; save them again"
    void mapBootConstants(unsigned long log_slots, const std::string& path, bool check = true);
    /// The same, but the constants are copied to memory of this object's own, and the file may be a pipe. A file must
    /// hold nothing else; in a stream more may follow.
    /// @throws RuntimeException what `mapBootConstants` throws. Other texts have a file that cannot be opened, "Cannot
    ///         open file " and the path, and one that is too long, "The file is longer than what is to be loaded: "
    ///         and so on. A file that ends early fails as other objects do
    void readBootConstants(unsigned long log_slots, const std::string& path, bool check = true);
    /// @throws RuntimeException also "The stream has no buffer. Give one that is connected to a file or to memory."
    void readBootConstants(unsigned long log_slots, std::istream& stream, bool check = true);
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
