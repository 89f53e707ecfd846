#include "bootstrap/BootParameter.hpp"

#include "arithmetic/chain/PrimeModuli.hpp"
#include "bootstrap/Messages.hpp"
#include "context/ContextContent.hpp"

#include <Torvo/RuntimeException.hpp>

#include <cmath>
#include <map>
#include <numeric>
#include <tuple>

namespace Torvo {

namespace {

/// The settings of one preset, see `BootParameter`; `cosine_frequency` is R = 2 K / 2^double_angle_count.
struct Settings {
    u64 pre_raise_factor;
    u64 post_raise_factor;
    double range_bound;
    Rational cosine_frequency;
    u64 log_cosine_blocks;
    u64 double_angle_count;
    u64 arcsine_degree;
    bool separate_normalization;
    u64 extended_high_shift;
    u64 extended_low_shift;
};

constexpr Settings settingsOfFGb{8, 1, 28.0, {7, 1}, 3, 3, 1, false, 20, 2};

const std::map<ParameterPreset, Settings> settingsOfPresets{
    {ParameterPreset::FVa, {5, 1, 16.0, {8, 1}, 3, 2, 3, false, 20, 0}},
    {ParameterPreset::FVb, {1, 16, 24.0, {3, 1}, 2, 4, 3, true, 20, 7}},
    {ParameterPreset::FGa, {8, 1, 25.6, {16, 5}, 2, 4, 3, false, 20, 6}},
    {ParameterPreset::FGb, settingsOfFGb},
    {ParameterPreset::FTa, {16, 11, 256.0 / 11, {128, 11}, 3, 2, 1, false, 0, 0}},
    {ParameterPreset::FTb, {8, 11, 256.0 / 11, {128, 11}, 3, 2, 1, false, 0, 0}},
    {ParameterPreset::FVc, {1, 16, 24.0, {3, 1}, 2, 4, 7, true, 20, 10}},
    {ParameterPreset::FX, settingsOfFGb},
    {ParameterPreset::FGd, settingsOfFGb},
};

/// Made by tools/cosine_tables.
// clang-format off
const std::map<std::tuple<Rational, u64>, std::vector<double>> COEFF_LIST{
    {{Rational{8, 1}, 32}, // largest error 9.5e-15
     {0.11196783453388673, 0.9763349479470929, 0.4498828065381572, -0.00649587041537214,
      -0.12156380127288584, 1.1045406740760778, -0.50214028684047883, -1.4201882559955461,
      -0.07920669114848094, 0.77328059059546425, -0.03083481864159244, -0.43176896144145315,
      0.81909490970150485, -0.89451658576460118, 0.34613430138687866, -0.09863097794662555,
      0.00623485552935928, -0.00249276747768972, 0.00042279639701289, -6.099007802405e-5,
      7.91333802004e-6, -1.78725955611e-6, 1.7980944037e-7, -1.614112349e-8, 6.6250653e-10,
      -9.822929e-11, 6.64965e-12, -4.1165e-13, 2.361e-14, -2.5e-15, 1.2e-16, 7.6e-15}},
    {{Rational{16, 5}, 16}, // largest error 1.0e-13
     {-0.2478908435467452, -0.4828715610048647, -0.5549849512509988, 0.4766598555843949,
      0.63140546573377677, -0.84780867938495565, 0.26355870632536465, -0.04982429309802055,
      0.00335245486808143, -0.00066071865459439, 5.051464532884e-5, -3.08752382877e-6,
      1.555694395e-7, -1.309119081e-8, 4.6818264e-10, -1.441075e-11}},
    {{Rational{128, 11}, 32}, // largest error 5.2e-11
     {-0.04653697117085729, -1.013935878569551, 0.07787482460087058, -0.3042717794812425,
      -0.10152945159374476, 0.29385572410494022, 1.0490867564151767, 0.86926916638796189,
      -0.01620660923021289, -1.4793290191339865, 0.77258885791065612, -0.22165159034209321,
      0.46768016419399015, 0.77019315493011436, -2.5589473262879922, 1.9992371515820265,
      0.28705219891426599, -0.81700054526440072, 0.60878048652547747, -0.28639741489941803,
      0.13962245679724543, -0.09543076685747704, 0.02745209496237075, -0.00653874686667615,
      0.00074016368217736, -0.00028426699556998, 4.877108186297e-5, -7.40797971251e-6,
      1.05790056195e-6, -2.7070628783e-7, 3.175555058e-8, -3.39968944e-09}},
    {{Rational{7, 1}, 32}, // largest error 6.9e-15
     {-0.11960936315586364, -0.8696041127385477, -0.14991859912092537, -0.6052588911771579,
      -0.40917700663076743, 0.60072554803590325, -0.34502650425087572, 1.2216030566786122,
      -0.23500380845663759, -0.61946592291645598, 0.94835687571002191, -0.55302160816542783,
      0.26968599392385687, -0.16716058627442141, 0.0403595434740865, -0.00772719429107416,
      0.00032212115978684, -8.917111457871e-5, 1.064407636436e-5, -1.10125393672e-6,
      1.0204315508e-7, -1.670179844e-8, 1.22534426e-9, -8.084901e-11, 2.43622e-12, -2.6691e-13,
      1.339e-14, -6.2e-16, 3.0e-17, 0.0, 0.0, -1.1e-16}},
    {{Rational{3, 1}, 16}, // largest error 1.5e-14
     {-0.18121145350892778, -0.4246917423480836, -0.6243680096450764, 0.08534501253558036,
      0.64387933774156117, -0.63493536784504663, 0.16023104261940884, -0.02547133737838911,
      0.0014528370518687, -0.00024570381611852, 1.620811709692e-5, -8.5839716352e-7, 3.753840058e-8,
      -2.74847707e-9, 8.565469e-11, -2.30264e-12}},
};
// clang-format on

u64 levelsOfArcsine(u64 degree) {
    switch (degree) {
    case 1:
        return 0;
    case 3:
        return 2;
    case 7:
        return 3;
    default:
        throw RuntimeException(message::arcsineDegreeNotSupported);
    }
}

} // namespace

std::vector<double> getCosineCoeff(Rational r, u64 degree) {
    return COEFF_LIST.at({r, degree});
}

double equalShare(double constant, u64 count) {
    if (count == 1) return constant;
    return count == 2 ? std::sqrt(constant) : std::cbrt(constant);
}

BootParameter::BootParameter(const Context& context) {
    const Parameter& parameter = context->parameter;
    if (!parameter.has_bootstrap) return;
    const Settings& settings = settingsOfPresets.at(parameter.preset);
    pre_raise_factor = settings.pre_raise_factor;
    post_raise_factor = settings.post_raise_factor;
    range_bound = settings.range_bound;
    separate_normalization = settings.separate_normalization;
    log_cosine_blocks = settings.log_cosine_blocks;
    double_angle_count = settings.double_angle_count;
    arcsine_degree = settings.arcsine_degree;
    extended_high_shift = settings.extended_high_shift;
    extended_low_shift = settings.extended_low_shift;
    cosine_coefficients = getCosineCoeff(settings.cosine_frequency, u64{4} << log_cosine_blocks);
    setTransformConstants(*context);
}

void BootParameter::setTransformConstants(const ContextContent& context) {
    const u64 top = context.parameter.chain_length - 1;
    const auto q0 = static_cast<double>(context.primes.getPrime(0));
    const double ratio = std::pow(2.0, context.scale_factors.log_scale[top]) / q0;
    const double divisor = (2.0 * range_bound) * static_cast<double>(post_raise_factor);
    // The rescales of the levels [first, last] change a value by this power of two.
    const auto correction = [&](u64 first, u64 last) {
        const auto begin = context.scale_factors.level_correction.begin();
        const auto bits = std::accumulate(begin + static_cast<std::ptrdiff_t>(first),
                                          begin + static_cast<std::ptrdiff_t>(last) + 1, std::int64_t{0});
        return std::pow(2.0, static_cast<double>(bits));
    };
    slot_to_coeff_constant = correction(1, slot_to_coeff_depth);
    coeff_to_slot_constant = correction(top + 1 - coeff_to_slot_depth, top);
    if (!separate_normalization) coeff_to_slot_constant = (ratio * coeff_to_slot_constant) / divisor;
}

u64 BootParameter::levelAfter(const Context& context) const {
    // The top level is the chain length minus 1. The cosine spends three levels and one for each doubling of its
    // blocks.
    return context->parameter.chain_length - 1 - coeff_to_slot_depth - 3 - log_cosine_blocks -
           double_angle_count - (separate_normalization ? 1 : 0) - levelsOfArcsine(arcsine_degree);
}

} // namespace Torvo
