#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace corvel::testing {

// The numbers 0 to count - 1, each once in every round, in an order drawn afresh each round
// from the seed: a soak's call kinds in random order, none left out of a short run.
class ShuffledRounds {
public:
    ShuffledRounds(std::size_t count, unsigned seed) : count_(count), draw_(seed) {}

    std::size_t next()
    {
        if (round_.empty()) {
            for (std::size_t i = 0; i < count_; ++i) round_.push_back(i);
            std::shuffle(round_.begin(), round_.end(), draw_);
        }
        const std::size_t drawn = round_.back();
        round_.pop_back();
        return drawn;
    }
    // A caller's number, from the same seed.
    std::string number() { return "0" + std::to_string(std::uniform_int_distribution<int>(100, 9999)(draw_)); }

private:
    std::size_t count_;
    std::mt19937 draw_;
    std::vector<std::size_t> round_;
};

} // namespace corvel::testing
