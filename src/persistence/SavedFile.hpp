#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace Torvo::detail {

/// Who may read a file that is written: whom the umask, or the file that is replaced, lets; or its owner
/// alone.
enum class Secrecy { Public, Secret };

/// Puts what `write` gives to its stream into the file of `path`, as a whole: others see the old file or the
/// new one, and when `write` or the disk fails, the old one stands.
///
/// For that a regular file (at the end of its links), or one that is not there yet, is written under a
/// temporary name in the folder of the target, brought to the disk and renamed. The new file takes the mode
/// of the one that it replaces, and its owner where that may be given. A secret one has mode 0600 from its
/// `open` on, whatever stood there.
///
/// What is no regular file (a pipe, a device, what a process already holds open), and what lies in a folder
/// that takes no temporary file, is opened and written in place. There `write` may be called twice.
///
/// The stream has no buffer: a write that the disk has no room for is noticed where it happens, and no copy
/// of a key stays behind in memory.
/// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and the
///         reason, when all bytes were taken but did not come to the disk or to their name; and what `write`
///         throws
void writeFile(const std::string& path, Secrecy secrecy, const std::function<void(std::ostream&)>& write);

} // namespace Torvo::detail
