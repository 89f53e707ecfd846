#include "context/ContextContent.hpp"
#include "context/ContextRecipe.hpp"
#include "context/CudaIdsToDevices.hpp"
#include "core/RequireContext.hpp"
#include "persistence/Serialize.hpp"

#include <Torvo/Context.hpp>

namespace Torvo {

namespace {

ContextRecipe recipeOf(const Parameter& p) {
    const CustomSizes sizes{p.log_degree, p.chain_length, p.log_bpsize, p.log_qpsize,
                            p.log_tpsize, p.gadget_rank,  p.rank};
    return {p.preset, {sizes, p.encryption_level}};
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

Context makeContext(unsigned long log_degree, unsigned long chain_length, unsigned long log_bpsize,
                    unsigned long log_qpsize, unsigned long log_tpsize, unsigned long gadget_rank,
                    unsigned long rank, const std::set<int>& cuda_device_ids) {
    const CustomSizes sizes{log_degree, chain_length, log_bpsize, log_qpsize, log_tpsize, gadget_rank, rank};
    return std::make_shared<ContextContent>(sizes, cudaIdsToDevices(cuda_device_ids));
}

Context makeContext(unsigned long log_degree, unsigned long chain_length, unsigned long log_bpsize,
                    unsigned long log_qpsize, unsigned long log_tpsize, unsigned long gadget_rank,
                    const std::set<int>& cuda_device_ids) {
    return makeContext(log_degree, chain_length, log_bpsize, log_qpsize, log_tpsize, gadget_rank, 1,
                       cuda_device_ids);
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

bool isSameContext(const Context& a, const Context& b) {
    requireContext(a);
    requireContext(b);
    return *a == *b;
}

unsigned long getLogFullSlots(const Context& context) {
    return parameterOf(context).log_degree - 1;
}

unsigned long getDegree(const Context& context) {
    return parameterOf(context).degree;
}

unsigned long getRank(const Context& context) {
    return parameterOf(context).rank;
}

unsigned long getEncryptionLevel(const Context& context) {
    return parameterOf(context).encryption_level;
}

unsigned long getSecurityLevel(const Context& context) {
    return static_cast<unsigned long>(parameterOf(context).security_level);
}

std::vector<double> getDefaultScaleFactorList(const Context& context) {
    const auto& scales = requireContext(context)->scale_factors.log_scale;
    return {scales.begin(), scales.begin() + static_cast<std::ptrdiff_t>(parameterOf(context).chain_length)};
}

std::vector<unsigned long> getPrimeList(const Context& context) {
    return requireContext(context)->primes.getPrimes();
}

bool isBootstrappableParameter(const Context& context) {
    return parameterOf(context).has_bootstrap;
}

bool isExtendedBootstrapSupported(const Context& context) {
    return parameterOf(context).has_extended_bootstrap;
}

bool isSparseSecretEncapsulationSupported(const Context& context) {
    return parameterOf(context).has_sparse_encapsulation;
}

} // namespace Torvo
