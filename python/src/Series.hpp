#pragma once

#include "Messages.hpp"

#include <Torvo/ChebyshevSeries.hpp>

namespace TorvoPython {

using SeriesHandle = Guarded<Torvo::ChebyshevSeries>;

/// A copy, taken under the lock: the series is not locked while it is evaluated.
inline Torvo::ChebyshevSeries copyOf(const SeriesHandle& series) {
    const Computing computing{reading(series)};
    return series.object();
}

} // namespace TorvoPython
