#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "encoding/RescaleCounter.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>

namespace Torvo {

class PlaintextImpl {
public:
    PlaintextImpl(const Context& context, Polynomial&& polynomial);

    /// Hash, tag, log slots, counter, polynomial (docs/files.md).
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

    Context context;
    u64 log_slots;
    RescaleCounter rescale_counter;
    Polynomial mx;
};

} // namespace Torvo
