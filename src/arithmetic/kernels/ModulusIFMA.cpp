#include "arithmetic/kernels/ModulusAVX512.hpp"

#include "arithmetic/kernels/IFMALanes.hpp"

namespace Torvo::AVX512 {

constinit const RowKernels kernelsWithIFMA = makeRowKernels<IFMALanes>();
constinit const RowKernels shortKernelsWithIFMA = makeRowKernels<IFMALanes, ShortProductLanes>();

} // namespace Torvo::AVX512
