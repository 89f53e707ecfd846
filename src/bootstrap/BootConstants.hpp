#pragma once

#include "bootstrap/SparseComplexMatrix.hpp"
#include "core/Integers.hpp"
#include "core/MultipleDevice.hpp"
#include "persistence/MappedFile.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <memory>
#include <mutex>
#include <vector>

namespace Torvo {

/// What constants are made from.
struct BootRecipe {
    Context context;
    u64 log_slots;
    double coeff_to_slot_constant, slot_to_coeff_constant;
};

/// The plaintexts of one stage: one for each diagonal, all at one level.
struct BootStageShape {
    u64 count;
    u64 level;
};

/// The stages of both transforms, from slot to coefficient first; each transform's in the order of its list.
struct BootShapes {
    BootShapes(u64 log_slots, u64 chain_length);

    u64 plaintextCount() const;
    /// Of all plaintexts together.
    u64 rowCount() const;

    std::vector<BootStageShape> slotToCoeff, coeffToSlot;
};

/// The plaintexts of the two transforms, stage by stage.
struct BootStages {
    std::vector<std::vector<Plaintext>> slotToCoeff, coeffToSlot;
    std::shared_ptr<const MappedFile> file{}; ///< where their rows lie, unless in memory
};

/// The two linear transforms of bootstrapping for one `log_slots`. Each is factored into at most three
/// stages, and each stage is split into diagonals. Each diagonal is scaled, rotated back by its giant step
/// and encoded at the level of its use. Many threads may read.
class BootConstants {
public:
    BootConstants(u64 log_slots, double coeff_to_slot_constant, double slot_to_coeff_constant,
                  const Context& context, std::shared_ptr<EnDecoder> encoder);
    /// Those that a file holds. `stages` were made from `recipe`.
    BootConstants(const BootRecipe& recipe, BootStages&& stages);

    const BootRecipe& getRecipe() const { return recipe_; }
    /// The file that the constants on the CPU lie in; null if they lie in memory.
    const MappedFile* getFile() const { return file_.get(); }
    bool isIn(const Device& device) const;
    /// The slot-to-coefficient stages on `device`.
    /// @throws std::out_of_range "map::at"
    const std::vector<std::vector<Plaintext>>& getV0(const Device& device) const;
    /// The coefficient-to-slot stages.
    const std::vector<std::vector<Plaintext>>& getInvV0(const Device& device) const;
    /// Copies both to `device` unless it has them.
    void load(const Device& device);

    /// The first `count` radix-2 factors of the transform from coefficient pairs to slots of `points` points.
    static std::vector<SparseComplexMatrix> buildFactors(u64 points, u64 count);
    /// Where a diagonal leaves the matrix it continues at the other side, or is 0, as in a larger matrix with equal
    /// blocks on its diagonal.
    enum class Corner { Wraps, Ends };
    /// Entry i is element (i, i + diag).
    static Message extractDiagonal(const SparseComplexMatrix& matrix, long diag, Corner corner);
    /// Writes one butterfly block of size `size` at (`row`, `col`).
    static void buildPartialMatrix(u64 row, u64 col, u64 size, SparseComplexMatrix& matrix);

private:
    bool isIn_(const Device& device) const;
    /// The plaintext of the message that repeats `period`.
    Plaintext encodePeriodic(const Message& period, u64 level) const;
    /// The diagonals of a stage whose matrix repeats `block`, multiplied by `factor`, each rotated back by its giant
    /// step and encoded at `level`.
    std::vector<Plaintext> encodeStage(const SparseComplexMatrix& block, u64 stage, double factor,
                                       u64 level) const;
    void generateDFTEncodings();

    BootRecipe recipe_;
    std::shared_ptr<const MappedFile> file_;
    std::shared_ptr<EnDecoder> encoder_; ///< null where nothing was encoded
    MultipleDevice<std::vector<std::vector<Plaintext>>> v0_encodings_;
    MultipleDevice<std::vector<std::vector<Plaintext>>> inv_v0_encodings_;
    mutable std::mutex mutex_;
};

} // namespace Torvo
