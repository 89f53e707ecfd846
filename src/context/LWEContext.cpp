#include "context/ContextContent.hpp"
#include "context/ContextRecipe.hpp"
#include "context/CudaIdsToDevices.hpp"
#include "context/LWEContextContent.hpp"
#include "context/Messages.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "persistence/Serialize.hpp"

#include <Torvo/LWEContext.hpp>

#include <algorithm>

namespace Torvo {

namespace LWE {

namespace {

ContextRecipe recipeOf(const Parameter& p) {
    return {p.preset, {{p.dimension, p.chain_length, p.log_bpsize, p.log_qpsize}}};
}

const Parameter& parameterOf(const Context& context) {
    return requireContext(context)->parameter;
}

Context contextOf(const ContextRecipe& recipe, const std::set<int>& cuda_device_ids) {
    if (recipe.preset != ParameterPreset::CUSTOM) return makeContext(recipe.preset, cuda_device_ids);
    return std::make_shared<ContextContent>(recipe.numbers.sizes, cudaIdsToDevices(cuda_device_ids));
}

} // namespace

Context makeContext(const ParameterPreset& preset, const std::set<int>& cuda_device_ids) {
    return std::make_shared<ContextContent>(preset, cudaIdsToDevices(cuda_device_ids));
}

Context makeContext(unsigned long dimension, unsigned long chain_length, unsigned long log_bpsize,
                    unsigned long log_qpsize, const std::set<int>& cuda_device_ids) {
    const CustomSizes sizes{dimension, chain_length, log_bpsize, log_qpsize};
    return std::make_shared<ContextContent>(sizes, cudaIdsToDevices(cuda_device_ids));
}

Context makeContextFromFile(const std::string& path, const std::set<int>& cuda_device_ids) {
    ContextRecipe recipe{};
    Serialize::loadWhole(path, recipe);
    return contextOf(recipe, cuda_device_ids);
}

Context makeContext(std::istream& stream, const std::set<int>& cuda_device_ids) {
    ContextRecipe recipe{};
    Serialize::load(stream, recipe);
    return contextOf(recipe, cuda_device_ids);
}

void saveContextToFile(const Context& context, const std::string& path) {
    Serialize::save(path, recipeOf(parameterOf(context)));
}

void saveContext(const Context& context, std::ostream& stream) {
    Serialize::save(stream, recipeOf(parameterOf(context)));
}

std::vector<double> getDefaultScaleFactorList(const Context& context) {
    const auto& scales = requireContext(context)->scale_factors.log_scale;
    return {scales.begin(), scales.begin() + static_cast<std::ptrdiff_t>(parameterOf(context).chain_length)};
}

std::vector<unsigned long> getPrimeList(const Context& context) {
    return requireContext(context)->primes.getPrimes();
}

unsigned long getEncryptionLevel(const Context& context) {
    return parameterOf(context).numQP;
}

unsigned long getDimension(const Context& context) {
    return parameterOf(context).dimension;
}

unsigned long getSecurityLevel(const Context& context) {
    return static_cast<unsigned long>(parameterOf(context).security_level);
}

} // namespace LWE

namespace {

template <class A, class B>
unsigned long maxCompatibleLevel(const A& a, const B& b) {
    requireContext(a);
    requireContext(b);
    require(a->primes.getPrime(0) == b->primes.getPrime(0), message::incompatibleContexts);
    const u64 shorter = std::min(a->parameter.chain_length, b->parameter.chain_length);
    u64 level = 0;
    while (level + 1 < shorter && a->primes.getPrime(level + 1) == b->primes.getPrime(level + 1)) ++level;
    return level;
}

} // namespace

unsigned long getMaxCompatibleLevel(const Context& a, const Context& b) {
    return maxCompatibleLevel(a, b);
}

unsigned long getMaxCompatibleLevel(const LWE::Context& a, const Context& b) {
    return maxCompatibleLevel(a, b);
}

} // namespace Torvo
