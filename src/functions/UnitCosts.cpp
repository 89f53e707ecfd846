#include "functions/UnitCosts.hpp"

#include "bootstrap/BootParameter.hpp"
#include "context/ContextContent.hpp"
#include "context/RadixDecomposition.hpp"
#include "crypto/OutputShape.hpp"
#include "crypto/SeedState.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/CipherOperations.hpp"

#include <Torvo/KeyGenerator.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <span>
#include <utility>

namespace Torvo {

namespace {

/// The least of several runs, in seconds.
double timeOf(const std::function<void()>& run) {
    double least = 1e30;
    for (int times = 0; times < 3; ++times) {
        const auto start = std::chrono::steady_clock::now();
        run();
        least =
            std::min(least, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return least;
}

} // namespace

/// A list that grows at its head. Without a mutex: measuring takes seconds, and a process may fork meanwhile. Where two
/// threads ask for a new ring at once, both measure it.
struct UnitCosts::Measured {
    Context context;
    UnitCosts costs;
    const Measured* next;
};

const UnitCosts& UnitCosts::of(const Context& context) {
    static std::atomic<const Measured*> head{nullptr}; // what it leads to is never destroyed
    for (const Measured* each = head.load(); each != nullptr; each = each->next)
        if (isSameRing(each->context, context)) return each->costs;
    auto* made = new Measured{context, UnitCosts(context), head.load()};
    while (!head.compare_exchange_weak(made->next, made)) {
    }
    return made->costs;
}

UnitCosts::UnitCosts(const Context& context) {
    const BorrowedGenerator apart; // whether a ring was measured before is no matter of the caller's seed
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    generator.genMultKey();
    generator.genConjKey();
    generator.genLeftRotKey(1);
    const HomEvaluator evaluator(context, generator.getKeyPack());
    const CipherOperations operations(evaluator);
    const Message message(getLogFullSlots(context), 0.5);
    const u64 top = context->parameter.chain_length - 1;
    for (const u64 level : {u64{1}, (top + 1) / 2, top}) {
        // Times do not depend on what the words are, so zeros do.
        Ciphertext x(context), owing(context), product = operations.unset(), out = operations.unset();
        x.setLevel(level);
        operations.tensor(x, x, product);
        operations.multAtLevel(x, 0.5, level, owing);
        const auto measure = [&](Step step, const std::function<void()>& run) {
            add(step, level, [&] { return timeOf(run); });
        };
        measure(Step::Tensor, [&] { operations.tensor(x, x, out); });
        measure(Step::Relinearize, [&] { evaluator.relinearize(product, out); });
        measure(Step::Rotate, [&] { evaluator.leftRotate(x, 1, out); });
        measure(Step::Conjugate, [&] { evaluator.conjugate(x, out); });
        measure(Step::PlaintextProduct, [&] { operations.multSlotsAtLevel(x, message, level, out); });
        measure(Step::ConstantProduct, [&] { operations.multAtLevel(x, 0.5, level, out); });
        measure(Step::Add, [&] { operations.add(x, x, out); });
        measure(Step::Rescale, [&] {
            out = owing;
            operations.rescale(out);
        });
        measureTransforms(*evaluator.getImpl(), x);
    }
    if (context->parameter.has_bootstrap) samples_[Step::Bootstrap] = {{0, ofBootstrap(context)}};
}

void UnitCosts::add(Step step, u64 level, const std::function<double()>& seconds) {
    std::vector<Sample>& samples = samples_[step];
    if (samples.empty() || samples.back().level < level) samples.push_back({level, seconds()});
}

/// By what sums take longer that have more of a step.
void UnitCosts::measureTransforms(const HomEvaluatorImpl& evaluator, const Ciphertext& x) {
    constexpr u64 more = 4;
    const Context& context = evaluator.getContext();
    const auto key = evaluator.leftRotationKey(1);
    const KeyOfMap none{1, nullptr},
        rotation{static_cast<long>(context->fft.getGaloisElement(1, x.getDevice())), key.get()};
    const u64 level = x.getLevel();
    const std::vector<u64> rows((level + 1 + context->parameter.numTP) * context->parameter.degree, 1);
    const auto timeOfSum = [&](const std::vector<KeyOfMap>& babies, std::vector<RotatedSum> sums) {
        const std::vector<std::vector<RotatedSum>> results{std::move(sums)};
        const SummedDiagonals operand{x, babies, results};
        return timeOf([&] { evaluator.getKeySwitcher().sumDiagonals(std::span(&operand, 1)); });
    };
    const RotatedSum one{none, {{0, rows.data()}}}, moved{rotation, {{0, rows.data()}}};
    RotatedSum ofMany{none, {}}, ofOneBaby = one;
    for (u64 k = 0; k <= more; ++k) ofMany.terms.push_back({k, rows.data()});
    for (u64 k = 0; k < more; ++k) ofOneBaby.terms.push_back({0, rows.data()});
    const auto share = [](double longer, double shorter) { return std::max(0.0, (longer - shorter) / more); };

    const double least = timeOfSum({none}, {one}), withBaby = timeOfSum({rotation}, {one});
    const double product = share(timeOfSum({none}, {ofOneBaby}), least);
    const double baby =
        share(timeOfSum(std::vector<KeyOfMap>(more + 1, rotation), {ofMany}), withBaby) - product;
    const double giant =
        share(timeOfSum({none}, std::vector<RotatedSum>(more + 1, moved)), timeOfSum({none}, {moved})) -
        product;
    const std::initializer_list<std::pair<Step, double>> steps{{Step::DiagonalProduct, product},
                                                               {Step::BabyStep, baby},
                                                               {Step::GiantStep, giant},
                                                               {Step::Decompose, withBaby - least - baby},
                                                               {Step::Divide, least - product}};
    for (const auto& [step, seconds] : steps)
        add(step, level, [&, seconds = seconds] { return std::max(0.0, seconds); });
}

double UnitCosts::of(Step step, u64 level) const {
    const auto found = samples_.find(step);
    if (found == samples_.end()) return 0;
    const std::vector<Sample>& samples = found->second;
    const auto above = std::ranges::lower_bound(samples, level, {}, &Sample::level);
    if (above == samples.begin()) return samples.front().seconds;
    if (above == samples.end()) return samples.back().seconds;
    const Sample &low = *(above - 1), &high = *above;
    const double part = static_cast<double>(level - low.level) / static_cast<double>(high.level - low.level);
    return low.seconds + part * (high.seconds - low.seconds);
}

double UnitCosts::ofBootstrap(const Context& context) const {
    const BootParameter parameter(context);
    const RadixDecomposition plan(getLogFullSlots(context));
    double seconds = 0;
    const auto transform = [&](u64 firstLevel) {
        for (u64 stage = 0; stage < plan.numStages; ++stage) {
            const auto babies = static_cast<double>(plan.babySteps[stage]),
                       giants = static_cast<double>(plan.giantSteps[stage]);
            const u64 level = firstLevel - stage;
            // The plaintexts are there; a product with one costs as much as a raw product of two ciphertexts.
            seconds += (babies + giants - 2) * of(Step::Rotate, level) +
                       babies * giants * of(Step::Tensor, level) + of(Step::Rescale, level);
        }
    };
    const u64 top = context->parameter.chain_length - 1, after = parameter.levelAfter(context);
    transform(BootParameter::slot_to_coeff_depth);
    transform(top);
    // T_2, T_4 and T_6, the powers that join blocks, the joins, the double angles and the arcsine; for the real and for
    // the imaginary parts.
    const u64 blocks = u64{1} << parameter.log_cosine_blocks;
    const u64 ofArcsine = parameter.arcsine_degree / 2;
    const auto products = static_cast<double>(3 + parameter.log_cosine_blocks + blocks - 1 +
                                              parameter.double_angle_count + ofArcsine);
    const u64 middle = (top - BootParameter::coeff_to_slot_depth + after) / 2;
    seconds +=
        2 * products * (of(Step::Tensor, middle) + of(Step::Relinearize, middle) + of(Step::Rescale, middle));
    return seconds;
}

} // namespace Torvo
