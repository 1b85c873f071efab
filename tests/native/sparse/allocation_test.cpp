// Allocations that fail inside a gate: `new` of this program refuses large ones while a test wants
// it.
#include <cstdlib>
#include <limits>
#include <map>
#include <new>

#include "replaced_new.h"
#include "sparse/sparse_support.h"

namespace {

std::size_t refused_from = std::numeric_limits<std::size_t>::max();

/// While it exists, allocations of this size and above fail.
class Shortage {
  public:
    explicit Shortage(std::size_t bytes) { refused_from = bytes; }
    ~Shortage() { refused_from = std::numeric_limits<std::size_t>::max(); }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;
};

}  // namespace

void* Nimbrel::Testing::allocate_for_new(std::size_t bytes) {
    return bytes >= refused_from ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
}

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long count = 4096;
constexpr std::size_t half_of_the_list = count / 2 * sizeof(term_t);

/// Order of the indices in the list before the gate.
enum class Shape { ordered, two_runs, scattered };

class OutOfMemory : public SparseFilter, public testing::WithParamInterface<Shape> {
  protected:
    /// Loads every second index, with no spare capacity. On qubit 0 no term has a partner; on qubit
    /// 12 every term has one.
    void fill(Shape shape) {
        Terms terms;
        for (unsigned long i = 0; i < count; ++i) {
            const unsigned long place = shape == Shape::ordered    ? i
                                        : shape == Shape::two_runs ? i ^ (count / 2)
                                                                   : i * 2741 % count;
            terms.push_back({place * 2, {static_cast<double>(place), -1.0}});
        }
        filter.terms = TermList();
        filter.terms.reserve(count);
        load(terms);
    }

    std::map<unsigned long, double> parts_by_key() const {
        std::map<unsigned long, double> parts;
        for (const term_t& term : filter.terms) parts[term.key] = term.amplitude.re;
        return parts;
    }
};

TEST_P(OutOfMemory, LeavesEveryTermWithoutItsMark) {
    reset(20);
    const struct {
        unsigned long target;
        unsigned long terms_after;
    } gates[] = {{1, 2 * count}, {1UL << 12, count}};
    for (const auto& [target, terms_after] : gates) {
        fill(GetParam());
        run(OP_X, {.target_mask = target});  // sets the targets, so that the gates mark terms
        const auto before = parts_by_key();
        ASSERT_EQ(before.size(), count);
        for (const unsigned long opcode : {OP_H, OP_RX, OP_RY}) {
            const Shortage shortage(half_of_the_list);
            EXPECT_THROW(run(opcode, {.target_mask = target, .angle = 30.0}), std::bad_alloc);
        }
        EXPECT_EQ(parts_by_key(), before);
        run(OP_H, {.target_mask = target});
        EXPECT_EQ(filter.terms.size(), terms_after);
    }
}

TEST_P(OutOfMemory, AFailedPushKeepsTheState) {
    reset(20);
    fill(GetParam());
    const auto before = parts_by_key();
    const State larger(2 * count, complex_t{1.0, 0.0});
    {
        const Shortage shortage(half_of_the_list);
        EXPECT_THROW(filter.push_state(larger.data(), 0, larger.size()), std::bad_alloc);
    }
    EXPECT_EQ(parts_by_key(), before);
}

/// Gates that do not pair terms, reads and writes allocate nothing.
TEST_P(OutOfMemory, OtherWalksNeedNone) {
    reset(20);
    fill(GetParam());
    const QPUOp ops[] = {record(OP_X, {.target_mask = 3}),
                         record(OP_SWAP, {.target_mask = 3}),
                         record(OP_Z, {.target_mask = 3}),
                         record(OP_T_INV, {.target_mask = 3}),
                         record(OP_PHASE, {.target_mask = 3, .angle = 30.0}),
                         record(OP_READ, {.target_mask = 3}),
                         record(OP_CLEAR, {.target_mask = 1}),
                         record(OP_WRITE, {.target_mask = 1, .cond_mask = 1})};
    const Shortage shortage(1);
    filter.put_instructions(ops, std::size(ops));
    EXPECT_EQ(filter.terms.size(), count);
}

INSTANTIATE_TEST_SUITE_P(Lists, OutOfMemory,
                         testing::Values(Shape::ordered, Shape::two_runs, Shape::scattered));

}  // namespace
