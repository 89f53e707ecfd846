#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "core/MultipleDevice.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>

#include <vector>

namespace Torvo {

/// The record behind a switching key.
class EvaluationKeyImpl {
public:
    EvaluationKeyImpl();
    /// Data unset.
    EvaluationKeyImpl(const Context& context, char type, u64 rotationIndex);

    /// Tag, hash, type, rotation index, ax, bx (docs/files.md): the fields after the frame, which bundles of
    /// keys write one after the other. Loading stores hash, type and index of the file; it refuses other
    /// shapes, and other rings if the key has a context.
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);
    /// Loads a key that replaces this one. It must have this key's type and index and the ring of its
    /// context, all checked before the polynomials are read.
    void loadOwn(InputArchive& archive);
    /// The same for a rotation key of any index.
    void loadAnyRotation(InputArchive& archive);

    Context context;
    char type = 0;
    u64 rotationIndex = 0;
    MultipleDevice<std::vector<Polynomial>> ax;
    MultipleDevice<std::vector<Polynomial>> bx;
    u64 context_hash = 0;

private:
    template <class IsTaken>
    void loadOwn(InputArchive& archive, IsTaken&& isTaken);
    void loadParts(InputArchive& archive);
};

} // namespace Torvo
