// A caller's arrays may begin at any byte. The undefined-behaviour sanitizer finds a reference to
// an element that is not aligned.
#include <cstring>

#include "sparse/sparse_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// Elements at an address that is not even.
template <typename Element>
class Misaligned {
  public:
    explicit Misaligned(const std::vector<Element>& elements)
        : size_(elements.size()), bytes_(size_ * sizeof(Element) + 1) {
        std::memcpy(bytes_.data() + 1, elements.data(), size_ * sizeof(Element));
    }

    Element* data() { return reinterpret_cast<Element*>(bytes_.data() + 1); }

    std::vector<Element> elements() const {
        std::vector<Element> copies(size_);
        std::memcpy(copies.data(), bytes_.data() + 1, size_ * sizeof(Element));
        return copies;
    }

  private:
    std::size_t size_;
    std::vector<char> bytes_;
};

class AnyAddress : public SparseFilter {
  protected:
    void SetUp() override {
        reset(2);
        load({{3, {0.0, 0.8}}, {1, {0.6, 0.0}}});
    }

    const State state{{0.0, 0.0}, {0.6, 0.0}, {0.0, 0.0}, {0.0, 0.8}};
    Misaligned<complex_t> array{State(4, {7.0, 7.0})};
    std::string text;
};

TEST_F(AnyAddress, APullWritesThere) {
    filter.pull_state(array.data(), text, 4);
    EXPECT_STATE(array.elements(), state);
}

TEST_F(AnyAddress, APartialPullWritesThere) {
    filter.pull_state_specific(text, array.data(), 4, 3);
    EXPECT_STATE(array.elements(), state);
}

TEST_F(AnyAddress, APushReadsThere) {
    Misaligned<complex_t> source({{0.0, 0.0}, {0.0, 0.0}, {0.6, 0.0}, {0.8, 0.0}});
    filter.push_state(source.data(), 0, 4);
    EXPECT_TERMS({2, {0.6, 0.0}}, {3, {0.8, 0.0}});
}

TEST_F(AnyAddress, ACheckReadsThere) {
    Misaligned<complex_t> expected(state);
    EXPECT_EQ(filter.check_state(expected.data(), 1e-9, false), 1);
    EXPECT_EQ(filter.array_rules.check_state_needs(expected.data(), 4, 1e-9).amplitudes, 4UL);
    EXPECT_EQ(filter.array_rules.check_state_needs(array.data(), 2, 1e-9).amplitudes, 4UL);
}

TEST_F(AnyAddress, PeeksWriteThere) {
    filter.peek_value(1, array.data());
    EXPECT_STATE(array.elements(), State({{0.6, 0.0}, {7.0, 7.0}, {7.0, 7.0}, {7.0, 7.0}}));
    Misaligned<unsigned long> indices({7, 7, 7, 7});
    filter.peek_n_biggest_terms(3, indices.data(), array.data());
    EXPECT_EQ(indices.elements(), (std::vector<unsigned long>{3, 1, 0, 7}));
    EXPECT_STATE(array.elements(), State({{0.0, 0.8}, {0.6, 0.0}, {0.0, 0.0}, {7.0, 7.0}}));
}

}  // namespace
