#pragma once

#include "bootstrap/BootConstants.hpp"
#include "bootstrap/BootParameter.hpp"
#include "context/ContextContent.hpp"
#include "context/RadixDecomposition.hpp"
#include "core/Integers.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "evaluator/KeySwitcher.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/HomEvaluator.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

/// The implementation of `Bootstrapper`, whose documentation holds for the members of the same name. Units:
/// BootstrapperImpl (construction, guards, public flows), BootstrapperTransforms (stage procedure, modulus
/// raise), BootstrapperSine (cosine, arcsine, removal of the multiples of the base prime),
/// BootstrapperEncapsulation (the switches around the raise).
class BootstrapperImpl {
public:
    /// The steps of one pass, in this order. A real message has no `SineOfImaginaryPart`, and only a complex
    /// message in one output has the last step.
    enum class Step {
        DownAndSlotToCoeff,
        Raise,
        Fold,
        CoeffToSlot,
        Conjugation,
        SineOfRealPart,
        SineOfImaginaryPart,
        Combination
    };
    /// Called on the calling thread at the end of each step.
    using StepObserver = std::function<void(Step)>;

    BootstrapperImpl(const HomEvaluator& eval, std::optional<Context> context_sparse, u64 log_slots,
                     bool sequential_rotations);

    bool isBootstrapReady(u64 log_slots) const;
    void makeBootConstants(u64 log_slots);
    void loadBootConstants(u64 log_slots, const Device& device) const;
    /// `Target` is a path or a stream.
    template <class Target>
    void saveBootConstants(u64 log_slots, Target& target) const;
    void mapBootConstants(u64 log_slots, const std::string& path, bool check);
    /// `Source` is a path or a stream.
    template <class Source>
    void readBootConstants(u64 log_slots, Source& source, bool check);
    u64 getLevelAfterFullSlotBootstrap() const;
    u64 getMinLevelForBootstrap() const;

    void bootstrap(const Ciphertext& in, Ciphertext& out, bool is_complex) const;
    void bootstrap(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out, bool is_complex) const;
    void bootstrapExtended(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const;
    void levelDownAndSlotToCoeff(const Ciphertext& in, Ciphertext& out) const;
    void halfBoot(const Ciphertext& in, Ciphertext& out, bool is_complex) const;

    // The phases, in the order in which they run. `factor` multiplies the final values.

    void requireBootstrappable(const Ciphertext& in) const;
    void requireExtendedBootstrappable(const Ciphertext& in) const;
    void bootstrapOnce(const Ciphertext& in, Ciphertext& out, bool is_complex, double factor) const;
    void bootstrapTwoOutput(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag,
                            double factor) const;
    /// Everything up to the sine; one rescale is still owed.
    Ciphertext bootstrapExceptRemoveI(const Ciphertext& in) const;
    /// The ciphertext at level 0, with the message multiplied by the first gain on the coefficients.
    Ciphertext takeDown(const Ciphertext& in) const;
    void slotToCoeff(const Ciphertext& in, Ciphertext& out) const;
    /// Raises `t` from level 0, in NTT form or not, to the top level, in NTT form and under the dense secret.
    void raiseModulus(Ciphertext& t) const;
    /// Switches from the dense secret to the sparse one, at level 0; `ntt` is the form of `out`.
    void switchKeyDTS(const Ciphertext& in, Ciphertext& out, bool ntt) const;
    /// Switches from the sparse secret back to the dense one.
    void switchKeySTD(const Ciphertext& in, Ciphertext& out, bool ntt) const;
    /// The modulus raise: residues of the base prime are read as centred and written to every prime.
    void levelRecover(const Ciphertext& in, Ciphertext& out) const;
    /// Projects the raised polynomial onto the subring of a message of 2^log_slots slots, times its index.
    void fold(Ciphertext& t, u64 log_slots) const;
    void coeffToSlot(const Ciphertext& in, Ciphertext& out) const;
    /// factor * q0 * sin(2 pi x / q0) / (2 pi * pre_raise_factor) of the raised value x.
    void removeI(const Ciphertext& in, Ciphertext& out, double factor) const;
    void cosineApprox(const Ciphertext& in, Ciphertext& out, double factor) const;
    void arcsineApprox(const Ciphertext& in, Ciphertext& out, u64 degree, double factor) const;

    const BootParameter& getParameter() const { return parameter_; }

    /// For measurements. It must not be set while another thread bootstraps.
    void setStepObserver(StepObserver observer) { stepObserver_ = std::move(observer); }

private:
    void finish(Step step) const {
        if (stepObserver_) stepObserver_(step);
    }
    const BootConstants& constants(u64 log_slots) const;
    BootConstants& requireBootConstants(u64 log_slots) const;
    /// Of constants that a file may hold.
    BootRecipe recipeFor(u64 log_slots) const;
    void setBootConstants(const BootRecipe& recipe, BootStages&& stages);
    double primeZero() const { return static_cast<double>(context_->primes.getPrime(0)); }

    // One stage of a linear transform, by baby steps and giant steps.
    void applyStage(const RadixDecomposition& plan, u64 stage, const std::vector<Plaintext>& diagonals,
                    Ciphertext& x) const;
    std::vector<Ciphertext> babyRotations(const RadixDecomposition& plan, u64 stage,
                                          const Ciphertext& x) const;
    std::vector<Ciphertext> groupSums(const RadixDecomposition& plan, u64 stage,
                                      const std::vector<Plaintext>& diagonals,
                                      const std::vector<Ciphertext>& turned) const;
    void combineInSequence(const RadixDecomposition& plan, u64 stage, const std::vector<Ciphertext>& sums,
                           Ciphertext& x) const;
    /// Replaces the stages that a short transform lacks by multiplications: all but `stages` of three.
    void multiplyForMissingStages(Ciphertext& x, u64 stages) const;

    void doubleAngles(Ciphertext& x, double amplitude) const;
    std::shared_ptr<SparseSecretEncapsulationKey> encapsulationKey() const;

    Context context_;
    std::shared_ptr<HomEvaluatorImpl> evaluator_;
    BootParameter parameter_;
    std::map<u64, std::unique_ptr<BootConstants>> boot_constants_;
    std::optional<Context> context_sparse_;
    std::optional<KeySwitcher> sparse_key_switcher_;
    bool sequential_rotations_;
    StepObserver stepObserver_;
};

} // namespace Torvo
