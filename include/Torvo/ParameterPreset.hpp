#pragma once

#include <Torvo/EncryptionType.hpp>
#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo {

/// The named parameter sets. The numbers are part of the context file format and never change.
///
/// `FV*` (ring degree 2^17), `FG*` (2^16) and `FT*` (2^15) can be bootstrapped; `ST*` (2^15), `SS7` (2^14)
/// and `SD3` (2^13) are for shallow circuits; the digits are the number of multiplicative levels. `FX` is a
/// toy of degree 64 with the prime chain of `FGb` and no security at all, for tests. Names ending in "L0" are
/// single-level partners of `FGb`; the numbers after D and R in a name are log2 of degree and rank.
/// `FGbD12L0`, `FGbD8R4L0` and `FGbD6R6L0` have the scale of `FGb` at level 0, and messages can pass from one
/// to the other; `FGbL0` has a scale of its own, of 58 bits, and no room for a message: it serves only as the
/// context of the keys for `RingPacker::decompose` from `FGb` to `FGbD12L0`. `FGd` is `FGb` with sparse
/// secret encapsulation, for which it needs a second context of preset `SGd0`. All presets but `FX` and
/// `CUSTOM` are rated at 128 bits of security.
///
/// The table says what to expect of a bootstrap with all slots in use, for messages uniform in the unit disc
/// (complex) or in [-1, 1] (real): the mean over slots of -log2 of the absolute error, and the probability of
/// failure (a part of some slot is wrong). The worst slots, near modulus 1, have about 4 bits less. The
/// column "extended" is for two passes. docs/bootstrapping.md has the derivation and the measurements.
///
/// | preset | level after | complex, bits | real, bits | extended, bits | failure |
/// | --- | --- | --- | --- | --- | --- |
/// | `FVa` | 16 | 24.2 | 25.0 | 24.2 | 2^-22 |
/// | `FVb` | 14 | 31.5 | 32.4 | 37.8 | 2^-26 |
/// | `FVc` | 13 | 34.5 | 35.5 | 39.5 | 2^-26 |
/// | `FGa` | 9 | 30.8 | 31.5 | 35.5 | 2^-17 |
/// | `FGb` | 12 | 25.2 | 26.0 | 29.1 | 2^-23 |
/// | `FGd` | 12 | 24.9 | 25.6 | 28.2 | never |
/// | `FTa` | 8 | 11.7 | 12.6 | none | 2^-12 |
/// | `FTb` | 4 | 19.3 | 20.0 | none | 2^-12 |
/// | `FX` | 12 | 25.5 | 26.5 | 30.0 | never |
///
/// `FTa` and `FTb` trade precision for speed: their scales have 28 and 36 bits, and no arcsine straightens
/// their sine. Messages of few slots fail less often and are somewhat more precise.
enum class ParameterPreset : std::uint32_t {
    FVa = 0,
    FVb = 1,
    FGa = 2,
    FGb = 3,
    FTa = 4,
    FTb = 5,
    ST19 = 6,
    ST14 = 7,
    ST11 = 8,
    ST8 = 9,
    ST7 = 10,
    SS7 = 11,
    SD3 = 12,
    CUSTOM = 13,
    FVc = 14,
    FX = 15,
    FGd = 16,
    SGd0 = 17,
    SD3D6R2 = 18,
    FGbL0 = 19,
    FGbD12L0 = 20,
    FGbD8R4L0 = 21,
    FGbD6R6L0 = 22,
};

/// `RLWE` for a preset of rank 1, `MLWE` for the others.
/// @throws RuntimeException "Need to specify some parameters in order to use CUSTOM parameters." for `CUSTOM`
/// @throws RuntimeException "The input parameter preset is not yet supported." for a value outside the enum
TORVO_API EncryptionType getEncryptionType(ParameterPreset preset);

/// The preset of the second context on which sparse secret encapsulation of `preset` runs: `SGd0` for `FGd`.
/// @throws RuntimeException "This parameter preset does not have corresponding sparse parameter preset" for
///         any other preset
TORVO_API ParameterPreset getSparseParameterPresetFor(ParameterPreset preset);

} // namespace Torvo
