#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "core/Integers.hpp"

#include <Torvo/LWEParameterPreset.hpp>
#include <Torvo/ParameterPreset.hpp>

namespace Torvo {

/// The content of a context file: enough to rebuild the context. Of a preset the numbers are not looked at.
template <class Preset, class Numbers>
struct Recipe {
    Preset preset;
    Numbers numbers;

    template <class Archive>
    void serialize(Archive& archive) {
        archive(preset, numbers);
    }
};

/// The order of the file is not that of `CustomSizes`, and stands here only.
struct RecipeNumbers {
    CustomSizes sizes;
    u64 encryption_level; ///< for readers of the file: no context is built from it

    template <class Archive>
    void serialize(Archive& archive) {
        archive(sizes.log_degree, encryption_level, sizes.gadget_rank, sizes.log_bpsize, sizes.log_tpsize,
                sizes.log_qpsize, sizes.chain_length, sizes.rank);
    }
};

using ContextRecipe = Recipe<ParameterPreset, RecipeNumbers>;

namespace LWE {

/// As for a ring.
struct RecipeNumbers {
    CustomSizes sizes;

    template <class Archive>
    void serialize(Archive& archive) {
        archive(sizes.dimension, sizes.log_bpsize, sizes.log_qpsize, sizes.chain_length);
    }
};

using ContextRecipe = Recipe<ParameterPreset, RecipeNumbers>;

} // namespace LWE

} // namespace Torvo
