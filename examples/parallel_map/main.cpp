// The same work on 200 items, eight at a time, with a progress line. An item that fails is told by its name, and ends the
// others.
//
//     parallel_map [SMALLEST]      the items are the 200 numbers from there on; the default is 0
//
// Exit code: 0, or 1 if an item has failed.
#include <cmath>
#include <format>
#include <iostream>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

static double Root(int number) {
    Orvane::CancellableSleep(10);  // as if it were hard
    return number >= 0 ? std::sqrt(number) : throw std::invalid_argument("a negative number has no root");
}

int main(int count, char** arguments) {
    const Orvane::ConcurrencyLifetime lifetime;
    const int smallest = count > 1 ? std::stoi(arguments[1]) : 0;
    Orvane::JobGroup group(L"Roots", 8);
    std::vector<Orvane::GroupJob<double>> jobs;
    for (int number = smallest; number < smallest + 200; ++number) {
        jobs.push_back(group.Run(std::format(L"Root of {}", number).c_str(), Root, number));
    }
    for (const Orvane::EndedJob& ended : group) {
        const Orvane::JobCounts now = group.Counts();
        std::cerr << std::format("\r{} waiting, {} running, {} done ", now.waiting, now.running, now.done);
        if (ended.error) {
            std::wcout << ended.name << L": " << Orvane::ToText(ended.error).c_str() << std::endl;
        }
    }
    if (group.Counts().failed != 0) {
        return 1;
    }
    const std::vector<double> roots = Orvane::WhenAll(jobs);
    std::cout << std::format("The sum is {:.3f}.\n", std::accumulate(roots.begin(), roots.end(), 0.0));
}
