// Random sequences of operations, on an object and on a small model of it.
//
//     enum class Op { Push, Pop, Count };
//     TEST(Stack, DoesWhatItsModelDoes) {
//         CheckSequences<Op>(3, [](const Steps<Op>& steps) {
//             for (const auto& [op, number] : steps) { ... RC_ASSERT(stack.Top() == model.back()); ... }
//         });
//     }
//
// A step that makes no sense where it comes is skipped by the test: so what is left of a failing sequence, when steps have been
// taken out of it, is a sequence, too. The shortest one that fails is printed.
//
//     ZARVO_MODEL_SEQUENCES   how many sequences for each test; 1,000 without it
//     ZARVO_STRESS_SEED       the seed; without it every run takes a new one. Both together make the same sequences again.
#pragma once

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Zarvo::Test {

// An operation, and a number that says with what.
template <typename Op>
struct Step {
    Op op;
    int number;
};

template <typename Op>
using Steps = std::vector<Step<Op>>;

// For the sequence that is printed. NameOf(Op) is the test's.
template <typename Op>
void showValue(const Step<Op>& step, std::ostream& stream) {
    stream << "\n    " << NameOf(step.op) << " " << step.number;
}

inline std::uint64_t NumberFromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : otherwise;
}

// The same for all tests of a process.
inline rc::detail::TestParams SequenceParams() {
    static const std::uint64_t seed = NumberFromEnvironment("ZARVO_STRESS_SEED", std::random_device()());
    rc::detail::TestParams params;
    params.seed = seed;
    params.maxSuccess = static_cast<int>(NumberFromEnvironment("ZARVO_MODEL_SEQUENCES", 1'000));
    return params;
}

// `run` applies the steps and asserts by RC_ASSERT, which evaluates both sides of && and ||: put those into parentheses. The numbers are from 0 to `numbers` - 1.
template <typename Op, typename Run>
void CheckSequences(int numbers, Run run) {
    const rc::detail::TestParams params = SequenceParams();
    std::cout << "ZARVO_STRESS_SEED=" << params.seed << " ZARVO_MODEL_SEQUENCES=" << params.maxSuccess << std::endl;

    std::uint64_t steps = 0;
    const auto step = rc::gen::map(
        rc::gen::pair(rc::gen::inRange(0, static_cast<int>(Op::Count)), rc::gen::inRange(0, numbers)),
        [](const std::pair<int, int>& pair) { return Step<Op>{static_cast<Op>(pair.first), pair.second}; });
    const auto property = [&] {
        const auto sequence = *rc::gen::container<Steps<Op>>(step);
        steps += sequence.size();
        run(sequence);
    };
    rc::detail::TestMetadata metadata;
    metadata.id = testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
    const auto result = rc::detail::checkTestable(property, metadata, params);
    if (result.template is<rc::detail::SuccessResult>()) {
        std::cout << params.maxSuccess << " sequences of " << steps << " steps" << std::endl;
    } else {
        std::ostringstream text;
        rc::detail::printResultMessage(result, text);
        ADD_FAILURE() << text.str();
    }
}

}  // namespace Zarvo::Test
