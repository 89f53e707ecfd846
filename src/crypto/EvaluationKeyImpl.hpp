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
    /// keys write one after the other. Loading takes hash, type and index over; it refuses other shapes, and
    /// other rings when the key has a context.
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);
    /// Takes the place of this key: loads nothing but a key of its type, its index and the ring of its
    /// context, all told before the polynomials are read.
    void loadOwn(InputArchive& archive);
    /// The same with the index of any rotation.
    void loadAnyRotation(InputArchive& archive);

    Context context;
    char type = 0;
    u64 rotation_index = 0;
    MultipleDevice<std::vector<Polynomial>> ax;
    MultipleDevice<std::vector<Polynomial>> bx;
    u64 context_hash = 0;

private:
    template <class IsTaken>
    void loadOwn(InputArchive& archive, IsTaken&& isTaken);
    void loadParts(InputArchive& archive);
};

} // namespace Torvo
