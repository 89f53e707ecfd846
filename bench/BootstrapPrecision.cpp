// Measures the precision of bootstrapping: for each preset, over several keys, -log2 of the absolute error of
// a slot, as minimum, 1-percentile and mean, beside the mean that the bend of the sine alone would leave
// (docs/bootstrapping.md).
//
//     BootstrapPrecision [--keys K] [--log-slots L] [--real] [--extended] preset ...
//
// Messages are uniform in the unit disc, or in [-1, 1] with --real. Rotations run one after the other, so
// that the keys stay small. Without --log-slots all slots are used.

#include "bootstrap/BootParameter.hpp"
#include "context/ContextContent.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <map>
#include <memory>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace Torvo;

struct Options {
    int keys = 3;
    long logSlots = -1;
    bool isReal = false;
    bool isExtended = false;
    std::vector<std::string> presets;
};

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--keys" && i + 1 < argc)
            options.keys = std::stoi(argv[++i]);
        else if (argument == "--log-slots" && i + 1 < argc)
            options.logSlots = std::stol(argv[++i]);
        else if (argument == "--real")
            options.isReal = true;
        else if (argument == "--extended")
            options.isExtended = true;
        else
            options.presets.push_back(argument);
    }
    return options;
}

const std::map<std::string, ParameterPreset> bootstrappable{
    {"FVa", ParameterPreset::FVa}, {"FVb", ParameterPreset::FVb}, {"FVc", ParameterPreset::FVc},
    {"FGa", ParameterPreset::FGa}, {"FGb", ParameterPreset::FGb}, {"FGd", ParameterPreset::FGd},
    {"FTa", ParameterPreset::FTa}, {"FTb", ParameterPreset::FTb}, {"FX", ParameterPreset::FX},
};

Message randomMessage(std::mt19937_64& random, unsigned long logSlots, bool isReal) {
    std::uniform_real_distribution<double> uniform(-1, 1);
    Message message(logSlots);
    for (auto& slot : message) {
        do slot = {uniform(random), isReal ? 0.0 : uniform(random)};
        while (std::abs(slot) > 1);
    }
    return message;
}

/// What the sine, straightened by its arcsine polynomial, leaves of a part of the message.
double bend(const Context& context, const BootParameter& boot, double part) {
    const double epsilon = static_cast<double>(boot.pre_raise_factor) *
                           std::pow(2.0, context->scale_factors.log_scale[0]) /
                           static_cast<double>(context->primes.getPrime(0));
    const double s = 2 * std::numbers::pi * epsilon * part;
    if (boot.arcsine_degree == 1) return part * s * s / 6;
    if (boot.arcsine_degree == 3) return part * 3 * std::pow(s, 4) / 40;
    return part * 35 * std::pow(s, 8) / 1152;
}

struct Setup {
    Setup(ParameterPreset preset, const Options& options)
        : context(makeContext(preset)), sparse(isSparseSecretEncapsulationSupported(context)
                                                   ? makeContext(getSparseParameterPresetFor(preset))
                                                   : nullptr),
          logSlots(options.logSlots < 0 ? getLogFullSlots(context)
                                        : static_cast<unsigned long>(options.logSlots)),
          secretKey(context) {
        const KeyPack pack = sparse ? KeyPack(context, sparse) : KeyPack(context);
        const KeyGenerator generator =
            sparse ? KeyGenerator(context, sparse, secretKey, pack) : KeyGenerator(context, secretKey, pack);
        generator.genMultKey();
        generator.genConjKey();
        generator.genRotKeysForBootstrap(logSlots, true);
        if (options.isExtended) generator.genRotKeysForBootstrap(getLogFullSlots(context), true);
        if (sparse) generator.genSparseSecretEncapsulationKey();
        const HomEvaluator evaluator(context, pack);
        bootstrapper = std::make_unique<Bootstrapper>(sparse ? Bootstrapper(evaluator, sparse, logSlots, true)
                                                             : Bootstrapper(evaluator, logSlots, true));
        if (options.isExtended) bootstrapper->makeBootConstants(getLogFullSlots(context));
    }

    Context context, sparse;
    unsigned long logSlots;
    SecretKey secretKey;
    std::unique_ptr<Bootstrapper> bootstrapper;
};

void measure(const std::string& name, const Options& options) {
    std::mt19937_64 random(1); // NOLINT(bugprone-random-generator-seed): the same messages in every run
    std::vector<double> bits;
    double bendBits = 0, seconds = 0;
    unsigned long before = 0, after = 0, logSlots = 0;
    for (int key = 0; key < options.keys; ++key) {
        const Setup setup(bootstrappable.at(name), options);
        const BootParameter boot(setup.context);
        logSlots = setup.logSlots;
        const Message message = randomMessage(random, logSlots, options.isReal);
        Ciphertext in(setup.context), out(setup.context);
        before = setup.bootstrapper->getMinLevelForBootstrap() + (options.isExtended ? 1 : 0);
        Encryptor(setup.context).encrypt(message, setup.secretKey, in, before, 0);
        const auto start = std::chrono::steady_clock::now();
        if (options.isExtended)
            setup.bootstrapper->bootstrapExtended(in, out, !options.isReal);
        else
            setup.bootstrapper->bootstrap(in, out, !options.isReal);
        seconds +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / options.keys;
        after = out.getLevel();
        Message got;
        Decryptor(setup.context).decrypt(out, setup.secretKey, got);
        for (unsigned long i = 0; i < message.getSize(); ++i) {
            bits.push_back(-std::log2(std::abs(got[i] - message[i])));
            bendBits -= std::log2(std::hypot(bend(setup.context, boot, message[i].real()),
                                             bend(setup.context, boot, message[i].imag())));
        }
    }
    std::ranges::sort(bits);
    const auto count = static_cast<double>(bits.size());
    std::printf("| `%s`%s | %lu | %s | %lu | %lu | %.1f | %.1f | %.1f | %.1f | %.1f |\n", name.c_str(),
                options.isExtended ? " extended" : "", logSlots, options.isReal ? "real" : "complex", before,
                after, bits.front(), bits[bits.size() / 100],
                std::accumulate(bits.begin(), bits.end(), 0.0) / count, bendBits / count, seconds);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    std::printf("| preset | log slots | message | level before | after | min bits | 1 %% | mean | bend alone "
                "| seconds |\n"
                "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
    for (const std::string& name : options.presets) measure(name, options);
    return 0;
}
