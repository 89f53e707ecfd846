// 11. A sealed auction.
//
// 64 bidders encrypt their bids; a server sorts them without seeing any and returns the three highest and who made the
// highest one. All pairs of bids are compared at once, 4096 of them in one ciphertext, and bootstraps give the levels
// back that this takes. What a real run will do is known beforehand from a dry run.
//
// `sealed_auction FX` does the same with 4 bids on the toy parameters, in a second and without any security.

#include "common/Phase.hpp"

#include <Torvo/Torvo.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace Torvo;
using namespace example;

// Bids are multiples of 1/64 in [-1, 1], so that two that differ are told apart: the margin is 2^-7 of the bound.
constexpr double steps = 64;
constexpr Accuracy accuracy{8, 8};

Message randomBids(unsigned long logCount) {
    std::mt19937 random(11);
    Message bids(logCount);
    for (auto& bid : bids) bid = std::floor(std::uniform_real_distribution(-steps, steps)(random)) / steps;
    return bids;
}

// The circuit is written once: for ciphertexts with bootstraps, and for a plan.
template <class Evaluator, class Bids>
void holdAuction(const Evaluator& evaluator, const Bids& bids, Bids& highest, Bids& winner) {
    topK(evaluator, bids, 3, 1, highest, accuracy);
    argmax(evaluator, bids, 1, winner, accuracy);
}

// GiB that this process has had at most.
double peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") {
            double kib = 0;
            status >> kib;
            return kib / (1 << 20);
        }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const bool isToy = argc > 1 && std::string(argv[1]) == "FX";
    const Context context = makeContext(isToy ? ParameterPreset::FX : ParameterPreset::FGb);
    const unsigned long logCount = isToy ? 2 : 6, logPairs = 2 * logCount;
    const Message bids = randomBids(logCount);

    const Plan plan(context, BootstrappingEvaluator::Precision::Standard);
    PlannedCiphertext plannedHighest, plannedWinner;
    holdAuction(plan, plan.encrypt(bids), plannedHighest, plannedWinner);
    const PlanReport report = plan.getReport();
    std::printf(
        "planned                  %lu bootstraps, %lu key switches, %zu rotation keys besides those of the "
        "bootstrap\n",
        report.bootstraps, report.keySwitches(), report.leftRotations.size());

    const SecretKey secretKey(context);
    const KeyGenerator keyGenerator(context, secretKey);
    const double keys = timed("generate keys", [&] {
        keyGenerator.genEncKey();
        keyGenerator.genMultKey();
        keyGenerator.genConjKey();
        keyGenerator.genRotKeysForBootstrap(logPairs, true);
        for (const unsigned long index : report.leftRotations)
            keyGenerator.genRotKeyIfNotExist(static_cast<long>(index));
    });
    const HomEvaluator evaluator(context, keyGenerator.getKeyPack());
    const BootstrappingEvaluator server(evaluator, Bootstrapper(evaluator, logPairs, true));
    Ciphertext encrypted(context), highest(context), winner(context);
    Encryptor(context).encrypt(bids, keyGenerator.getKeyPack(), encrypted);
    const double auction =
        timed("hold the auction", [&] { holdAuction(server, encrypted, highest, winner); });

    const Decryptor decryptor(context);
    Message best, oneHot;
    decryptor.decrypt(highest, secretKey, best);
    decryptor.decrypt(winner, secretKey, oneHot);
    std::vector<double> sorted;
    for (const auto& bid : bids) sorted.push_back(bid.real());
    std::sort(sorted.rbegin(), sorted.rend());
    double error = 0;
    for (unsigned long k = 0; k < 3; ++k) error = std::max(error, std::abs(best[k].real() - sorted[k]));
    const auto place = std::max_element(oneHot.begin(), oneHot.end(),
                                        [](const auto& a, const auto& b) { return a.real() < b.real(); }) -
                       oneHot.begin();

    std::printf("generate keys            %.1f s\n", keys);
    std::printf("hold the auction         %.1f s\n", auction);
    std::printf("memory                   %.1f GiB at most\n", peakMemory());
    std::printf("three highest bids       %.3f %.3f %.3f\n", best[0].real(), best[1].real(), best[2].real());
    std::printf("largest error            2^%.1f, at most 2^-8 promised\n", std::log2(error));
    std::printf("highest bidder           %td, with a bid of %.3f\n", place,
                bids[static_cast<unsigned long>(place)].real());
    return error < 0x1p-8 && bids[static_cast<unsigned long>(place)].real() == sorted[0] ? 0 : 1;
}
