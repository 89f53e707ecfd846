#include "arithmetic/PrimeModuliShape.hpp"

#include "arithmetic/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>

namespace Torvo {

void requireBackend(const Device& device, FailureNames names) {
    if (device.type == DeviceType::CPU) return;
    throwUnsupported(device.type == DeviceType::GPU ? names.gpu : names.plain);
}

Operand::Operand(const Polynomial& polynomial)
    : degree(polynomial.getDegree()), level(polynomial.getLevel()), rowEnd(polynomial.rowEnd()),
      device(polynomial.getDevice()) {}

Operand::Operand(const LevelledElement& element)
    : degree(0), level(element.getLevel()),
      rowEnd(element.isModUp() ? element.getNumPrimes() : element.getLevel() + 1),
      device(element.getDevice()) {}

RowBound shapeResult(const PrimeModuli& primes, FailureNames names, std::initializer_list<Operand> operands,
                     std::initializer_list<Output> outputs) {
    const Device first = operands.begin()->device;
    RowBound bound{operands.begin()->level, outputs.begin()->polynomial.getNumBase(),
                   operands.begin()->rowEnd};
    bool isCommon = true, isOwn = true;
    for (const Operand& operand : operands) {
        bound.level = std::min(bound.level, operand.level);
        bound.end = std::min(bound.end, operand.rowEnd);
        isCommon = isCommon && operand.device == first;
        isOwn = isOwn && operand.rowEnd <= primes.size() &&
                (operand.degree == 0 || operand.degree == primes.getDegree());
    }
    for (const Output& output : outputs) {
        output.polynomial.setLevel(bound.level);
        bound.end = std::min(bound.end, output.polynomial.rowEnd());
        isOwn = isOwn && output.polynomial.getDegree() == primes.getDegree();
    }
    const Device device = primes.checkDevice(first, isCommon);
    require(isOwn, message::operandsOfOtherRing);
    for (const Output& output : outputs) {
        output.polynomial.allocate(device);
        output.polynomial.setNTT(output.isNTT);
    }
    requireBackend(device, names);
    return bound;
}

} // namespace Torvo
