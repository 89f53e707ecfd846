#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace Torvo::detail {

/// Who may read a written file: those whom the umask or the replaced file allows, or its owner alone.
enum class Secrecy { Public, Secret };

/// Replaces the file `path` as a whole by the output of `write`: others see the old file or the new one, and
/// if `write` or the disk fails, the old one stays.
///
/// For that a regular file (at the end of its links), or one that does not exist yet, is written under a
/// temporary name in the folder of the target, brought to the disk and renamed. The new file takes the mode
/// of the one that it replaces, and its owner if the system allows that. A secret file has mode 0600 from its
/// `open` on, whatever it replaces.
///
/// A target that is not a regular file (a pipe, a device, an open file of a process) or lies in a folder that
/// accepts no temporary file is opened and written in place. In that case `write` may be called twice.
///
/// The stream has no buffer: a write to a full disk fails at once, and no copy of a key stays behind in
/// memory.
/// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and the
///         reason, when all bytes were accepted but did not reach the disk or the file its name; and what
///         `write` throws
void writeFile(const std::string& path, Secrecy secrecy, const std::function<void(std::ostream&)>& write);

} // namespace Torvo::detail
