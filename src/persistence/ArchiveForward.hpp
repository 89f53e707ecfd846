#pragma once

namespace cereal {
class PortableBinaryOutputArchive;
class PortableBinaryInputArchive;
} // namespace cereal

namespace Torvo {

/// The archives that all byte formats are written in. Headers name them through this file; only the bodies
/// of save and load include cereal.
using OutputArchive = cereal::PortableBinaryOutputArchive;
using InputArchive = cereal::PortableBinaryInputArchive;

} // namespace Torvo
