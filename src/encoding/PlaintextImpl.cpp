#include "encoding/PlaintextImpl.hpp"

namespace Torvo {

PlaintextImpl::PlaintextImpl(const Context& ring)
    : context(ring), log_slots(getLogFullSlots(ring)), mx(ring, false, true) {}

} // namespace Torvo
