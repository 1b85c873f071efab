#include "support/largest_terms.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace {

using namespace Nimbrel;

struct Term {
    double probability;
    std::size_t place;

    bool operator==(const Term&) const = default;
};

std::vector<Term> largest(const std::vector<double>& probabilities, std::size_t count) {
    LargestTerms<Term> terms(count, probabilities.size());
    for (std::size_t place = 0; place < probabilities.size(); ++place) {
        const double probability = probabilities[place];
        if (probability > terms.threshold()) terms.keep({probability, place});
    }
    return std::move(terms).sorted();
}

TEST(LargestTerms, AreInDescendingOrder) {
    EXPECT_EQ(largest({0.25, 0.5, 0.125, 1.0}, 3),
              (std::vector<Term>{{1.0, 3}, {0.5, 1}, {0.25, 0}}));
}

TEST(LargestTerms, AmongEqualsTheSmallerPlaceIsFirst) {
    EXPECT_EQ(largest({0.5, 1.0, 0.5, 1.0, 0.5}, 3),
              (std::vector<Term>{{1.0, 1}, {1.0, 3}, {0.5, 0}}));
    EXPECT_EQ(largest({0.5, 0.5, 0.5}, 2), (std::vector<Term>{{0.5, 0}, {0.5, 1}}));
}

TEST(LargestTerms, ATermOfProbability0OrNaNIsNotKept) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(largest({0.0, nan, 0.5, -0.0}, 4), (std::vector<Term>{{0.5, 2}}));
    EXPECT_TRUE(largest({}, 2).empty());
}

TEST(LargestTerms, TheThresholdIsTheLastProbabilityOfAFullList) {
    LargestTerms<Term> terms(2, 9);
    EXPECT_EQ(terms.threshold(), 0.0);
    terms.keep({0.5, 0});
    EXPECT_EQ(terms.threshold(), 0.0);
    terms.keep({0.25, 1});
    EXPECT_EQ(terms.threshold(), 0.25);
    terms.keep({1.0, 2});
    EXPECT_EQ(terms.threshold(), 0.5);
}

TEST(LargestTerms, AgreeWithAStableSort) {
    std::mt19937_64 draws(7);
    for (int repeat = 0; repeat < 200; ++repeat) {
        std::vector<double> probabilities(1 + draws() % 60);
        for (double& probability : probabilities) probability = static_cast<double>(draws() % 12);
        std::vector<Term> expected;
        for (std::size_t place = 0; place < probabilities.size(); ++place) {
            if (probabilities[place] != 0.0) expected.push_back({probabilities[place], place});
        }
        std::stable_sort(expected.begin(), expected.end(), [](const Term& a, const Term& b) {
            return a.probability > b.probability;
        });
        const std::size_t count = 1 + draws() % 70;
        if (expected.size() > count) expected.resize(count);
        ASSERT_EQ(largest(probabilities, count), expected) << "repeat " << repeat;
    }
}

}  // namespace
