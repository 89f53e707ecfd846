#pragma once

#include "core/Integers.hpp"

#include <functional>
#include <string>
#include <vector>

/// Every kind of file that the library loads: how it is loaded, and how a program uses the loaded object. For
/// files that cannot be trusted.
namespace Torvo::test {

/// A violation that no file may cause. It is not a std::exception, which would be a refusal.
struct Finding {
    std::string what;
};

struct FileKind {
    std::string name; ///< a file of this kind in tests/archives/damaged has it in front of its first dot
    /// Loads the file and uses the object in every way that asks nothing of the user, on rings of a toy size.
    /// Refusals on the way are caught.
    /// @throws std::exception when the load refuses the file
    /// @throws Finding
    void (*loadAndUse)(const std::string& file);
    /// Sound files of the kind: names in tests/archives ...
    std::vector<std::string> kept;
    /// ... and files made on the spot, where those kept are too large or there are none.
    std::vector<std::string> (*made)();
};

const std::vector<FileKind>& fileKinds();
/// @throws std::out_of_range for a name that is none
const FileKind& fileKind(const std::string& name);

/// Looks at a file as `inspect` does, which must need no memory to speak of and refuse with a text.
/// @throws Finding
void inspectWithinMemory(const std::string& file);

/// Whether the file was inspected, loaded and used; false when it was refused.
/// @throws Finding
bool feed(const FileKind& kind, const std::string& file);

/// Runs `load` of a file of `byteCount` bytes. A load may take twice what the file has, and 4 MiB: for an
/// empty object of a toy ring and the first piece of a field whose length is forged.
/// @throws Finding when it takes more
void loadWithinMemory(u64 byteCount, const std::function<void()>& load);
/// Runs `use` of a loaded object. A refusal is harmless, and must not prevent the next use.
/// @throws Finding when it takes more memory than any use of a toy ring can need
void attempt(const std::function<void()>& use);

} // namespace Torvo::test
