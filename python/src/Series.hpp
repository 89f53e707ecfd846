#pragma once

#include "Messages.hpp"

#include <Torvo/ChebyshevSeries.hpp>

namespace TorvoPython {

using SeriesHandle = Guarded<Torvo::ChebyshevSeries>;

} // namespace TorvoPython
