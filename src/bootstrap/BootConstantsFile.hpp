#pragma once

#include "bootstrap/BootConstants.hpp"
#include "core/Integers.hpp"

#include <array>
#include <iosfwd>
#include <string>

namespace Torvo {

/// The file of the constants that a recipe gives (docs/files.md): a head of fixed length, then the rows of all
/// plaintexts, one after the other and aligned as row kernels like them, so that they can be used where they lie.
///
/// What the file must be follows from the recipe, and is compared with it before a row is looked at: no number of the
/// file decides about memory. The rows themselves are compared with their digest if the caller asks for it. Otherwise
/// damaged ones give wrong results, and nothing worse: no word is an index.
class BootConstantsFile {
public:
    static constexpr u64 headBytes = 192;

    explicit BootConstantsFile(const BootRecipe& recipe) : recipe_(recipe) {}

    /// The length of the file of constants for `log_slots`, of a ring of this degree and chain.
    static u64 byteCount(u64 log_slots, u64 degree, u64 chain_length);
    /// As all objects are saved: to a stream or, replacing the file as a whole, to a path. `constants` were made from
    /// the recipe. A file that they are mapped from holds them: it stays as it is.
    static void save(const BootConstants& constants, const std::string& path);
    static void save(const BootConstants& constants, std::ostream& stream);

    /// Constants whose rows lie in the file.
    /// @throws RuntimeException of `MappedFile`; "Cannot take bootstrapping constants from " and so on
    BootStages map(const std::string& path, bool check) const;
    /// Constants in memory of their own.
    /// @throws RuntimeException as `map`; of `Serialize::loadWhole`
    /// @throws cereal::Exception of `Serialize::load` on a short read
    BootStages read(const std::string& path, bool check) const;
    /// The same from a stream, in which more may follow.
    BootStages read(std::istream& stream, bool check) const;

private:
    BootRecipe recipe_;
};

} // namespace Torvo
